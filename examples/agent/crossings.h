// The observer of the watchers. It logs each crossing and counts it for the state file.
#pragma once

#include <support/observer.h>

#include <map>
#include <string>

#include "watcher.h"

namespace agent {

class Crossings : public KestSupport::KestDependent {
  public:
    void handleNotification(KestSupport::KestCollaborator& sender,
                            const KestSupport::KestNotification& notification) override;

    /// Returns how often the watcher's figure has risen above its limit.
    int risesOf(const Watcher& watcher) const;

    /// Resets the count of the watcher's property to 0.
    void forget(const Watcher& watcher) { m_rises.erase(watcher.property()); }

  private:
    std::map<std::string, int> m_rises;  // by property
};

}  // namespace agent
