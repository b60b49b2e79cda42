// Makes the Nth step of a name (platform/common/fault_seam.h) fail, once or from then on, while the object lives. Only
// one object may live at a time.
#pragma once

#include <atomic>
#include <cerrno>
#include <string_view>

#include "platform/common/fault_seam.h"

namespace kit {

class FailingCalls {
  public:
    /// step: its name, which must outlive the object; empty for every step. first: N, counted from 1.
    explicit FailingCalls(const char* step, int first = 1, bool fromThenOn = true, int error = ENOMEM) {
        s_step = step;
        s_first = first;
        s_fromThenOn = fromThenOn;
        s_error = error;
        s_seen = 0;
        KestSupport::platform::setFaultHook(&FailingCalls::ask);
    }
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;
    ~FailingCalls() { KestSupport::platform::setFaultHook(nullptr); }

    /// The number of steps of the name until now, failed ones included.
    static int seen() { return s_seen; }

  private:
    static int ask(const char* step) noexcept {
        const std::string_view wanted = s_step.load();
        if (!wanted.empty() && wanted != step) return 0;
        const int number = ++s_seen;
        return number == s_first || (s_fromThenOn && number > s_first) ? s_error.load() : 0;
    }

    inline static std::atomic<const char*> s_step;
    inline static std::atomic<int> s_first, s_error, s_seen;
    inline static std::atomic<bool> s_fromThenOn;
};

}  // namespace kit
