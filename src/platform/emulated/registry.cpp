// The registry is the file registry.reg in the state directory. What was read of it is kept as long as the file stays
// the same.
#include <mutex>

#include "platform/common/ascii_words.h"
#include "platform/emulated/cached_file.h"
#include "platform/emulated/registry_file.h"
#include "platform/process_memory.h"
#include "platform/registry.h"
#include "platform/state_directory.h"
#include "platform/text.h"
#include "platform/uninterrupted.h"
#include "support/strings.h"

namespace KestSupport::platform {
namespace {

// The text in another code page; the text itself, without a copy, where that makes no difference.
std::string_view recoded(std::string_view text, bool toUtf8, std::string& buffer) {
    if (isAscii(text)) return text;
    const CodePage ansi = ansiCodePage();
    if (ansi == codePageUtf8) return text;
    wstring16 units(text.size(), 0);
    units.resize(widenText(toUtf8 ? ansi : codePageUtf8, text.data(), text.size(), units.data(), units.size()));
    constexpr std::size_t kMostBytesOfUnit = 4;
    buffer.resize(units.size() * kMostBytesOfUnit);
    buffer.resize(narrowText(toUtf8 ? codePageUtf8 : ansi, units.data(), units.size(), buffer.data(), buffer.size()));
    return buffer;
}

class Registry {
  public:
    ErrorCode read(std::string_view subkey, std::string_view name, RegistryValue& value) {
        const std::lock_guard guard(m_lock);
        if (const ErrorCode error = stateDirectory(m_path); error != 0) return error;
        m_path += "/registry.reg";
        std::string bytes;
        bool changed = false;
        if (const ErrorCode error = m_source.readIfChanged(m_path, bytes, changed); error != 0) return error;
        if (changed) m_file = RegistryFile(bytes);
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
