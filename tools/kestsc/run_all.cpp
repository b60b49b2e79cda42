// The command run-all: starts the automatic services, starts services again that end, stops all at the end.
#include <algorithm>
#include <chrono>
#include <map>
#include <optional>

#include "command_line.h"
#include "platform/interruption.h"
#include "platform/orphans.h"
#include "platform/supervisor.h"
#include "report.h"
#include "text.h"
#include "transition.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kLook{250};  // between two looks at the services
constexpr milliseconds kShortestDelay{500};
constexpr milliseconds kLongestDelay{60'000};
constexpr milliseconds kGoodRun{60'000};  // a run of this length resets the delay

// What is known of one service.
struct Care {
    bool isActive = false;
    bool isEndSeen = false;   // while it is active: the last look has found it stopped
    Clock::time_point since;  // the first look at which it was active
    milliseconds delay{0};    // before the last start
    std::optional<Clock::time_point> due;
};

class Supervisor {
  public:
    explicit Supervisor(const Manager& manager) : m_manager(manager) {}

    /// Starts the automatic services. Throws Interrupted.
    void begin(const Patience& patience) {
        Report starts(false);  // the failures are not those of this program
        for (const std::string& name : startAutomatic(m_manager, patience, starts))
            m_failed.push_back(name);
        for (const platform::ServiceEntry& entry : m_manager.list(m_all)) {
            if (isActive(entry.status)) notice(m_cares[entry.name]);
        }
        for (const std::string& name : m_failed)
            plan(name, m_cares[name], true);
    }

    /// Looks once at each service. Throws Interrupted.
    void look() {
        const std::vector<platform::ServiceEntry> entries = m_manager.list(m_all);
        noteEnds(entries);
        std::map<std::string, Care> cares;
        for (const platform::ServiceEntry& entry : entries) {
            const auto known = m_cares.find(entry.name);
            Care& care = cares[entry.name] = known == m_cares.end() ? Care() : known->second;
            if (entry.error != 0) continue;
            if (isActive(entry.status)) {
                if (!care.isActive) notice(care);
                care.due.reset();
                care.isEndSeen = false;
                continue;
            }
            if (care.isActive && !isResultPending(entry, care)) end(entry, care);
            if (care.due && *care.due <= Clock::now()) restart(entry.name, care);
        }
        m_cares = std::move(cares);
    }

    std::string summary() const {
        std::size_t active = 0;
        for (const auto& [name, care] : m_cares)
            active += care.isActive ? 1 : 0;
        return std::to_string(active) + (active == 1 ? " service runs" : " services run");
    }

  private:
    static bool isActive(const ServiceStatus& status) { return status.currentState != platform::kServiceStopped; }

    static void notice(Care& care) {
        care.isActive = true;
        care.since = Clock::now();
    }

    // The system closes the files of a process before it reports the end to the parent. So the result of a process may
    // follow at the next look.
    bool isResultPending(const platform::ServiceEntry& entry, Care& care) const {
        if (care.isEndSeen || entry.status.exitCode != platform::errorProcessAborted) return false;
        care.isEndSeen = true;
        return !m_manager.runOf(entry.name).exitCode;
    }

    static void tell(const std::string& name, const std::string& news) {
        Report(false).print(printable(name) + ": " + news + '\n');
    }

    // Notes the results of the processes that have ended. Only their parent receives them.
    void noteEnds(const std::vector<platform::ServiceEntry>& entries) const {
        const std::vector<platform::EndedProcess> ended = platform::reapChildren();
        if (ended.empty()) return;
        std::map<std::uint32_t, std::string> services;
        for (const platform::ServiceEntry& entry : entries)
            services[m_manager.runOf(entry.name).processId] = entry.name;
        for (const platform::EndedProcess& each : ended) {
            const auto found = services.find(each.id);
            if (found != services.end()) noteEnd(found->second, each);
        }
    }

    void noteEnd(const std::string& name, const platform::EndedProcess& ended) const {
        try {
            const SharedHandle service = m_manager.open({"run-all", name}, platform::kServiceStop);
            require({"run-all", name},
                    platform::serviceManager().noteProcessEnd(service.get(), ended.id, ended.exitCode));
        } catch (const Failure& failure) {
            complain(failure.what());
        }
    }

    void end(const platform::ServiceEntry& entry, Care& care) {
        care.isActive = false;
        if (Clock::now() - care.since >= kGoodRun) care.delay = milliseconds(0);
        const ServiceRun run = m_manager.runOf(entry.name);
        tell(entry.name, "ended: " + endText(entry.status, run));
        if (!run.endRequested) plan(entry.name, care, entry.status.exitCode != 0);
    }

    // Plans the next start of a service that has ended or could not be started.
    void plan(const std::string& name, Care& care, bool hasFailed) {
        try {
            const platform::ServiceConfiguration registered = m_manager.configurationOf({"run-all", name});
            const bool always = registered.restart == platform::kServiceRestartAlways;
            const bool onFailure = registered.restart == platform::kServiceRestartOnFailure;
            if (registered.startType == platform::kServiceDisabled || !(always || (onFailure && hasFailed))) return;
        } catch (const Failure& failure) {
            complain(failure.what());
            return;
        }
        care.delay = std::clamp(2 * care.delay, kShortestDelay, kLongestDelay);
        care.due = Clock::now() + care.delay;
        tell(name, "starts again in " + std::to_string(care.delay.count()) + " ms");
    }

    // Does not wait until the service runs, since the others need care too.
    void restart(const std::string& name, Care& care) {
        care.due.reset();
        Patience patience;
        patience.waits = false;
        try {
            const std::string outcome = startService(m_manager, {"start", name}, {}, patience);
            tell(name, outcome);
            // It may end before the next look.
            if (!care.isActive) notice(care);
        } catch (const Interrupted&) {
            throw;
        } catch (const Failure& failure) {
            complain(failure.what());
            plan(name, care, true);
        }
    }

    const Manager& m_manager;
    const Task m_all{"run-all", ""};
    std::map<std::string, Care> m_cares;  // by the service's name
    std::vector<std::string> m_failed;
};

// Returns the failure of a look at the services, or an empty text.
std::string lookOnce(Supervisor& supervisor) {
    try {
        supervisor.look();
        return "";
    } catch (const Interrupted&) {
        throw;
    } catch (const Failure& failure) {
        return failure.what();
    }
}

// Returns when this program is asked to end.
void supervise(const Manager& manager, const Patience& patience, platform::Interruption& requests) {
    Supervisor supervisor(manager);
    try {
        supervisor.begin(patience);
        std::string told;
        std::string trouble;  // that is reported already
        do {
            const std::string failure = lookOnce(supervisor);
            if (!failure.empty() && failure != trouble) complain(failure);
            trouble = failure;
            const std::string summary = supervisor.summary();
            const bool isReady = !told.empty();
            if (summary != told) {
                platform::tellSupervisor(isReady ? platform::SupervisorNews::progress : platform::SupervisorNews::ready,
                                         summary);
            }
            told = summary;
        } while (requests.wait(static_cast<std::uint32_t>(kLook.count())) == 0);
    } catch (const Interrupted& interrupted) {
        complain(interrupted.what());
    }
}

}  // namespace

void runAll(const CommandLine& line, Report& report) {
    const Task all{"run-all", ""};
    platform::Interruption requests;
    if (!platform::adoptOrphans()) throw Failure(all, platform::errorCallNotImplemented);
    const Manager manager(all);
    supervise(manager, line.patience, requests);
    platform::tellSupervisor(platform::SupervisorNews::stopping, "Stopping all services");
    stopAll(line, report);
    platform::reapChildren();
    // A second request does not end this program by its signal after the work is done.
    while (requests.wait(0) != 0) {
    }
}

}  // namespace kestsc
