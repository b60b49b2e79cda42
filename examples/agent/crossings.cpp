#include "crossings.h"

#include "agent_log.h"
#include "messages.h"

namespace agent {

void Crossings::handleNotification(KestSupport::KestCollaborator& sender,
                                   const KestSupport::KestNotification& notification) {
    const auto* const crossing = dynamic_cast<const LimitCrossed*>(&notification);
    const auto* const watcher = dynamic_cast<const Watcher*>(&sender);
    if (crossing == nullptr || watcher == nullptr) return;
    if (crossing->isAbove()) ++m_rises[watcher->property()];
    logLine(watcher->module(), kLogWarnings,
            say(crossing->isAbove() ? "log.risen" : "log.back",
                {watcher->figure(), figureText(watcher->value().value_or(0)), figureText(watcher->limit())}));
}

int Crossings::risesOf(const Watcher& watcher) const {
    const auto found = m_rises.find(watcher.property());
    return found == m_rises.end() ? 0 : found->second;
}

}  // namespace agent
