// The walk as it is told to the log: entry by entry, every try of a literal and every match on the stack. It comes to
// the same results as ExpressionWalk and takes over while the logger shows traces; the log gets the whole text for
// every literal that is tried.
#pragma once

#include <cstddef>
#include <vector>

#include "values/pattern/tokens.h"

namespace KestSupport::internal {

inline constexpr int kExpressionTraceLevel = 9;

/// Writes the record of one token.
template <typename StringType>
void traceToken(const ExpressionToken<StringType>& token);

/// Searches, with all records but the last. The offset of the match, or npos; `length` is written when something was
/// matched, also when an anchor refuses it.
template <typename StringType>
std::size_t findWithTrace(const std::vector<ExpressionToken<StringType>>& tokens, const StringType& text,
                          std::size_t& length, std::size_t start);

}  // namespace KestSupport::internal
