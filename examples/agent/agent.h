// The agent: watchers whose figures are read at a timer's pace, limits that are watched, and a state that is saved
// after each sample, hosted by KestService.
//
// Threads: the sampler reads, the recorder logs, compares and saves. Both begin in startIt and have ended when stopIt
// returns; what they share is the queue between them. The host's own thread touches the state before and after.
#pragma once

#include <support/service.h>
#include <support/timers.h>

#include <atomic>
#include <memory>
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
    /// Both outlive the agent.
    Agent(const Settings& settings, const StateFile& stateFile);
    ~Agent() override;

    /// Why the run ended, when it was not asked to end; else empty.
    const std::string& failure() const { return m_failure; }
    /// Whether it has been started at all: the manager does not start a program that it did not call.
    bool hasRun() const { return m_hasRun; }

  protected:
    bool startIt(const std::string& arguments) override;
    bool stopIt() override;

  private:
    void watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read);
    void logLastState() const;
    bool isDone() const;
    void endThreads();
    Sample read() const;
    void record(const Sample& sample);
    void saveState(const std::string& status);

    const Settings& m_settings;
    const StateFile& m_stateFile;
    StateFile::Properties m_state{false};
    Crossings m_crossings;
    std::vector<std::unique_ptr<Watcher>> m_watchers;
    int m_samples = 0;
    std::string m_failure;
    std::atomic<bool> m_hasRun{false};

    KestSupport::KestTimer m_timer;
    SampleQueue m_queue;
    SampleExchange m_exchange{m_queue};
    std::unique_ptr<Recorder> m_recorder;
    std::unique_ptr<Sampler> m_sampler;
};

}  // namespace agent
