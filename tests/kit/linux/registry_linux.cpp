#include "kit/registry.h"

#include <cstdio>
#include <map>

#include "kit/environment_guard.h"
#include "kit/temporary_folder.h"

namespace kit {

struct Registry::State {
    TemporaryFolder folder;
    EnvironmentGuard environment;
    std::map<std::string, std::map<std::string, std::string>> keys;

    void write(const std::string& key, const std::string& name, const std::string& value) {
        keys[key][name] = value;
        std::string text = "Windows Registry Editor Version 5.00\n";
        for (const auto& [path, values] : keys) {
            text += "\n[HKEY_LOCAL_MACHINE\\" + path + "]\n";
            for (const auto& [each, content] : values)
                text += '"' + each + "\"=" + content + '\n';
        }
        folder.write("registry.reg", text);
    }
};

Registry::Registry() : m_state(std::make_unique<State>()) {
    m_state->environment.set("KEST_STATE_DIR", m_state->folder.path());
}
Registry::~Registry() = default;

void Registry::set(const std::string& key, const std::string& name, std::uint32_t type, const std::string& bytes) {
    char part[16];
    std::snprintf(part, sizeof part, "hex(%x):", type);
    std::string value = part;
    for (const unsigned char byte : bytes) {
        std::snprintf(part, sizeof part, "%02x,", byte);
        value += part;
    }
    m_state->write(key, name, value.substr(0, value.size() - 1));
}

void Registry::setText(const std::string& key, const std::string& name, const std::string& text) {
    m_state->write(key, name, '"' + text + '"');
}

}  // namespace kit
