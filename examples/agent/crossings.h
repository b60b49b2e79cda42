// Who is told of crossings: they are logged, and counted for the state file.
#pragma once

#include <support/observer.h>

#include <map>

#include "watcher.h"

namespace agent {

class Crossings : public KestSupport::KestDependent {
  public:
    void handleNotification(KestSupport::KestCollaborator& sender,
                            const KestSupport::KestNotification& notification) override;

    /// How often the watcher's figure has risen above its limit.
    int risesOf(const Watcher& watcher) const;

  private:
    std::map<const KestSupport::KestCollaborator*, int> m_rises;
};

}  // namespace agent
