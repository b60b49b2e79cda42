#include "wait.h"

#include <algorithm>
#include <future>
#include <thread>
#include <utility>

#include "platform/console.h"
#include "text.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;
using std::chrono::milliseconds;

constexpr milliseconds kShortestStep{50};
constexpr milliseconds kLongestStep{500};
constexpr milliseconds kUsualPatience{30'000};
constexpr milliseconds kLongestHint{600'000};  // a longer hint is taken for a mistake of the service

std::string seconds(milliseconds time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
}

}  // namespace

Wait::Wait(const Task& task, const SharedHandle& service, const Patience& patience, Cancel cancel)
    : m_task(task),
      m_service(service),
      m_patience(patience),
      m_cancel(std::move(cancel)),
      m_progress(stderr, platform::isTerminal(platform::StandardStream::error)) {
    if (m_cancel) m_held.emplace();
}

ServiceStatus Wait::queryStatus() {
    ServiceStatus status;
    const ErrorCode error = platform::serviceManager().queryStatus(m_service.get(), status);
    if (error == platform::errorServiceDoesNotExist) {
        status.currentState = platform::kServiceStopped;
    } else {
        require(m_task, error);
    }
    note(status);
    return status;
}

ErrorCode Wait::call(std::function<ErrorCode()> work) {
    constexpr milliseconds kRefresh{200};
    const Clock::time_point begin = Clock::now();
    std::future<ErrorCode> result = std::async(std::launch::async, std::move(work));
    int request = 0;
    while (result.wait_for(kRefresh) != std::future_status::ready) {
        queryStatus();
        showProgress();
        if (request != 0) continue;
        request = askForEnd(milliseconds(0));
        if (request != 0) m_cancel();
    }
    m_inCalls += Clock::now() - begin;
    if (request != 0) throw Interrupted(m_task, "interrupted", request);
    return result.get();
}

// Waits that long. Returns the request to end that arrives during that time, or 0. Without held requests it sleeps.
int Wait::askForEnd(milliseconds time) {
    if (m_held) return m_held->wait(static_cast<std::uint32_t>(time.count()));
    std::this_thread::sleep_for(time);
    return 0;
}

void Wait::pause() {
    showProgress();
    const milliseconds rest = left();
    if (rest <= milliseconds(0)) giveUp();
    m_step = std::clamp(2 * m_step, kShortestStep, kLongestStep);
    if (const int request = askForEnd(std::min(m_step, rest)); request != 0) {
        m_cancel();
        throw Interrupted(m_task, "interrupted", request);
    }
}

milliseconds Wait::limit() const {
    if (m_patience.seconds) return std::chrono::seconds(*m_patience.seconds);
    return std::max(kUsualPatience, m_longestHint);
}

milliseconds Wait::left() const {
    return std::chrono::ceil<milliseconds>(m_begin + m_inCalls + limit() - Clock::now());
}

// A service that makes progress is queried more often again.
void Wait::note(const ServiceStatus& status) {
    m_longestHint = std::clamp(milliseconds(status.waitHint), m_longestHint, kLongestHint);
    if (status.currentState != m_seen.currentState || status.checkPoint != m_seen.checkPoint) {
        m_lastProgress = Clock::now();
        m_step = milliseconds(0);
    }
    m_seen = status;
}

void Wait::showProgress() {
    std::string text = printable(m_task.operation + ' ' + m_task.service) + ": " + stateWord(m_seen.currentState);
    if (m_seen.processId != 0) text += ", process " + std::to_string(m_seen.processId);
    if (m_seen.checkPoint != 0) text += ", check point " + std::to_string(m_seen.checkPoint);
    m_progress.show(text + ", " + seconds(std::chrono::duration_cast<milliseconds>(Clock::now() - m_begin)));
}

void Wait::giveUp() {
    std::string reason =
        "timed out after " + seconds(limit()) + "; the service is " + stateWord(queryStatus().currentState);
    const Clock::duration silence = Clock::now() - m_lastProgress;
    if (m_seen.waitHint != 0 && silence > milliseconds(m_seen.waitHint)) reason += " and reports no progress";
    throw Failure::timedOut(m_task, reason);
}

}  // namespace kestsc
