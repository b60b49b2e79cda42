// Attachment of threads to the waits: ids, the table of attached threads, and the end of a thread.
#include "platform/emulated/thread_record.h"

#include <array>

#include "platform/common/fault_seam.h"
#include "platform/emulated/wait_dispatcher.h"
#include "platform/thread.h"
#include "platform/thread_bias.h"

namespace KestSupport::platform {

constinit thread_local ThreadRecord t_record;
constinit thread_local std::uint32_t t_threadKey = 0;

namespace {

// Ids increase, and ids in use are skipped. So an id is used again after 2^31 further threads at the earliest.
//   odd    the thread is in the table
//   even   the last destructors of the thread run, or the system does not report the end of the thread. In the second
//          case, what the thread owns at its end is never abandoned
constinit std::atomic<std::uint32_t> g_lastId{0};

constexpr std::size_t kBucketCount = 256;
using Bucket = IntrusiveStack<ThreadRecord, &ThreadRecord::inBucket>;
constinit std::array<Bucket, kBucketCount> g_buckets{};  // guarded by the dispatcher lock

// In a forked child: the last id of its parent, and the id of the thread that forked, which writes both.
constinit std::uint32_t g_lastIdOfParent = 0;
constinit std::uint32_t g_forkedId = 0;

Bucket& bucketOf(std::uint32_t id) noexcept {
    return g_buckets[(id >> 1) % kBucketCount];
}

bool isInTable(std::uint32_t id) noexcept {
    const ThreadRecord* record = bucketOf(id).first();
    while (record != nullptr && record->id != id)
        record = Bucket::next(*record);
    return record != nullptr;
}

std::uint32_t newId(std::uint32_t lowBit) noexcept {
    for (;;) {
        const std::uint32_t id = g_lastId.fetch_add(2, std::memory_order_relaxed) + 2 + lowBit;
        if (id > 1 && id != WaitObject::kReserved) return id;
    }
}

}  // namespace

void attachThread(ThreadRecord& self) noexcept {
    if (self.systemId == 0) self.systemId = systemThreadId();
    self.endIsReported = !self.detached && injectedFault("attachThread") == 0 && onThreadEnd(self);
    // The end of a thread removes its record from the table. A thread made by createThread calls announceEnd itself.
    if (self.detached || (!self.endIsReported && self.finishing == nullptr)) {
        self.id = newId(0);
    } else {
        Dispatcher dispatcher(self);
        do {
            self.id = newId(1);
        } while (isInTable(self.id));
        bucketOf(self.id).push(self);
    }
    if (self.firstId == 0) self.firstId = self.id;
    t_threadKey = self.id;
}

void announceEnd(ThreadRecord& self) noexcept {
    self.detached = true;
    if (self.finishing != nullptr) {
        finishThread(*self.finishing, self);
    } else {
        Dispatcher dispatcher(self);
        detachThread(dispatcher, self);
    }
}

bool isAttached(std::uint32_t id) noexcept {
    if ((id & 1) != 0) return isInTable(id);
    // Ids wrap around: an id is a later one if the difference is in the lower half.
    return g_forks == 0 || id == g_forkedId || id - g_lastIdOfParent < (1U << 31);
}

void keepOnlyThread(ThreadRecord& self) noexcept {
    g_buckets.fill({});
    if ((self.id & 1) != 0) bucketOf(self.id).push(self);
    g_forkedId = self.id;
    g_lastIdOfParent = g_lastId.load(std::memory_order_relaxed) + 2;
}

void detachThread(Dispatcher& dispatcher, ThreadRecord& self) noexcept {
    bucketOf(self.id).remove(self);
    // A mutex that no thread waits for needs no visit: the next taker does not find its owner in the table.
    settleMutexes(dispatcher, self.id);
    self.id = t_threadKey = 0;
}

std::uint32_t currentThreadId() noexcept {
    ThreadRecord& self = t_record;
    if (self.systemId == 0) [[unlikely]]
        self.systemId = systemThreadId();
    return self.systemId;
}

}  // namespace KestSupport::platform
