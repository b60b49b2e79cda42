// Makes the Nth step of a name (platform/common/fault_seam.h) fail, once or from then on, for as long as the object
// lives. One object at a time.
#pragma once

#include <atomic>
#include <cerrno>
#include <string_view>

#include "platform/common/fault_seam.h"

namespace kit {

class FailingCalls {
  public:
    /// step: its name, empty for every step; kept as a pointer. first: N, counted from 1. forGood: all later ones too.
    explicit FailingCalls(const char* step, int first = 1, bool forGood = true, int error = ENOMEM) {
        s_step = step;
        s_first = first;
        s_forGood = forGood;
        s_error = error;
        s_seen = 0;
        KestSupport::platform::setFaultHook(&FailingCalls::ask);
    }
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;
    ~FailingCalls() { KestSupport::platform::setFaultHook(nullptr); }

    /// How many steps of the name were asked for, failed ones included.
    static int seen() { return s_seen; }

  private:
    static int ask(const char* step) noexcept {
        const std::string_view wanted = s_step.load();
        if (!wanted.empty() && wanted != step) return 0;
        const int number = ++s_seen;
        return number == s_first || (s_forGood && number > s_first) ? s_error.load() : 0;
    }

    inline static std::atomic<const char*> s_step;
    inline static std::atomic<int> s_first, s_error, s_seen;
    inline static std::atomic<bool> s_forGood;
};

}  // namespace kit
