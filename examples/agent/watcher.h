// A watcher reads one figure for each sample and notifies its dependents when the figure crosses its limit.
#pragma once

#include <support/observer.h>

#include <functional>
#include <optional>
#include <string>

namespace agent {

/// A figure has risen above its limit, or has fallen to it or below.
class LimitCrossed : public KestSupport::KestNotification {
  public:
    explicit LimitCrossed(bool above) : m_above(above) {}

    bool isAbove() const { return m_above; }

  private:
    bool m_above;
};

class Watcher : public KestSupport::KestCollaborator {
  public:
    using Read = std::function<std::optional<double>()>;

    /// `module` is its name in the log, `figure` its description; `property` is the prefix of its names in the state
    /// file.
    Watcher(std::string module, std::string property, std::string figure, double limit, Read read);

    /// Returns the current figure; nothing when the system does not report it. May run concurrently with take.
    std::optional<double> read() const { return m_read(); }
    /// Logs a figure and notifies of a crossing, on the calling thread.
    void take(std::optional<double> value);

    /// Copies the state of the former watcher of the same figure, so that a crossing is not announced twice.
    void continueFrom(const Watcher& former) {
        m_value = former.m_value;
        m_above = former.m_above;
    }

    const std::string& module() const { return m_module; }
    const std::string& property() const { return m_property; }
    const std::string& figure() const { return m_figure; }
    double limit() const { return m_limit; }
    /// The last value; nothing before the first sample, and when the system did not report it.
    std::optional<double> value() const { return m_value; }
    bool isAbove() const { return m_above; }

  private:
    std::string m_module;
    std::string m_property;
    std::string m_figure;
    double m_limit;
    Read m_read;
    std::optional<double> m_value;
    bool m_above = false;
};

}  // namespace agent
