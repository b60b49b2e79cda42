// Work of a thread that is given as a function.
#pragma once

#include <functional>
#include <utility>

#include "support/threads.h"

namespace kit {

struct FunctionWork : KestSupport::KestThread::KestRunnable {
    explicit FunctionWork(std::function<int()> function) : m_function(std::move(function)) {}
    int run() override { return m_function(); }
    const std::function<int()> m_function;
};

}  // namespace kit
