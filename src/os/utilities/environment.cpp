#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/registry.h"
#include "support/exceptions.h"
#include "support/utilities.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

// Missing bytes count as 0.
std::int32_t littleEndianNumber(const std::string& bytes) {
    constexpr std::size_t kSize = 4;
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < kSize && i < bytes.size(); ++i)
        number |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
    return static_cast<std::int32_t>(number);
}

}  // namespace

std::string KestGetEnvironmentVariable(const std::string& key) {
    const std::string_view all = key;
    const std::size_t separator = all.rfind('\\');
    const std::string_view subkey = all.substr(0, separator);
    const std::string_view name = separator == std::string::npos ? all : all.substr(separator + 1);
    platform::Result<platform::RegistryValue> value = platform::readRegistryValue(subkey, name);
    if (!value) {
        const platform::ErrorCode error = value.error();
        const bool isAbsent = error == platform::errorFileNotFound || error == platform::errorPathNotFound;
        if (!isAbsent)
            internal::logRecord(internal::LogLevel::failure,
                                "KestGetEnvironmentVariable: Could not read the registry (", error, ")");
        return {};
    }
    switch (value->type) {
        case platform::kRegistryString:
            value->data.resize(std::min(value->data.find('\0'), value->data.size()));
            return std::move(value->data);
        case platform::kRegistryDword:
        case platform::kRegistryDwordBigEndian:
            return std::to_string(littleEndianNumber(value->data));
        default:
            throw KestKeyDataNotSupportedException(
                "KestUtilities::KestGetEnvironmentVariable:                         key-value data type not supported");
    }
}

}  // namespace KestSupport
