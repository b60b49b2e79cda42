#include <iterator>
#include <string_view>

#include "platform/text.h"

namespace KestSupport::platform {
namespace {

// The names of the library and those of this system.
struct LocaleName {
    std::string_view name;
    const char* native[2];
};

constexpr LocaleName kLocaleNames[] = {
    {"german", {"de_DE.UTF-8", "de_DE"}},          {"english-us", {"en_US.UTF-8", "en_US"}},
    {"spanish-mexican", {"es_MX.UTF-8", "es_MX"}}, {"french", {"fr_FR.UTF-8", "fr_FR"}},
    {"japanese", {"ja_JP.UTF-8", "ja_JP"}},        {"chinese", {"zh_CN.UTF-8", "zh_CN"}},
    {"English", {"en_US.UTF-8", "en_US"}},
};

}  // namespace

std::vector<std::string> localeNames(const std::string& name) {
    for (const LocaleName& row : kLocaleNames) {
        if (row.name == name) return {std::begin(row.native), std::end(row.native)};
    }
    return {};
}

}  // namespace KestSupport::platform
