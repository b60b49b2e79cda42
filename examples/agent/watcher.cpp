#include "watcher.h"

#include <utility>

#include "agent_log.h"

namespace agent {

Watcher::Watcher(std::string module, std::string property, std::string figure, double limit, Read read)
    : m_module(std::move(module)),
      m_property(std::move(property)),
      m_figure(std::move(figure)),
      m_limit(limit),
      m_read(std::move(read)) {}

void Watcher::sample() {
    m_value = m_read();
    if (!m_value) {
        logLine(m_module, kLogWarnings, m_figure + " cannot be read");
        return;
    }
    logLine(m_module, kLogSamples, m_figure + " " + figureText(*m_value) + " (limit " + figureText(m_limit) + ")");
    const bool above = *m_value > m_limit;
    if (above == m_above) return;
    m_above = above;
    notify(LimitCrossed(above));
}

}  // namespace agent
