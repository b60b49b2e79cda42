// Splits a command line into its tokens, as a user would type them into a shell that knows nothing but quotes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KestSupport::internal {

/// The tokens between runs of blanks and tabs. Delimiters at the beginning make an empty first token; an empty text has
/// no token.
///
/// Double or single quotes, anywhere in a token, keep delimiters and the other kind of quote; they are dropped. Within
/// them their own kind doubled stands for one quote. A quote that is never closed lasts to the end.
std::vector<std::string> splitCommandLine(std::string_view text);

}  // namespace KestSupport::internal
