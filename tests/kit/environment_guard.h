// Sets environment variables during a test and restores them at the end. Not while other threads run.
#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace kit {

class EnvironmentGuard {
  public:
    EnvironmentGuard() = default;
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;
    ~EnvironmentGuard() {
        for (const auto& [name, value] : m_saved)
            put(name, value);
    }

    /// Removes the variable when there is no value.
    void set(const std::string& name, const std::optional<std::string>& value) {
        const char* current = std::getenv(name.c_str());
        m_saved.emplace(name, current == nullptr ? std::nullopt : std::optional<std::string>(current));
        put(name, value);
    }

    /// Makes `locale` the locale of the environment.
    void setLocale(const std::string& locale) {
        set("LC_ALL", std::nullopt);
        set("LC_CTYPE", std::nullopt);
        set("LANG", locale);
    }

  private:
    static void put(const std::string& name, const std::optional<std::string>& value);

    std::map<std::string, std::optional<std::string>> m_saved;
};

/// Sets the time zone: a name such as "Europe/Berlin", or a rule such as "CET-1CEST,M3.5.0,M10.5.0/3" without zone
/// files.
struct TimeZoneGuard : EnvironmentGuard {
    explicit TimeZoneGuard(const std::string& zone) { set("TZ", zone); }
};

}  // namespace kit
