#include "platform/thread_bias.h"

#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {

namespace {

// A thread without a record of its own has its id as key. The system gives the id to another thread after its end.
constexpr std::uint32_t kKeyIsId = kThreadKeys;

}  // namespace

std::uint32_t threadKey() noexcept {
    const std::uint32_t key = currentRecord().key;
    return key != 0 ? key : GetCurrentThreadId() | kKeyIsId;
}

std::uint32_t lifelongThreadKey() noexcept {
    return threadKey();
}

bool threadMayRun(std::uint32_t key) noexcept {
    if ((key & kKeyIsId) != 0) {
        const SystemHandle thread(OpenThread(SYNCHRONIZE, FALSE, key & ~kKeyIsId));
        return thread.isOpen() && WaitForSingleObject(thread.get(), 0) != WAIT_OBJECT_0;
    }
    const RecordGuard records;
    const ThreadRecord* const record = records.find([key](const ThreadRecord& each) { return each.key == key; });
    return record != nullptr && WaitForSingleObject(record->thread.get(), 0) != WAIT_OBJECT_0;
}

void barrierInAllThreads() noexcept {
    FlushProcessWriteBuffers();
}

bool allThreadsCanBarrier() noexcept {
    return true;
}

}  // namespace KestSupport::platform
