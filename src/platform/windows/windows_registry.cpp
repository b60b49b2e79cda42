#include "platform/registry.h"

#include <algorithm>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

static_assert(kRegistryString == REG_SZ && kRegistryDword == REG_DWORD &&
              kRegistryDwordBigEndian == REG_DWORD_BIG_ENDIAN);

}  // namespace

Result<RegistryValue> readRegistryValue(std::string_view subkey, std::string_view name) {
    if (const int error = injectedFault("readRegistry"); error != 0) return Failure{errorFromErrno(error)};
    const std::wstring key = wideText(subkey);
    const std::wstring valueName = wideText(name);
    constexpr DWORD kAsStored = RRF_RT_ANY | RRF_NOEXPAND;
    std::wstring data;
    DWORD type = 0;
    // The value may grow between the two calls.
    for (;;) {
        DWORD bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
        LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), valueName.c_str(), kAsStored, &type,
                                      data.empty() ? nullptr : data.data(), &bytes);
        if (status == ERROR_SUCCESS && data.empty() && bytes > 0) status = ERROR_MORE_DATA;
        if (status == ERROR_PATH_NOT_FOUND) return Failure{errorFileNotFound};
        if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return Failure{static_cast<ErrorCode>(status)};
        const std::size_t units = (bytes + sizeof(wchar_t) - 1) / sizeof(wchar_t);
        if (status == ERROR_SUCCESS && type == REG_SZ)
            return RegistryValue{type, ansiText(std::wstring_view(data).substr(0, data.find(L'\0')))};
        if (status == ERROR_SUCCESS) return RegistryValue{type, {reinterpret_cast<const char*>(data.data()), bytes}};
        data.resize(std::max<std::size_t>(units, 1));
    }
}

}  // namespace KestSupport::platform
