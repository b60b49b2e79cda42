#include "watcher.h"

#include <utility>

#include "agent_log.h"
#include "messages.h"

namespace agent {

Watcher::Watcher(std::string module, std::string property, std::string figure, double limit, Read read)
    : m_module(std::move(module)),
      m_property(std::move(property)),
      m_figure(std::move(figure)),
      m_limit(limit),
      m_read(std::move(read)) {}

void Watcher::take(std::optional<double> value) {
    m_value = value;
    if (!m_value) {
        logLine(m_module, kLogWarnings, say("log.unreadable", {m_figure}));
        return;
    }
    logLine(m_module, kLogSamples, say("log.figure", {m_figure, figureText(*m_value), figureText(m_limit)}));
    const bool above = *m_value > m_limit;
    if (above == m_above) return;
    m_above = above;
    notify(LimitCrossed(above));
}

}  // namespace agent
