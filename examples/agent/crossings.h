// Who is told of crossings: they are logged, and counted for the state file.
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

    /// How often the watcher's figure has risen above its limit.
    int risesOf(const Watcher& watcher) const;

    /// Counts for the watcher's property begin at 0 again.
    void forget(const Watcher& watcher) { m_rises.erase(watcher.property()); }

  private:
    std::map<std::string, int> m_rises;  // by property
};

}  // namespace agent
