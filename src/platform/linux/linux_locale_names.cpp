#include <string>
#include <vector>

#include "platform/text.h"

namespace KestSupport::platform {
namespace {

// The names of the library and those of this system.
struct LocaleName {
    char name[16];
    char native[6];  // also with the suffix .UTF-8
};

constexpr LocaleName kLocaleNames[] = {
    {"german", "de_DE"},   {"english-us", "en_US"}, {"spanish-mexican", "es_MX"}, {"french", "fr_FR"},
    {"japanese", "ja_JP"}, {"chinese", "zh_CN"},    {"English", "en_US"},
};

}  // namespace

std::vector<std::string> localeNames(const std::string& name) {
    for (const LocaleName& row : kLocaleNames) {
        if (row.name == name) return {std::string(row.native) + ".UTF-8", row.native};
    }
    return {};
}

}  // namespace KestSupport::platform
