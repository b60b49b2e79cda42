// What a pattern is compiled into: a flat list of tokens.
//
//   ExpressionToken  one token
//   compilePattern   reads a pattern into tokens
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KestSupport::internal {

enum class TokenType : std::int32_t {
    InSet,     ///< one character of the segment
    NotInSet,  ///< one character that is not in the segment
    Literal,   ///< the whole segment
    Any,       ///< one character
    Begin,     ///< the match must start where the search does
    End,       ///< the match must end where the text does
};

enum class TokenFactor : std::int32_t { One, ZeroOrOne, ZeroOrMore, OneOrMore };

/// A literal of more than one character has the factor One: a repetition takes its last character away from it.
template <typename StringType>
struct ExpressionToken {
    TokenType type = TokenType::Literal;
    TokenFactor factor = TokenFactor::One;
    StringType segment;  ///< of a literal or a set, whose ranges are spelled out; up to its first zero character

    friend bool operator==(const ExpressionToken&, const ExpressionToken&) = default;
};

/// Appends the tokens of the pattern. On failure, false with the reason in `message`, and the tokens that stand before
/// the error are there.
template <typename StringType>
bool compilePattern(const StringType& pattern, std::vector<ExpressionToken<StringType>>& tokens, std::string& message);

}  // namespace KestSupport::internal
