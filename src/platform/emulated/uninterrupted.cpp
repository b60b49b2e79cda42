#include "platform/uninterrupted.h"

#include "platform/emulated/futex_lock.h"
#include "platform/emulated/wait_object.h"

namespace KestSupport::platform {

void beginUninterrupted() noexcept {
    Region::begin(t_record);
}

void endUninterrupted() noexcept {
    Region::end(t_record);
}

void UninterruptedMutex::lock() noexcept {
    beginUninterrupted();
    FutexLock::lock(m_word, FutexLock::tagOf(g_forks));
}

void UninterruptedMutex::unlock() noexcept {
    FutexLock::unlock(m_word);
    endUninterrupted();
}

}  // namespace KestSupport::platform
