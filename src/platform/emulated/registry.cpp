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

// Returns the text in the other code page. The result is the text itself, without a copy, if the code pages do not
// differ in it.
std::string_view recoded(std::string_view text, bool toUtf8, std::string& buffer) {
    if (isAscii(text)) return text;
    const CodePage ansi = ansiCodePage();
    if (ansi == kCodePageUtf8) return text;
    const WideUnits units = toUnits(toUtf8 ? ansi : kCodePageUtf8, text);
    return buffer = fromUnits(toUtf8 ? kCodePageUtf8 : ansi, units);
}

class Registry {
  public:
    Result<RegistryValue> read(std::string_view subkey, std::string_view name) {
        const std::lock_guard guard(m_lock);
        if (const ErrorCode error = stateDirectory(m_path); error != 0) return Failure{error};
        m_path += "/registry.reg";
        const Result<std::optional<std::string>> bytes = m_source.readIfChanged(m_path);
        if (!bytes) return bytes.failure();
        if (bytes->has_value()) {
            // If memory runs out here, the next call reads the file again.
            CachedFile source = std::exchange(m_source, CachedFile());
            m_file = RegistryFile(**bytes);
            m_source = std::move(source);
        }
        return find(subkey, name);
    }

  private:
    Result<RegistryValue> find(std::string_view subkey, std::string_view name) const {
        std::string keyBuffer;
        std::string nameBuffer;
        const RegistryFile::Value* const found =
            m_file.find(recoded(subkey, true, keyBuffer), recoded(name, true, nameBuffer));
        if (found == nullptr) return Failure{errorFileNotFound};
        if (found->type != kRegistryString) return RegistryValue{found->type, std::string(found->data)};
        std::string dataBuffer;
        return RegistryValue{found->type, std::string(recoded(found->data, false, dataBuffer))};
    }

    UninterruptedMutex m_lock;  // guards the members below
    std::string m_path;         // a member, to reuse its memory
    CachedFile m_source;
    RegistryFile m_file;
};

constinit ProcessObject<Registry> g_registry;

}  // namespace

Result<RegistryValue> readRegistryValue(std::string_view subkey, std::string_view name) {
    return g_registry.get().read(subkey, name);
}

}  // namespace KestSupport::platform
