// Splits a command line into tokens, like a shell that only knows quotes. Example, with the rules of program options:
//
//   prog "a b" c'd e' ""    the tokens: prog, a b, cd e, and an empty one
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KestSupport::internal {

/// The characters with a meaning.
struct CommandLineRules {
    std::string_view delimiters;
    std::string_view quotes;
    bool doubledQuoteIsOne;  // between quotes, two quotes of their kind are one literal quote
    bool keepsEmptyTokens;   // an empty token is a pair of quotes, or the text before delimiters at the beginning
};

/// The rules of program options.
inline constexpr CommandLineRules kOptionRules{" \t", "\"'", true, true};

/// Returns the tokens between runs of delimiters; an empty text has no token.
///
/// Delimiters and quotes of the other kind lose their meaning between quotes. The quotes may be anywhere in a token,
/// and are removed. A quote without its partner extends to the end of the text.
std::vector<std::string> splitCommandLine(std::string_view text, const CommandLineRules& rules);

}  // namespace KestSupport::internal
