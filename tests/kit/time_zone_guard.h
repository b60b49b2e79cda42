// Sets the time zone of the process for the length of a scope. No other thread may use dates while one is made or ends.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace KestTest {

class TimeZoneGuard {
  public:
    /// A value of the environment variable TZ, such as "Europe/Berlin", or a rule such as "CET-1CEST,M3.5.0,M10.5.0/3",
    /// which needs no zone files.
    explicit TimeZoneGuard(const std::string& zone) {
        if (const char* before = std::getenv("TZ")) m_before = before;
        setenv("TZ", zone.c_str(), 1);
        tzset();
    }
    ~TimeZoneGuard() {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    TimeZoneGuard(const TimeZoneGuard&) = delete;
    TimeZoneGuard& operator=(const TimeZoneGuard&) = delete;

  private:
    std::optional<std::string> m_before;
};

}  // namespace KestTest
