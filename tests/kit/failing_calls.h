// Makes the Nth system call of a kind fail, once or from then on, for as long as the object lives. One at a time.
#pragma once

#include <atomic>
#include <cerrno>
#include <string_view>

#include "platform/common/fault_seam.h"

namespace kit {

class FailingCalls {
  public:
    /// call: the name that the seam is asked with, empty for every call; kept as a pointer. first counts from 1.
    /// forGood: all later ones too.
    explicit FailingCalls(const char* call, int first = 1, bool forGood = true, int error = ENOMEM) {
        s_call = call;
        s_first = first;
        s_forGood = forGood;
        s_error = error;
        s_seen = 0;
        KestSupport::platform::setFaultHook(&FailingCalls::ask);
    }
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;
    ~FailingCalls() { KestSupport::platform::setFaultHook(nullptr); }

    /// How many calls of the kind were made, failed ones included.
    static int seen() { return s_seen; }

  private:
    static int ask(const char* call) noexcept {
        const std::string_view wanted = s_call.load();
        if (!wanted.empty() && wanted != call) return 0;
        const int number = ++s_seen;
        return number == s_first || (s_forGood && number > s_first) ? s_error.load() : 0;
    }

    inline static std::atomic<const char*> s_call;
    inline static std::atomic<int> s_first, s_error, s_seen;
    inline static std::atomic<bool> s_forGood;
};

}  // namespace kit
