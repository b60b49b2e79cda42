#include "agent.h"

#include <support/date_time.h>

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

// The status is kept as one word, whatever the language of its reader.
std::string shownStatus(const std::string& status) {
    return status == "running" || status == "stopped" ? say("status." + status) : printable(status);
}

// Everything in the state but the seal itself, as it stands in the file.
std::string sealedText(const StateFile::Properties& state) {
    std::string text;
    for (const auto& [name, values] : state.getProperties()) {
        if (name != kSeal) text += name + "=" + values.front() + "\n";
    }
    return text;
}

}  // namespace

Agent::Agent(const Settings& settings, const StateFile& stateFile)
    : KestService(kServiceName, kServiceName, "", "", false), m_settings(settings), m_stateFile(stateFile) {
    watch("Cpu", "cpu", say("figure.cpu"), settings.cpuLimit, MachineFigures::loadAverage);
    watch("Memory", "memory", say("figure.memory"), settings.memoryLimit, MachineFigures::memoryUsedPercent);
    for (std::size_t i = 0; i < settings.diskPaths.size(); ++i) {
        const std::string path = settings.diskPaths[i];
        const std::string property = "disk." + std::to_string(i + 1);
        m_state.setProperty(property + ".path", path);
        watch("Disk", property, say("figure.disk", {printable(path)}), settings.diskLimit,
              [path] { return MachineFigures::diskUsedPercent(path); });
    }
    watch("Process", "process", say("figure.process"), settings.processLimit, MachineFigures::processCount);
}

Agent::~Agent() {
    endThreads();
}

void Agent::watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read) {
    m_watchers.push_back(
        std::make_unique<Watcher>(std::move(module), std::move(property), std::move(figure), limit, std::move(read)));
    m_watchers.back()->addDependent(m_crossings);
}

bool Agent::startIt(const std::string&) {
    m_hasRun = true;
    logLine("", kLogSamples, say("log.watching", {std::to_string(m_settings.interval)}));
    logLastState();
    m_recorder = std::make_unique<Recorder>(m_exchange, [this](const Sample& sample) { record(sample); });
    m_recorder->start();
    m_exchange.produce(read());
    m_sampler = std::make_unique<Sampler>(m_timer, m_exchange, [this] { return read(); });
    m_sampler->start();
    m_timer.start(m_settings.interval, 0, kPeriodic);
    return true;
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
    endThreads();
    logLine("", kLogSamples, say("log.ending", {std::to_string(m_samples)}));
    if (m_failure.empty()) saveState("stopped");
    return m_failure.empty();
}

// The sampler first, which may be about to produce; the recorder then finds the end of the samples.
void Agent::endThreads() {
    m_timer.stop();
    m_sampler.reset();
    m_exchange.produceSentinel(true);
    m_recorder.reset();
}

bool Agent::isDone() const {
    return !m_failure.empty() || (m_settings.samples > 0 && m_samples >= m_settings.samples);
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

// A state that cannot be kept ends the run: it may be the recorder who finds out, so main is the one to tell.
void Agent::saveState(const std::string& status) try {
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
    m_stateFile.save(m_state);
} catch (const std::exception& failed) {
    m_failure = failed.what();
}

}  // namespace agent
