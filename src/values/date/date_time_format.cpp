#include <support/date_time.h>
#include <support/locales.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <ios>
#include <iterator>
#include <locale>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
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

bool isWithin(int value, int least, int most) noexcept {
    return value >= least && value <= most;
}

/// Contains its letters, so that the loader has no pointer to relocate.
struct Name {
    template <std::size_t size>
    consteval Name(const char (&text)[size]) : length(size - 1) {
        std::copy_n(text, length, letters);
    }
    constexpr operator std::string_view() const noexcept { return {letters, length}; }

    std::uint8_t length;
    char letters[9]{};
};

constexpr Name kWeekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr Name kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                            "July",    "August",   "September", "October", "November", "December"};

// The five texts as the C standard defines them for the locale "C". They need no facet of the runtime: 72 instead of
// 312 ns (bench/date_time). With mingw-w64 the facet also changes the locale of the whole program for each text, and
// ends the program when memory is short.
class ClassicText {
  public:
    /// What date and time are together: "Tue Nov 24 01:24:29 2026" by the standard, "11/24/26 01:24:29" in the runtime
    /// msvcrt.
    enum class DateAndTime { words, numbers };

    /// Whether all fields have their usual width.
    static bool canWrite(const std::tm& fields) noexcept {
        return isWithin(fields.tm_year, 1000 - 1900, 9999 - 1900) && isWithin(fields.tm_mon, 0, 11) &&
               isWithin(fields.tm_mday, 1, 31) && isWithin(fields.tm_wday, 0, 6) && isWithin(fields.tm_hour, 0, 23) &&
               isWithin(fields.tm_min, 0, 59) && isWithin(fields.tm_sec, 0, 60);
    }

    /// The letter is that of one of the patterns.
    static wstring16 of(const std::tm& fields, unsigned short letter, DateAndTime form) {
        constexpr std::size_t kAbbreviation = 3;
        const std::string_view weekday = kWeekdays[fields.tm_wday];
        const std::string_view month = kMonths[fields.tm_mon];
        ClassicText text;
        switch (letter) {
            case 'A':
                text.add(weekday);
                break;
            case 'B':
                text.add(month);
                break;
            case 'x':
                text.addDate(fields);
                break;
            case 'X':
                text.addTime(fields);
                break;
            default:
                if (form == DateAndTime::numbers) {
                    text.addDate(fields).add(" ").addTime(fields);
                    break;
                }
                text.add(weekday.substr(0, kAbbreviation)).add(" ").add(month.substr(0, kAbbreviation)).add(" ");
                text.add(fields.tm_mday, ' ', " ").addTime(fields).add(" ");
                text.add((fields.tm_year + 1900) / 100, '0', "").add((fields.tm_year + 1900) % 100, '0', "");
        }
        return {text.m_units, text.m_end};
    }

  private:
    ClassicText& add(std::string_view text) {
        m_end = std::copy(text.begin(), text.end(), m_end);
        return *this;
    }
    // Two digits, the first of which may be blank.
    ClassicText& add(int number, char zero, std::string_view after) {
        const char digits[] = {number < 10 ? zero : static_cast<char>('0' + number / 10),
                               static_cast<char>('0' + number % 10)};
        return add(std::string_view(digits, std::size(digits))).add(after);
    }
    ClassicText& addDate(const std::tm& fields) {
        return add(fields.tm_mon + 1, '0', "/").add(fields.tm_mday, '0', "/").add(fields.tm_year % 100, '0', "");
    }
    ClassicText& addTime(const std::tm& fields) {
        return add(fields.tm_hour, '0', ":").add(fields.tm_min, '0', ":").add(fields.tm_sec, '0', "");
    }

    unsigned short m_units[32];
    unsigned short* m_end = m_units;
};

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
    // The runtime locks the global locale for a new buffer, and its time zone for the standard facet. A facet of the
    // caller is foreign code.
    std::optional<platform::RuntimeCall> call(std::in_place);
    UnitCollector collector;
    if (typeid(facet) != typeid(std::time_put<wchar_t>)) call.reset();
    facet.put(std::ostreambuf_iterator<wchar_t>(&collector), state, L'\0', &fields, widePattern.data(),
              widePattern.data() + widePattern.size());
    return collector.take();
}

// Whether the locale writes the texts of ClassicText: "C", "C.UTF-8" and "POSIX" do so with most runtimes. Compares all
// names of weekdays and months, and numbers of one and of two digits.
bool writesClassicTexts(const std::locale& locale, std::wios& state, ClassicText::DateAndTime form) {
    for (int month = 0; month < 12; ++month) {
        std::tm fields{};
        fields.tm_year = 95 + month;
        fields.tm_mon = month;
        fields.tm_mday = 4 + month;
        fields.tm_wday = month % 7;
        fields.tm_hour = 7 + month;
        fields.tm_min = fields.tm_sec = 5 * month;
        for (const unsigned short* pattern : {kDateAndTime, kDate, kTime, kWeekday, kMonth}) {
            if (formatTime(locale, state, fields, pattern) != ClassicText::of(fields, pattern[1], form)) return false;
        }
    }
    return true;
}

// Constructing a state takes as long as formatting, so all threads share the state of the default locale. Its facets
// are those of the standard library, which only read the state.
struct DefaultState {
    std::locale locale = KestLocaleFactory::getDefaultLocale(false);
    std::wios state{nullptr};
    std::optional<ClassicText::DateAndTime> classicForm;  // empty if the locale writes other texts

    DefaultState() {
        state.imbue(locale);
        for (const auto form : {ClassicText::DateAndTime::words, ClassicText::DateAndTime::numbers}) {
            if (writesClassicTexts(locale, state, form)) classicForm = form;
        }
    }
};
constinit platform::ProcessObject<DefaultState> g_defaultState;

// Returns the text if ClassicText writes it. It needs no zone name, so the runtime need not compute the fields: 55
// instead of 71 ns for KestDateTime::toString.
std::optional<wstring16> classicText(const std::locale& locale, const std::tm& fields, const unsigned short* pattern) {
    const DefaultState& byDefault = g_defaultState.get();
    if (!byDefault.classicForm || locale != byDefault.locale || !ClassicText::canWrite(fields)) return std::nullopt;
    return ClassicText::of(fields, pattern[1], *byDefault.classicForm);
}

}  // namespace

// The facet takes the locale from the state of a stream; it does not need the stream.
wstring16 KestDateTime::constructTimeString(std::tm* fields, const std::locale& locale, const unsigned short* pattern) {
    if (std::optional<wstring16> text = classicText(locale, *fields, pattern)) return *std::move(text);
    DefaultState& byDefault = g_defaultState.get();
    if (locale == byDefault.locale) return formatTime(locale, byDefault.state, *fields, pattern);
    std::optional<platform::RuntimeCall> construction(std::in_place);  // locks the global locale of the program
    std::wios state(nullptr);
    construction.reset();
    state.imbue(locale);
    return formatTime(locale, state, *fields, pattern);
}

// The runtime computes the fields for other locales: some write the name of the zone, which only the runtime knows.
wstring16 KestDateTime::localText(const std::locale& locale, const unsigned short* pattern) {
    if (std::optional<wstring16> text = classicText(locale, localFields(), pattern)) return *std::move(text);
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
    if (const std::int64_t instant = getTime(); instant != -1) {
        const std::tm utc = internal::brokenDown(instant, 0);
        if (std::optional<wstring16> text = classicText(heldLocale(), utc, kDateAndTime)) return *std::move(text);
        platform::utcTime(instant, fields);
    }
    return constructTimeString(&fields, heldLocale(), kDateAndTime);
}

}  // namespace KestSupport
