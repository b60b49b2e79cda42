// A compiled pattern: a flat list of tokens.
//
//   CharacterRange   consecutive members of a set
//   ExpressionToken  one token
//   compilePattern   reads a pattern into tokens
//
// Memory: in proportion to the pattern. A set stores its ranges, not their characters: a wide pattern of 18 KB can have
// several thousand ranges of 65,536 characters.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace KestSupport::internal {

enum class TokenType : std::int32_t {
    inSet,     ///< one character of the set
    notInSet,  ///< one character that is not in the set
    literal,   ///< the whole segment
    any,       ///< one character
    begin,     ///< the match must start where the search does
    end,       ///< the match must end where the text does
};

enum class TokenFactor : std::int32_t { one, zeroOrOne, zeroOrMore, oneOrMore };

/// Returns the position of a character in the order of ranges. Narrow characters from 0x80 on are negative, also where
/// a char of the compiler is unsigned.
template <typename CharT>
int placeOf(CharT c) {
    if constexpr (sizeof(CharT) == 1) return static_cast<signed char>(c);
    return c;
}

/// The characters from the first place to the last, both included.
template <typename CharT>
struct CharacterRange {
    using Place = std::conditional_t<sizeof(CharT) == 1, std::int8_t, std::uint16_t>;

    Place first;
    Place last;

    friend bool operator==(const CharacterRange&, const CharacterRange&) = default;
};

/// A literal of several characters has the factor one: a repetition makes a separate token of the last character. A
/// zero character ends a literal or a set and is not part of it.
template <typename StringType>
struct ExpressionToken {
    using CharType = typename StringType::value_type;

    TokenType type = TokenType::literal;
    TokenFactor factor = TokenFactor::one;
    StringType segment;  ///< the characters of a literal
    /// The members of a set, in the order of the pattern. Consecutive members are one range, so two sets of the same
    /// members in the same order have equal ranges.
    std::vector<CharacterRange<CharType>> ranges;

    bool hasMember(CharType c) const {
        const int place = placeOf(c);
        return std::any_of(ranges.begin(), ranges.end(),
                           [place](const auto& range) { return range.first <= place && place <= range.last; });
    }

    friend bool operator==(const ExpressionToken&, const ExpressionToken&) = default;
};

/// Appends the tokens of the pattern. On failure, appends those before the error, and returns false with the reason in
/// `message`.
template <typename StringType>
bool compilePattern(const StringType& pattern, std::vector<ExpressionToken<StringType>>& tokens, std::string& message);

}  // namespace KestSupport::internal
