// Reads the three layouts of a date text. Checks only the form of the text, not the calendar.
//
//     Sun, 06 Nov 1994 08:49:37 GMT     RFC 1123: a text with a comma
//     06/11/1994 08:49:37               day/month/year: any other text with a slash; it may end before the seconds
//     Sun Nov  6 08:49:37 1994          asctime: any other text
//
// Items are read like sscanf of the C runtime reads them: white space before a number or word is skipped, a number may
// have a sign, a separator directly follows its number, text after the last item is ignored, and a zero byte ends the
// text. A number that does not fit an int, and a word of more than 9 characters, are errors.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace KestSupport::internal {

/// The detail of the exception for fields that are not a date.
inline constexpr char kNotADate[] = "Input does not compute to a valid DateTime object";

enum class DateLayout { rfc1123, dayMonthYear, asctime };

struct DateText {
    DateText() { fields.tm_isdst = -1; }

    DateLayout layout = DateLayout::asctime;
    std::tm fields{};            ///< tm_isdst is -1; tm_mon only for a layout that has the month as a number
    std::string_view monthName;  ///< for the other layouts; points into the text
};

/// Reads a text in the layout that its characters select, and sets `result`, which is new; its layout in every case.
/// Returns false if the text is too long for the layout or a required item is missing.
bool readDateText(const std::string& text, DateText& result);

}  // namespace KestSupport::internal
