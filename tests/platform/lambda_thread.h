// A thread of the platform layer that runs a lambda.
#pragma once

#include <functional>
#include <utility>

#include "platform/thread.h"

namespace {

using namespace KestSupport::platform;

constexpr std::uint32_t kExitCode = 7;

// A thread that runs a lambda, which receives the thread's handle.
struct Lambda {
    explicit Lambda(std::function<void(WaitHandle)> given) : work(std::move(given)) {
        createThread(
            [](void* argument) -> std::uint32_t {
                const auto& self = *static_cast<Lambda*>(argument);
                self.work(self.handle);
                return kExitCode;
            },
            this, handle);
    }
    ~Lambda() { closeHandle(handle); }

    const std::function<void(WaitHandle)> work;
    WaitHandle handle = nullptr;
};

}  // namespace
