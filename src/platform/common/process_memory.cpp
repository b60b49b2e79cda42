#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

constinit std::atomic<ProcessMemory*> g_latest{nullptr};

}  // namespace

// Deleting an object may create another one, which is deleted next.
void ProcessMemory::deleteAll() noexcept {
    while (ProcessMemory* const latest = g_latest.load(std::memory_order_acquire)) {
        g_latest.store(latest->m_next, std::memory_order_relaxed);
        latest->m_delete(*latest);
    }
}

void ProcessMemory::remember() noexcept {
    m_next = g_latest.load(std::memory_order_relaxed);
    while (!g_latest.compare_exchange_weak(m_next, this, std::memory_order_release, std::memory_order_relaxed)) {
    }
}

}  // namespace KestSupport::platform
