// One run of a service under the manager, from its start to its final report.
#pragma once

#include <cstdint>
#include <new>
#include <string>

#include "support/service.h"
#include "text/log/internal_log.h"

namespace KestSupport::internal {

inline constexpr std::uint32_t kServiceWaitHint = 3000;  ///< milliseconds until the next report at the latest

/// Writes a record in a function that throws nothing. Without memory the record is missing.
template <typename... Values>
void traceStep(const Values&... values) noexcept {
    try {
        logRecord(LogLevel::trace, values...);
    } catch (const std::bad_alloc&) {
        return;
    }
}

/// Runs startIt on another thread and reports while it runs. Returns when the result of startIt is reported, or when
/// the service was stopped before that. A third thread stops the service later.
void runService(KestService& service, const std::string& arguments);

}  // namespace KestSupport::internal
