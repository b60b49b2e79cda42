#include "agent.h"

#include <support/date_time.h>

#include <cstdio>
#include <exception>
#include <utility>

#include "agent_log.h"
#include "bad_input.h"
#include "machine_figures.h"

namespace agent {
namespace {

constexpr bool kPeriodic = false;

std::string now() {
    const KestSupport::KestDateTime time;
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", time.getYear(), time.getMonth(), time.getDay(),
                  time.getHour(), time.getMinute(), time.getSecond());
    return text;
}

}  // namespace

Agent::Agent(const Settings& settings, const StateFile& stateFile)
    : KestService("kest-agent", "kest-agent", "Kest management agent", "", false),
      m_settings(settings),
      m_stateFile(stateFile) {
    watch("Cpu", "cpu", "load average", settings.cpuLimit, MachineFigures::loadAverage);
    watch("Memory", "memory", "memory in use (%)", settings.memoryLimit, MachineFigures::memoryUsedPercent);
    for (std::size_t i = 0; i < settings.diskPaths.size(); ++i) {
        const std::string path = settings.diskPaths[i];
        const std::string property = "disk." + std::to_string(i + 1);
        m_state.setProperty(property + ".path", path);
        watch("Disk", property, "file system of " + printable(path) + " in use (%)", settings.diskLimit,
              [path] { return MachineFigures::diskUsedPercent(path); });
    }
    watch("Process", "process", "processes", settings.processLimit, MachineFigures::processCount);
    m_timer.addDependent(*this);
}

Agent::~Agent() {
    m_timer.stop();
    m_timer.removeDependent(*this);
}

void Agent::watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read) {
    m_watchers.push_back(
        std::make_unique<Watcher>(std::move(module), std::move(property), std::move(figure), limit, std::move(read)));
    m_watchers.back()->addDependent(m_crossings);
}

bool Agent::startIt(const std::string&) {
    logLine("", kLogSamples, "kest-agent: watching, a sample every " + std::to_string(m_settings.interval) + " s");
    logLastState();
    takeSample();
    if (!isDone()) m_timer.start(m_settings.interval, 0, kPeriodic);
    return true;
}

void Agent::logLastState() const {
    const StateFile::Properties& last = m_stateFile.last();
    std::string status;
    if (!last.getPropertyValue(StateFile::kStatus, status)) return;
    logLine("", kLogSamples,
            "kest-agent: last seen " + last.getProperty("agent.time", "at an unknown time") + ", " + status +
                " after " + last.getProperty("agent.samples", "0") + " samples");
}

bool Agent::stopIt() {
    m_timer.stop();
    logLine("", kLogSamples, "kest-agent: ending after " + std::to_string(m_samples) + " samples");
    if (m_failure.empty()) saveState("stopped");
    return m_failure.empty();
}

void Agent::handleNotification(KestSupport::KestCollaborator&, const KestSupport::KestNotification&) {
    if (!isDone()) takeSample();
}

bool Agent::isDone() const {
    return !m_failure.empty() || (m_settings.samples > 0 && m_samples >= m_settings.samples);
}

void Agent::takeSample() {
    for (const auto& watcher : m_watchers)
        watcher->sample();
    ++m_samples;
    saveState("running");
    if (isDone()) stop();
}

// A state that cannot be kept ends the run: it may be on the timer's thread, so main is the one to tell.
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
    m_stateFile.save(m_state);
} catch (const std::exception& failed) {
    m_failure = failed.what();
}

}  // namespace agent
