// Dates as instants, in UTC and in RFC 3339.
#include <support/date_time.h>
#include <support/exceptions.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <optional>

#include "values/date/civil_time.h"
#include "values/date/date_text.h"
#include "values/date/local_zone.h"

namespace KestSupport {
namespace {

using internal::LocalMoment;

// Reads a text from its front. After the first item that is missing, nothing else matches.
class Items {
  public:
    explicit Items(std::string_view text) : m_rest(text) {}

    bool isWhole() const { return m_matches && m_rest.empty(); }

    int number(std::size_t digits, int least, int most) {
        int value = 0;
        for (; digits > 0; --digits)
            value = value * 10 + digit();
        m_matches = m_matches && least <= value && value <= most;
        return value;
    }
    // Returns the character, which is one of the choices.
    char one(std::string_view choices) {
        const char found = m_rest.empty() ? '\0' : m_rest.front();
        m_matches = m_matches && !m_rest.empty() && choices.find(found) != std::string_view::npos;
        if (m_matches) m_rest.remove_prefix(1);
        return found;
    }
    void fraction() {
        if (!m_rest.starts_with('.')) return;
        one(".");
        digit();
        const std::size_t end = m_rest.find_first_not_of(kDigits);
        m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end);
    }

  private:
    static constexpr std::string_view kDigits = "0123456789";

    int digit() { return one(kDigits) - '0'; }

    std::string_view m_rest;
    bool m_matches = true;
};

// Returns the seconds since 1970; nothing if the text does not follow the format.
std::optional<std::int64_t> instantOf(std::string_view text) {
    Items items(text);
    std::tm fields{};
    fields.tm_year = items.number(4, 0, 9999) - 1900;
    items.one("-");
    fields.tm_mon = items.number(2, 1, 12) - 1;
    items.one("-");
    fields.tm_mday = items.number(2, 1, 31);
    items.one("Tt ");
    fields.tm_hour = items.number(2, 0, 23);
    items.one(":");
    fields.tm_min = items.number(2, 0, 59);
    items.one(":");
    const int second = items.number(2, 0, 60);
    items.fraction();
    int offset = 0;
    if (const char sign = items.one("Zz+-"); sign == '+' || sign == '-') {
        const int hours = items.number(2, 0, 23);
        items.one(":");
        const int minutes = items.number(2, 0, 59);
        offset = (hours * 60 + minutes) * (sign == '+' ? 60 : -60);
    }
    if (!items.isWhole() || !internal::isCalendarTime(fields)) return std::nullopt;
    return internal::civilSeconds(fields) + second - offset;
}

std::string textOf(std::int64_t civil, const char* offset) {
    const std::tm fields = internal::brokenDown(civil, 0);
    std::array<char, 64> text;
    const int length =
        std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d%s", fields.tm_year + 1900,
                      fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, offset);
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace

// A stamp for each result, like for each default construction.
KestDateTime::KestDateTime(const std::tm& fields, unsigned int stamps) {
    store(fields);
    adjustInstanceId(stamps);
}

KestDateTime KestDateTime::fromTime(std::int64_t secondsSince1970) {
    const std::optional<LocalMoment> moment = internal::momentOfInstant(secondsSince1970);
    if (!moment) throw KestInvalidDateException(internal::kNotADate);
    return KestDateTime(internal::brokenDown(moment->civil, moment->daylightSaving), 1);
}

KestDateTime KestDateTime::fromTimePoint(std::chrono::system_clock::time_point instant) {
    return fromTime(std::chrono::floor<std::chrono::seconds>(instant).time_since_epoch().count());
}

KestDateTime KestDateTime::fromRfc3339(std::string_view text) {
    const std::optional<std::int64_t> instant = instantOf(text);
    if (!instant) throw KestInvalidDateException("Incorrect RFC3339 DateTime format");
    return fromTime(*instant);
}

KestDateTime KestDateTime::fromUtc(const std::tm& fields) {
    if (!internal::isCalendarTime(fields)) throw KestInvalidDateException(internal::kNotADate);
    return fromTime(internal::civilSeconds(fields));
}

std::int64_t KestDateTime::instant() const {
    const std::int64_t instant = getTime();
    if (instant < 0) throw KestInvalidDateException(internal::kNotADate);
    return instant;
}

std::chrono::system_clock::time_point KestDateTime::toTimePoint() const {
    using std::chrono::seconds;
    using TimePoint = std::chrono::system_clock::time_point;
    constexpr std::int64_t kLatest = std::chrono::floor<seconds>(TimePoint::max()).time_since_epoch().count();
    const std::int64_t sinceEpoch = instant();
    if (sinceEpoch > kLatest) throw KestInvalidDateException(internal::kNotADate);
    return TimePoint(seconds(sinceEpoch));
}

std::tm KestDateTime::toUtc() const {
    return internal::brokenDown(instant(), 0);
}

std::string KestDateTime::toRfc3339Utc() const {
    return textOf(instant(), "Z");
}

std::string KestDateTime::toRfc3339() const {
    const std::optional<LocalMoment> moment = internal::momentOfFields(storedFields());
    if (!moment) throw KestInvalidDateException(internal::kNotADate);
    const std::int64_t minutes = (moment->civil - moment->instant) / 60;
    const int magnitude = static_cast<int>(minutes < 0 ? -minutes : minutes);
    std::array<char, 16> offset;
    std::snprintf(offset.data(), offset.size(), "%c%02d:%02d", minutes < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
    return textOf(moment->instant + minutes * 60, offset.data());
}

}  // namespace KestSupport
