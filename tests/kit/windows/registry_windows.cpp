#include "kit/registry.h"

#include <windows.h>

#include <stdexcept>

namespace kit {
namespace {

std::wstring wide(const std::string& utf8) {
    std::wstring text(utf8.size(), L'\0');
    const int size = static_cast<int>(utf8.size());
    text.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), size, text.data(), static_cast<int>(text.size()))));
    return text;
}

}  // namespace

// A key of the user, which takes the place of the predefined one in this process.
struct Registry::State {
    std::wstring path = L"Software\\kest_test_" + std::to_wstring(GetCurrentProcessId());
    HKEY root = nullptr;

    State() {
        RegDeleteTreeW(HKEY_CURRENT_USER, path.c_str());  // of a process that was killed
        if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root, nullptr) !=
                0 ||
            RegOverridePredefKey(HKEY_LOCAL_MACHINE, root) != 0)
            throw std::runtime_error("no registry");
    }
    ~State() {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(root);
        RegDeleteTreeW(HKEY_CURRENT_USER, path.c_str());
    }
};

Registry::Registry() : m_state(std::make_unique<State>()) {}
Registry::~Registry() = default;

void Registry::set(const std::string& key, const std::string& name, std::uint32_t type, const std::string& bytes) {
    HKEY opened = nullptr;
    RegCreateKeyExW(m_state->root, wide(key).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr);
    RegSetValueExW(opened, wide(name).c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                   static_cast<DWORD>(bytes.size()));
    RegCloseKey(opened);
}

void Registry::setText(const std::string& key, const std::string& name, const std::string& text) {
    const std::wstring units = wide(text);
    set(key, name, REG_SZ, {reinterpret_cast<const char*>(units.c_str()), (units.size() + 1) * sizeof(wchar_t)});
}

}  // namespace kit
