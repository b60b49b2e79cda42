#include <support/date_time.h>
#include <support/locales.h>

#include <cstddef>
#include <ctime>
#include <ios>
#include <iterator>
#include <locale>
#include <optional>
#include <streambuf>
#include <string>
#include <typeinfo>
#include <utility>

#include "platform/local_time.h"
#include "platform/process_memory.h"
#include "platform/uninterrupted.h"
#include "text/strings/wide_characters.h"
#include "values/date/civil_time.h"
#include "values/date/local_zone.h"

namespace KestSupport {
namespace {

constexpr unsigned short kDateAndTime[] = {'%', 'c', 0};
constexpr unsigned short kDate[] = {'%', 'x', 0};
constexpr unsigned short kTime[] = {'%', 'X', 0};
constexpr unsigned short kWeekday[] = {'%', 'A', 0};
constexpr unsigned short kMonth[] = {'%', 'B', 0};

/// Collects wide characters as 16-bit units. A string stream does the same at several times the cost.
class UnitCollector : public std::wstreambuf {
  public:
    UnitCollector() { setp(m_buffer, m_buffer + std::size(m_buffer)); }

    wstring16 take() {
        flush();
        return std::move(m_units);
    }

  protected:
    int_type overflow(int_type character) override {
        flush();
        if (!traits_type::eq_int_type(character, traits_type::eof())) sputc(traits_type::to_char_type(character));
        return traits_type::not_eof(character);
    }

  private:
    void flush() {
        m_units.reserve(m_units.size() + static_cast<std::size_t>(pptr() - pbase()));
        for (const wchar_t* next = pbase(); next != pptr(); ++next)
            append(*next);
        setp(m_buffer, m_buffer + std::size(m_buffer));
    }

    void append(wchar_t character) {
        unsigned short units[2];
        m_units.append(units, internal::unitsOf(character, units));
    }

    wchar_t m_buffer[64];
    wstring16 m_units;
};

wstring16 formatTime(const std::locale& locale, std::wios& state, const std::tm& fields,
                     const unsigned short* pattern) {
    const auto& facet = std::use_facet<std::time_put<wchar_t>>(locale);
    const std::wstring widePattern(pattern, pattern + wstring16::traits_type::length(pattern));
    UnitCollector collector;
    // The standard facet calls the runtime, which locks its time zone. A facet of the caller is foreign code.
    std::optional<platform::Uninterrupted> whileRuntimeIsLocked;
    if (typeid(facet) == typeid(std::time_put<wchar_t>)) whileRuntimeIsLocked.emplace();
    facet.put(std::ostreambuf_iterator<wchar_t>(&collector), state, L'\0', &fields, widePattern.data(),
              widePattern.data() + widePattern.size());
    return collector.take();
}

// Constructing a state takes as long as formatting, so all threads share the state of the default locale. Its facets
// are those of the standard library, which only read the state.
struct DefaultState {
    std::locale locale = KestLocaleFactory::getDefaultLocale(false);
    std::wios state{nullptr};

    DefaultState() { state.imbue(locale); }
};
constinit platform::ProcessObject<DefaultState> g_defaultState;

}  // namespace

// The facet takes the locale from the state of a stream; it does not need the stream.
wstring16 KestDateTime::constructTimeString(std::tm* fields, const std::locale& locale, const unsigned short* pattern) {
    DefaultState& byDefault = g_defaultState.get();
    if (locale == byDefault.locale) return formatTime(locale, byDefault.state, *fields, pattern);
    std::wios state(nullptr);
    state.imbue(locale);
    return formatTime(locale, state, *fields, pattern);
}

// The runtime computes the fields: some locales write the name of the zone, which only the runtime knows.
wstring16 KestDateTime::localText(const std::locale& locale, const unsigned short* pattern) {
    std::tm fields = storedFields();
    std::optional<internal::LocalMoment> moment = internal::momentOfFields(fields);
    if (moment) platform::localTime(moment->instant, fields);
    if (moment && internal::civilSeconds(fields) != moment->civil) {
        // The runtime noticed a change of the system's zone before the library did.
        platform::localZoneOfNow();
        moment = internal::momentOfFields(storedFields());
        if (moment) platform::localTime(moment->instant, fields);
    }
    if (!moment) fields = localFields();
    return constructTimeString(&fields, locale, pattern);
}

wstring16 KestDateTime::toString() {
    return toString(heldLocale());
}

wstring16 KestDateTime::toString(const std::locale& locale) {
    return localText(locale, kDateAndTime);
}

wstring16 KestDateTime::timeToString() {
    return timeToString(heldLocale());
}

wstring16 KestDateTime::timeToString(const std::locale& locale) {
    return localText(locale, kDate);
}

wstring16 KestDateTime::dateToString() {
    return dateToString(heldLocale());
}

wstring16 KestDateTime::dateToString(const std::locale& locale) {
    return localText(locale, kTime);
}

wstring16 KestDateTime::weekdayName() {
    return weekdayName(heldLocale());
}

wstring16 KestDateTime::weekdayName(const std::locale& locale) {
    return localText(locale, kWeekday);
}

wstring16 KestDateTime::monthName() {
    return monthName(heldLocale());
}

wstring16 KestDateTime::monthName(const std::locale& locale) {
    return localText(locale, kMonth);
}

wstring16 KestDateTime::toGMTString() {
    std::tm fields = localFields();
    if (const std::int64_t instant = getTime(); instant != -1) platform::utcTime(instant, fields);
    return constructTimeString(&fields, heldLocale(), kDateAndTime);
}

}  // namespace KestSupport
