#include "platform/registry.h"

#include <algorithm>
#include <memory>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

static_assert(kRegistryString == REG_SZ && kRegistryDword == REG_DWORD &&
              kRegistryDwordBigEndian == REG_DWORD_BIG_ENDIAN);

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};

}  // namespace

Result<RegistryValue> readRegistryValue(std::string_view subkey, std::string_view name) {
    if (const int error = injectedFault("readRegistry"); error != 0) return Failure{errorFromErrno(error)};
    const std::wstring key = wideText(subkey);
    const std::wstring valueName = wideText(name);
    HKEY opened = nullptr;
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, &opened);
    if (status == ERROR_PATH_NOT_FOUND || status == ERROR_BAD_PATHNAME) status = ERROR_FILE_NOT_FOUND;
    if (status != ERROR_SUCCESS) return Failure{static_cast<ErrorCode>(status)};
    const std::unique_ptr<HKEY__, KeyCloser> closer(opened);
    std::wstring data;
    DWORD type = 0;
    // The value may grow between the two calls.
    for (;;) {
        DWORD bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
        status = RegQueryValueExW(opened, valueName.c_str(), nullptr, &type,
                                  data.empty() ? nullptr : reinterpret_cast<BYTE*>(data.data()), &bytes);
        if (status == ERROR_SUCCESS && data.empty() && bytes > 0) status = ERROR_MORE_DATA;
        if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return Failure{static_cast<ErrorCode>(status)};
        const std::size_t units = (bytes + sizeof(wchar_t) - 1) / sizeof(wchar_t);
        if (status == ERROR_SUCCESS && type == REG_SZ)
            return RegistryValue{type, ansiText(std::wstring_view(data).substr(0, data.find(L'\0')))};
        if (status == ERROR_SUCCESS) return RegistryValue{type, {reinterpret_cast<const char*>(data.data()), bytes}};
        data.resize(std::max<std::size_t>(units, 1));
    }
}

}  // namespace KestSupport::platform
