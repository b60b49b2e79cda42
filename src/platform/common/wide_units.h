// Whole texts as UTF-16 units, by the conversions of platform/text.h.
//
// Threads: any thread may call these functions.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"

namespace KestSupport::platform {

using WideUnits = std::vector<unsigned short>;

inline WideUnits toUnits(CodePage codePage, std::string_view text) {
    WideUnits units(text.size());
    units.resize(widenText(codePage, text.data(), text.size(), units.data(), units.size()));
    return units;
}

inline std::string fromUnits(CodePage codePage, std::span<const unsigned short> units) {
    constexpr std::size_t kMostBytesOfUnit = 4;
    std::string text(units.size() * kMostBytesOfUnit, '\0');
    text.resize(narrowText(codePage, units.data(), units.size(), text.data(), text.size()));
    return text;
}

}  // namespace KestSupport::platform
