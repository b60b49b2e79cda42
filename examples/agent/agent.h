// The agent: watchers that are sampled at a timer's pace, and a state that is saved after each sample, hosted by
// KestService in console mode.
//
// Threads: startIt and stopIt run on main's thread, samples on the timer's, one at a time; the first sample is taken
// before the timer starts, and the last has returned when stopIt goes on, since stopping a timer waits for it.
#pragma once

#include <support/observer.h>
#include <support/service.h>
#include <support/timers.h>

#include <memory>
#include <string>
#include <vector>

#include "crossings.h"
#include "settings.h"
#include "state_file.h"
#include "watcher.h"

namespace agent {

class Agent : public KestSupport::KestService, private KestSupport::KestDependent {
  public:
    /// Both outlive the agent.
    Agent(const Settings& settings, const StateFile& stateFile);
    ~Agent() override;

    /// Why the run ended, when it was not asked to end; else empty.
    const std::string& failure() const { return m_failure; }

  protected:
    bool startIt(const std::string& arguments) override;
    bool stopIt() override;

  private:
    void handleNotification(KestSupport::KestCollaborator& timer,
                            const KestSupport::KestNotification& notification) override;
    void watch(std::string module, std::string property, std::string figure, double limit, Watcher::Read read);
    void logLastState() const;
    bool isDone() const;
    void takeSample();
    void saveState(const std::string& status);

    const Settings& m_settings;
    const StateFile& m_stateFile;
    StateFile::Properties m_state{false};
    Crossings m_crossings;
    std::vector<std::unique_ptr<Watcher>> m_watchers;
    KestSupport::KestTimer m_timer;
    int m_samples = 0;
    std::string m_failure;
};

}  // namespace agent
