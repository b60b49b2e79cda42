#include "platform/services/status_record.h"

#include <new>

#include "platform/services/messages.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

constexpr std::int64_t kPrograms = std::int64_t{1} << 32;
constexpr std::int64_t kToTheEnd = 0;

constexpr std::int64_t offsetOf(StatusRecord::Lock lock) noexcept {
    return static_cast<std::int64_t>(lock);
}

}  // namespace

ErrorCode StatusRecord::take(Lock lock) const noexcept {
    const ErrorCode error = lockByte(offsetOf(lock));
    return error == errorBusy ? errorServiceAlreadyRunning : error;
}

void StatusRecord::release(Lock lock) const noexcept {
    unlock(offsetOf(lock), lock == Lock::starting ? kToTheEnd : 1);
}

Result<StatusRecord::Holder> StatusRecord::holder() const noexcept {
    // While both locks are held, the first query may find the starter's; the second one is for the process only.
    Holder holder = Holder::none;
    for (const std::int64_t length : {2, 1}) {
        const Result<std::optional<std::int64_t>> found = findLock(offsetOf(Lock::running), length);
        if (!found) return found.failure();
        if (!found->has_value()) break;
        if (**found == offsetOf(Lock::running)) return Holder::process;
        holder = Holder::starter;
    }
    return holder;
}

void StatusRecord::setProgram(std::uint32_t process) const noexcept {
    markByte(kPrograms + process);
}

std::uint32_t StatusRecord::program() const noexcept {
    const Result<std::optional<std::int64_t>> found = findLock(kPrograms, kToTheEnd);
    return found && found->has_value() ? static_cast<std::uint32_t>(**found - kPrograms) : 0;
}

ErrorCode StatusRecord::store(const ServiceStatus& status) const noexcept try {
    return writeStart(encodeRecord(status));
} catch (const std::bad_alloc&) {
    return errorNotEnoughMemory;
}

Result<ServiceStatus> StatusRecord::status() const {
    constexpr int kTries = 100;
    std::optional<ServiceStatus> stopping;
    for (int i = 0; i < kTries; ++i) {
        const Result<Holder> holder = this->holder();
        if (!holder) return holder.failure();
        if (*holder == Holder::starter) {
            ServiceStatus starting;
            starting.currentState = kServiceStartPending;
            starting.processId = program();
            return starting;
        }
        char bytes[kServiceRecordSize + 1];
        const Result<std::size_t> size = readStart(bytes);
        if (!size) return size.failure();
        std::optional<ServiceStatus> recorded = decodeRecord({bytes, *size});
        const bool saysStopped = recorded && recorded->currentState == kServiceStopped;
        if (*holder == Holder::none && !saysStopped) {
            // The process has ended without a last report, unless another process became the service before the read.
            const Result<Holder> later = this->holder();
            if (!later) return later.failure();
            if (*later != Holder::none) continue;
            return stoppedWith(errorProcessAborted);
        }
        if (!recorded) {
            yieldThread();
            continue;
        }
        if (*holder == Holder::none) recorded->processId = 0;
        if (*holder == Holder::none || !saysStopped) return *recorded;
        // The process is about to release the lock. A service that is seen as stopped can be started, so it is not seen
        // as stopped before that.
        recorded->currentState = kServiceStopPending;
        stopping = recorded;
        sleepThread(1);
    }
    if (stopping) return *stopping;
    return Failure{errorInvalidData};
}

ServiceStatus stoppedWith(ErrorCode exitCode) {
    ServiceStatus status;
    status.currentState = kServiceStopped;
    status.exitCode = exitCode;
    return status;
}

}  // namespace KestSupport::platform
