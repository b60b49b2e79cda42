// The search that writes traces: each try of a literal, with the whole text, and each entry of the stack. It has the
// same results as ExpressionWalk, and replaces it while the logger writes traces.
#pragma once

#include <cstddef>
#include <vector>

#include "text/log/internal_log.h"
#include "values/pattern/tokens.h"

namespace KestSupport::internal {

inline constexpr LogLevel kExpressionTraceLevel = LogLevel::trace;

/// Writes the record of one token.
template <typename StringType>
void traceToken(const ExpressionToken<StringType>& token);

/// Searches, and writes all records except the last one. Returns the offset of the match, or npos. Sets `length` if
/// something was matched, even if an anchor refuses it.
template <typename StringType>
std::size_t findWithTrace(const std::vector<ExpressionToken<StringType>>& tokens, const StringType& text,
                          std::size_t& length, std::size_t start);

}  // namespace KestSupport::internal
