// Splits a command line into its tokens, as a user would type them into a shell that knows nothing but quotes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KestSupport::internal {

/// What makes a token end, and what keeps it together.
struct CommandLineRules {
    std::string_view delimiters;
    std::string_view quotes;
    bool doubledQuoteIsOne;  // within quotes, their own kind doubled stands for one quote, and closes nothing
    bool keepsEmptyTokens;   // those between quotes without text, and one in front of delimiters at the beginning
};

/// Those of program options.
inline constexpr CommandLineRules kOptionRules{" \t", "\"'", true, true};

/// The tokens between runs of delimiters; an empty text has no token.
///
/// Quotes, anywhere in a token, keep delimiters and the other kind of quote; they are dropped. A quote that is never
/// closed lasts to the end.
std::vector<std::string> splitCommandLine(std::string_view text, const CommandLineRules& rules);

}  // namespace KestSupport::internal
