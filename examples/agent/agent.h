// The agent: a KestService that reads the figures of its watchers on a timer, compares them with their limits, and
// saves its state after each sample.
//
// Threads: the sampler reads the figures; the recorder logs them, compares them and saves the state. A queue connects
// them. startIt starts both, stopIt ends both. A reload ends them, replaces the settings and starts them again.
// startIt, stopIt and a reload exclude each other; they touch the recorder's data only while no recorder runs.
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

    /// `load` returns fresh settings at each reload. The state file outlives the agent.
    Agent(Settings settings, Load load, const StateFile& stateFile);
    ~Agent() override;

    /// Returns why the run ended; empty when it ended on request.
    const std::string& failure() const { return m_failure; }
    /// Returns whether startIt was called. The manager does not call it in a program that it did not start.
    bool hasRun() const { return m_hasRun; }

  protected:
    bool startIt(const std::string& arguments) override;
    bool stopIt() override;

  private:
    // The threads for one set of settings, and their queue. The destructor ends the threads.
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
    std::string m_unsaved;  // why the last state could not be saved; empty after a success
    std::string m_failure;
    std::atomic<bool> m_hasRun{false};

    std::mutex m_lifeLock;  // held by startIt, stopIt and a reload; guards what follows
    bool m_over = false;
    std::unique_ptr<Sampling> m_sampling;  // null while the agent does not sample
};

}  // namespace agent
