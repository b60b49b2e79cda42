// The registry is the file registry.reg in the state directory. It is read again when it has changed.
#include <mutex>
#include <utility>

#include "platform/common/ascii_words.h"
#include "platform/common/wide_units.h"
#include "platform/emulated/cached_file.h"
#include "platform/emulated/registry_file.h"
#include "platform/process_memory.h"
#include "platform/registry.h"
#include "platform/state_directory.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

// Converts a text between the ANSI code page and UTF-8. Returns the text itself when its bytes are the same in both,
// otherwise a view of the buffer.
std::string_view recoded(std::string_view text, bool toUtf8, std::string& buffer) {
    if (isAscii(text)) return text;
    const CodePage ansi = ansiCodePage();
    if (ansi == codePageUtf8) return text;
    const WideUnits units = toUnits(toUtf8 ? ansi : codePageUtf8, text);
    return buffer = fromUnits(toUtf8 ? codePageUtf8 : ansi, units);
}

class Registry {
  public:
    ErrorCode read(std::string_view subkey, std::string_view name, RegistryValue& value) {
        const std::lock_guard guard(m_lock);
        if (const ErrorCode error = stateDirectory(m_path); error != 0) return error;
        m_path += "/registry.reg";
        std::string bytes;
        bool changed = false;
        // When memory runs out here, the next call reads the file again.
        CachedFile source = std::exchange(m_source, CachedFile());
        if (const ErrorCode error = source.readIfChanged(m_path, bytes, changed); error != 0) return error;
        if (changed) m_file = RegistryFile(bytes);
        m_source = source;
        return find(subkey, name, value);
    }

  private:
    ErrorCode find(std::string_view subkey, std::string_view name, RegistryValue& value) const {
        std::string keyBuffer;
        std::string nameBuffer;
        const RegistryValue* const found =
            m_file.find(recoded(subkey, true, keyBuffer), recoded(name, true, nameBuffer));
        if (found == nullptr) return errorFileNotFound;
        value.type = found->type;
        std::string dataBuffer;
        value.data = found->type == kRegistryString ? recoded(found->data, false, dataBuffer) : found->data;
        return errorSuccess;
    }

    UninterruptedMutex m_lock;  // guards what follows
    std::string m_path;         // a member so that its memory is reused
    CachedFile m_source;
    RegistryFile m_file;
};

constinit ProcessObject<Registry> g_registry;

}  // namespace

ErrorCode readRegistryValue(std::string_view subkey, std::string_view name, RegistryValue& value) {
    return g_registry.get().read(subkey, name, value);
}

}  // namespace KestSupport::platform
