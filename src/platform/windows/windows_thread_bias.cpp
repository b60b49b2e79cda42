#include "platform/thread_bias.h"

#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {

std::uint32_t threadKey() noexcept {
    return currentRecord().key;
}

std::uint32_t lifelongThreadKey() noexcept {
    return currentRecord().key;
}

bool threadMayRun(std::uint32_t key) noexcept {
    return withRecord([key](const ThreadRecord& record) { return record.key == key; },
                      [](const ThreadRecord* record) {
                          return record != nullptr && WaitForSingleObject(record->thread.get(), 0) != WAIT_OBJECT_0;
                      });
}

void barrierInAllThreads() noexcept {
    FlushProcessWriteBuffers();
}

bool allThreadsCanBarrier() noexcept {
    return true;
}

}  // namespace KestSupport::platform
