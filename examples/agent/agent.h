// The agent: watchers whose figures are read at a timer's pace, limits that are watched, and a state that is saved
// after each sample, hosted by KestService.
//
// Threads: the sampler reads, the recorder logs, compares and saves. Both begin in startIt and have ended when stopIt
// returns; what they share is the queue between them. A reload ends them, replaces the settings and starts them again.
// startIt, stopIt and a reload exclude each other, and what the recorder changes they touch only while it does not run.
#pragma once

#include <support/service.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "crossings.h"
#include "samples.h"
#include "settings.h"
#include "state_file.h"
#include "watcher.h"

namespace agent {

class Agent : public KestSupport::KestService {
  public:
    using Load = std::function<Settings()>;

    /// `load` gives the settings, now and at each request to read them again. The file outlives the agent.
    Agent(Settings settings, Load load, const StateFile& stateFile);
    ~Agent() override;

    /// Why the run ended, when it was not asked to end; else empty.
    const std::string& failure() const { return m_failure; }
    /// Whether it has been started at all: the manager does not start a program that it did not call.
    bool hasRun() const { return m_hasRun; }

  protected:
    bool startIt(const std::string& arguments) override;
    bool stopIt() override;

  private:
    // What the threads of one set of settings share; ends them when it is destroyed.
    class Sampling;

    void makeWatchers(const Settings& former);
    void watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read);
    void logLastState() const;
    bool isDone() const;
    void startSampling();
    void reload();
    void useSettings(Settings fresh);
    Sample read() const;
    void record(const Sample& sample);
    void saveState(const std::string& status);
    void fillState(const std::string& status);

    Settings m_settings;
    const Load m_load;
    const StateFile& m_stateFile;
    StateFile::Properties m_state{false};
    Crossings m_crossings;
    std::vector<std::unique_ptr<Watcher>> m_watchers;
    int m_samples = 0;
    std::string m_unsaved;  // why the latest state could not be saved; empty when it was
    std::string m_failure;
    std::atomic<bool> m_hasRun{false};

    std::mutex m_lifeLock;  // held by startIt, stopIt and a reload; guards what follows
    bool m_over = false;
    std::unique_ptr<Sampling> m_sampling;  // null while the agent does not sample
};

}  // namespace agent
