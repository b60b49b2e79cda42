#include "agent.h"

#include <support/date_time.h>
#include <support/timers.h>

#include <cstdio>
#include <exception>
#include <utility>

#include "agent_log.h"
#include "bad_input.h"
#include "machine_figures.h"
#include "messages.h"
#include "registration.h"
#include "secret.h"

namespace agent {
namespace {

constexpr bool kPeriodic = false;
const std::string kSeal = "agent.seal";

std::string now() {
    const KestSupport::KestDateTime time;
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", time.getYear(), time.getMonth(), time.getDay(),
                  time.getHour(), time.getMinute(), time.getSecond());
    return text;
}

// The state file keeps the status as the same word in every language.
std::string shownStatus(const std::string& status) {
    return status == "running" || status == "stopped" ? say("status." + status) : printable(status);
}

// Returns the text of the state file without the seal.
std::string sealedText(const StateFile::Properties& state) {
    std::string text;
    for (const auto& [name, values] : state.getProperties()) {
        if (name != kSeal) text += name + "=" + values.front() + "\n";
    }
    return text;
}

}  // namespace

class Agent::Sampling {
  public:
    Sampling(int interval, Sampler::Read read, Recorder::Record record)
        : m_recorder(m_exchange, std::move(record)), m_sampler(m_timer, m_exchange, read) {
        requireStarted(m_recorder);
        m_exchange.produce(read());
        requireStarted(m_sampler);
        m_timer.start(interval, 0, kPeriodic);
    }
    Sampling(const Sampling&) = delete;
    Sampling& operator=(const Sampling&) = delete;

  private:
    static void requireStarted(KestSupport::KestThread& thread) {
        thread.start();
        if (!thread.isAlive()) throw BadInput(say("error.thread", {thread.getName()}), say("error.noThread"));
    }

    // The members are destroyed in reverse order: the sampler ends, which may still produce a sample; then m_ending
    // drops the remaining samples and closes the exchange; then the recorder finds it closed and ends.
    struct Ending {
        SampleExchange& exchange;
        ~Ending() { exchange.produceSentinel(true); }
    };
    KestSupport::KestTimer m_timer;
    SampleQueue m_queue;
    SampleExchange m_exchange{m_queue};
    Recorder m_recorder;
    Ending m_ending{m_exchange};
    Sampler m_sampler;
};

Agent::Agent(Settings settings, Load load, const StateFile& stateFile)
    : KestService(kServiceName, kServiceName, "", "", false),
      m_settings(std::move(settings)),
      m_load(std::move(load)),
      m_stateFile(stateFile) {
    makeWatchers(m_settings);
    acceptReload([this] { reload(); });
}

Agent::~Agent() = default;

// A new watcher takes the value and the crossings of the former watcher of the same figure.
void Agent::makeWatchers(const Settings& former) {
    const auto formerWatchers = std::exchange(m_watchers, {});
    m_state = StateFile::Properties(false);
    if (MachineFigures::hasLoadAverage())
        watch("Cpu", "cpu", say("figure.cpu"), m_settings.cpuLimit, MachineFigures::loadAverage);
    watch("Memory", "memory", say("figure.memory"), m_settings.memoryLimit, MachineFigures::memoryUsedPercent);
    for (std::size_t i = 0; i < m_settings.diskPaths.size(); ++i) {
        const std::string path = m_settings.diskPaths[i];
        const std::string property = "disk." + std::to_string(i + 1);
        m_state.setProperty(property + ".path", path);
        watch("Disk", property, say("figure.disk", {printable(path)}), m_settings.diskLimit,
              [path] { return MachineFigures::diskUsedPercent(path); });
    }
    watch("Process", "process", say("figure.process"), m_settings.processLimit, MachineFigures::processCount);

    const bool sameDisks = former.diskPaths == m_settings.diskPaths;
    for (const auto& watcher : m_watchers) {
        for (const auto& old : formerWatchers) {
            if (old->property() == watcher->property() && (sameDisks || watcher->module() != "Disk")) {
                watcher->continueFrom(*old);
            }
        }
    }
    for (const auto& old : formerWatchers) {
        if (!sameDisks && old->module() == "Disk") m_crossings.forget(*old);
    }
}

void Agent::watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read) {
    m_watchers.push_back(
        std::make_unique<Watcher>(std::move(module), std::move(property), std::move(figure), limit, std::move(read)));
    m_watchers.back()->addDependent(m_crossings);
}

bool Agent::startIt(const std::string&) {
    const std::lock_guard guard(m_lifeLock);
    m_hasRun = true;
    logLine("", kLogSamples, say("log.watching", {std::to_string(m_settings.interval)}));
    logLastState();
    startSampling();
    return true;
}

void Agent::startSampling() {
    m_sampling = std::make_unique<Sampling>(
        m_settings.interval, [this] { return read(); }, [this](const Sample& sample) { record(sample); });
}

// Settings with an error change nothing. The threads end first, because they use the language, which a reload may
// change. Before startIt a reload starts no threads; after stopIt it does nothing.
void Agent::reload() {
    const std::lock_guard guard(m_lifeLock);
    if (m_over) return;
    KestSupport::KestLogging::getInstance().reopen();
    const bool sampling = m_sampling != nullptr;
    m_sampling.reset();
    try {
        useSettings(m_load());
        logLine("", kLogSamples, say("log.reloaded", {std::to_string(m_settings.interval)}));
    } catch (...) {
        const std::string reason = caughtReason();
        m_settings.language.empty() ? speakTheUsersLanguage() : static_cast<void>(speak(m_settings.language));
        logLine("", kLogWarnings, say("log.notReloaded", {reason}));
    }
    if (!sampling) return;
    try {
        startSampling();
    } catch (...) {
        m_failure = caughtReason();
        stop();
    }
}

// One run keeps its log and its state file, so that its records are in one place.
void Agent::useSettings(Settings fresh) {
    for (const auto& [name, member] :
         {std::pair{"state.file", &Settings::stateFile}, {"log.file", &Settings::logFile}}) {
        if (fresh.*member != m_settings.*member) logLine("", kLogWarnings, say("log.nextStart", {name}));
        fresh.*member = m_settings.*member;
    }
    for (const auto& [name, member] :
         {std::pair{"log.console", &Settings::logToConsole}, {"log.daily", &Settings::logDaily}}) {
        if (fresh.*member != m_settings.*member) logLine("", kLogWarnings, say("log.nextStart", {name}));
    }
    for (const auto& [name, member] : {std::pair{"log.size", &Settings::logSize}, {"log.keep", &Settings::logKeep}}) {
        if (fresh.*member != m_settings.*member) logLine("", kLogWarnings, say("log.nextStart", {name}));
    }
    if (fresh.language.empty()) speakTheUsersLanguage();
    const Settings former = std::exchange(m_settings, std::move(fresh));
    makeWatchers(former);
    useLogLevels(m_settings);
}

void Agent::logLastState() const {
    const StateFile::Properties& last = m_stateFile.last();
    std::string status;
    if (!last.getPropertyValue(StateFile::kStatus, status)) return;
    logLine("", kLogSamples,
            say("log.last", {last.getProperty("agent.time", say("log.last.never")), shownStatus(status),
                             last.getProperty("agent.samples", "0")}));
    if (!m_settings.secret.empty() && last.getProperty(kSeal, "") != sealOf(sealedText(last), m_settings.secret)) {
        logLine("", kLogWarnings, say("log.altered"));
    }
}

bool Agent::stopIt() {
    const std::lock_guard guard(m_lifeLock);
    m_over = true;
    m_sampling.reset();
    logLine("", kLogSamples, say("log.ending", {std::to_string(m_samples)}));
    if (m_failure.empty()) {
        saveState("stopped");
        m_failure = m_unsaved;
    }
    return m_failure.empty();
}

bool Agent::isDone() const {
    return m_settings.samples > 0 && m_samples >= m_settings.samples;
}

Sample Agent::read() const {
    Sample sample;
    for (const auto& watcher : m_watchers)
        sample.push_back(watcher->read());
    return sample;
}

void Agent::record(const Sample& sample) {
    if (isDone()) return;
    for (std::size_t i = 0; i < sample.size(); ++i)
        m_watchers[i]->take(sample[i]);
    ++m_samples;
    saveState("running");
    if (isDone()) stop();
}

// A full disk may have room at the next sample. So a state that cannot be saved is logged, once for each reason, and
// the agent continues. Only a failure to save the last state is a failure of the run.
void Agent::saveState(const std::string& status) {
    std::string reason;
    try {
        fillState(status);
        m_stateFile.save(m_state);
    } catch (...) {
        reason = caughtReason();
    }
    if (reason == m_unsaved) return;
    m_unsaved = reason;
    logLine("", kLogWarnings, reason.empty() ? say("log.savedAgain") : say("log.unsaved", {printable(reason)}));
}

void Agent::fillState(const std::string& status) {
    m_state.setProperty(StateFile::kStatus, status);
    m_state.setProperty("agent.samples", std::to_string(m_samples));
    m_state.setProperty("agent.time", now());
    for (const auto& watcher : m_watchers) {
        const std::string& name = watcher->property();
        m_state.setProperty(name + ".value", watcher->value() ? figureText(*watcher->value()) : "unknown");
        m_state.setProperty(name + ".limit", figureText(watcher->limit()));
        m_state.setProperty(name + ".above", watcher->isAbove() ? "yes" : "no");
        m_state.setProperty(name + ".rises", std::to_string(m_crossings.risesOf(*watcher)));
    }
    if (!m_settings.secret.empty()) m_state.setProperty(kSeal, sealOf(sealedText(m_state), m_settings.secret));
}

}  // namespace agent
