// Attachment of threads to the waits: ids, the table of attached threads, and what happens when a thread ends.
#include <pthread.h>

#include "platform/linux/linux_call.h"
#include "platform/linux/linux_wait_object.h"
#include "platform/process_memory.h"

namespace KestSupport::platform {

constinit thread_local ThreadRecord t_record;

namespace {

// Ids go up and are skipped while in use, so an id is not used again before 2^31 further threads have come. Odd ids are
// in the table. An even id belongs to a thread whose end was announced already and that still runs destructors, or to
// one whose end the system does not report, because it has no room for another thread-specific value: what such a
// thread owns when it ends is never abandoned.
constinit std::atomic<std::uint32_t> g_lastId{0};

constexpr std::size_t kBucketCount = 256;
constinit std::array<ThreadRecord*, kBucketCount> g_buckets{};  // guarded by the dispatcher lock

// In a forked child: the last id that its parent gave, and that of the thread that forked. Written by that thread.
constinit std::uint32_t g_lastIdOfParent = 0;
constinit std::uint32_t g_forkedId = 0;

ThreadRecord*& bucketOf(std::uint32_t id) noexcept {
    return g_buckets[(id >> 1) % kBucketCount];
}

void insert(ThreadRecord& record) noexcept {
    ThreadRecord*& bucket = bucketOf(record.id);
    record.nextInBucket = bucket;
    record.previousInBucket = nullptr;
    if (bucket != nullptr) bucket->previousInBucket = &record;
    bucket = &record;
}

void erase(ThreadRecord& record) noexcept {
    if (record.nextInBucket != nullptr) record.nextInBucket->previousInBucket = record.previousInBucket;
    if (record.previousInBucket != nullptr) {
        record.previousInBucket->nextInBucket = record.nextInBucket;
    } else {
        bucketOf(record.id) = record.nextInBucket;
    }
}

bool isInTable(std::uint32_t id) noexcept {
    const ThreadRecord* record = bucketOf(id);
    while (record != nullptr && record->id != id)
        record = record->nextInBucket;
    return record != nullptr;
}

std::uint32_t newId(std::uint32_t lowBit) noexcept {
    for (;;) {
        const std::uint32_t id = g_lastId.fetch_add(2, std::memory_order_relaxed) + 2 + lowBit;
        if (id > 1 && id != WaitObject::kReserved) return id;
    }
}

// A thread-specific value of the system has announceEnd called when the thread ends, after the destructors of its C++
// thread-local objects. (Such an object of our own would keep the library loaded until the last thread that has one
// ended; a key is simply deleted, and threads that live on are forgotten.) The key is made before the library's static
// objects and deleted after them.
constinit pthread_key_t g_endKey{};
constinit bool g_endKeyMade = false;

[[gnu::constructor(101)]] void makeEndKey() noexcept {
    g_endKeyMade = pthread_key_create(&g_endKey, [](void*) { announceEnd(t_record); }) == 0;
}

// A thread that lives on by now is not to come back to the library, but one that is not waited for by anybody may still
// be on its way out.
[[gnu::destructor(101)]] void deleteEndKey() noexcept {
    awaitLeavingThreads();
    if (g_endKeyMade) pthread_key_delete(g_endKey);
    deleteProcessMemory();
}

}  // namespace

void attachThread(ThreadRecord& self) noexcept {
    if (self.systemId == 0) self.systemId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    self.endIsHeard = !self.detached && g_endKeyMade &&
                      errorCall("attachThread", [&] { return pthread_setspecific(g_endKey, &self); }) == 0;
    // A record in the table is taken out by the end of its thread. A thread made here calls announceEnd.
    if (self.detached || (!self.endIsHeard && self.finishing == nullptr)) {
        self.id = newId(0);
    } else {
        Dispatcher dispatcher(self);
        do {
            self.id = newId(1);
        } while (isInTable(self.id));
        insert(self);
    }
    if (self.firstId == 0) self.firstId = self.id;
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
    // Ids go round; a difference in the lower half is an id that was given later.
    return g_forks == 0 || id == g_forkedId || id - g_lastIdOfParent < (1U << 31);
}

void keepOnlyThread(ThreadRecord& self) noexcept {
    g_buckets.fill(nullptr);
    if ((self.id & 1) != 0) insert(self);
    g_forkedId = self.id;
    g_lastIdOfParent = g_lastId.load(std::memory_order_relaxed) + 2;
}

void detachThread(Dispatcher& dispatcher, ThreadRecord& self) noexcept {
    erase(self);
    // A mutex without waiters needs no visit: its next taker finds the owner missing from the table.
    settleMutexes(dispatcher, self.id);
    self.id = 0;
}

std::uint32_t currentThreadId() noexcept {
    ThreadRecord& self = t_record;
    if (self.systemId == 0) [[unlikely]]
        self.systemId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    return self.systemId;
}

}  // namespace KestSupport::platform
