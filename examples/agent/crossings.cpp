#include "crossings.h"

#include "agent_log.h"

namespace agent {

void Crossings::handleNotification(KestSupport::KestCollaborator& sender,
                                   const KestSupport::KestNotification& notification) {
    const auto* const crossing = dynamic_cast<const LimitCrossed*>(&notification);
    const auto* const watcher = dynamic_cast<const Watcher*>(&sender);
    if (crossing == nullptr || watcher == nullptr) return;
    if (crossing->isAbove()) ++m_rises[watcher];
    const std::string figure = watcher->figure() + (crossing->isAbove() ? " has risen to " : " has come back to ") +
                               figureText(watcher->value().value_or(0));
    logLine(watcher->module(), kLogWarnings,
            figure + (crossing->isAbove() ? ", above its limit of " : ", within its limit of ") +
                figureText(watcher->limit()));
}

int Crossings::risesOf(const Watcher& watcher) const {
    const auto found = m_rises.find(&watcher);
    return found == m_rises.end() ? 0 : found->second;
}

}  // namespace agent
