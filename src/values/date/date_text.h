// Reads the three layouts of a date text. Only the text's shape is judged here, not the calendar.
//
//     Sun, 06 Nov 1994 08:49:37 GMT     RFC 1123, for a text that contains a comma
//     06/11/1994 08:49:37               day/month/year, else for a text with a slash; it may end before the seconds
//     Sun Nov  6 08:49:37 1994          asctime, for any other text
//
// Items are read as the C runtime's sscanf reads them: white space in front of a number or word is skipped, a number
// may have a sign, a separator stands directly behind its number, what follows the last item is ignored, and a zero
// byte ends the text. A number that does not fit an int and a word of more than 9 characters are refused.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace KestSupport::internal {

enum class DateLayout { Rfc1123, DayMonthYear, Asctime };

struct DateText {
    DateLayout layout = DateLayout::Asctime;
    std::tm fields{};            ///< tm_isdst is -1; tm_mon only for a layout that has the month as a number
    std::string_view monthName;  ///< for the other layouts; points into the text
};

/// Reads a text in the layout that its characters select, which is known afterwards in any case. False when the text is
/// too long for the layout or lacks a needed item.
bool readDateText(const std::string& text, DateText& result);

}  // namespace KestSupport::internal
