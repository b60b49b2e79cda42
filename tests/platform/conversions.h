// Conversions of text between code pages for tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/environment_guard.h"
#include "platform/text.h"

namespace {

using namespace KestSupport::platform;
using Units = std::vector<unsigned short>;

// Converts a text, and expects that a space of one unit less than the result has is refused and not exceeded.
template <auto convert, typename To, typename From>
To converted(CodePage page, const From& text) {
    To result(4 * text.size(), 0);
    result.resize(convert(page, text.data(), text.size(), result.data(), result.size()));
    constexpr typename To::value_type kUntouched = 0x5A;
    To tooShort(result.size(), kUntouched);
    EXPECT_EQ(convert(page, text.data(), text.size(), tooShort.data(), result.size() - 1), 0U);
    EXPECT_EQ(tooShort.back(), kUntouched);
    return result;
}

constexpr auto widened = converted<widenText, Units, std::string>;
constexpr auto narrowed = converted<narrowText, std::string, Units>;

Units unitsOf(const std::u16string& text) {
    return {text.begin(), text.end()};
}

CodePage pageOf(const std::string& locale) {
    kit::EnvironmentGuard environment;
    environment.setLocale(locale);
    return ansiCodePage();
}

}  // namespace
