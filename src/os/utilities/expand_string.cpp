#include <cstddef>
#include <cstdlib>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "support/utilities.h"
#include "text/log/internal_log.h"
#include "text/properties/locked_properties.h"

namespace KestSupport {
namespace {

constexpr internal::LogLevel kExpandTrace = internal::LogLevel::trace;

// Limits the text from references inside values. Values with two references each, thirty levels deep, would otherwise
// produce a thousand million characters.
constexpr std::size_t kGrowthOfAnyText = std::size_t{1024} * 1024;
constexpr std::size_t kGrowthPerCharacter = 100;

std::string_view environmentVariable(std::string_view name) {
    const char* const value = std::getenv(std::string(name).c_str());
    return value == nullptr ? std::string_view() : value;
}

// Returns the value of a name without a copy, so it holds the lock of the properties until the expansion ends. 1,000
// references take 25 us, and 69 us with a lock and a copy for each (bench/environment).
class LockedLookup {
  public:
    explicit LockedLookup(const KestProperties<std::string>& properties) : m_properties(properties) {}

    std::string_view operator()(std::string_view name) const {
        const std::string* const value = m_properties.find(name);
        return value == nullptr ? environmentVariable(name) : *value;
    }

  private:
    const internal::LockedProperties<std::string> m_properties;
};

// Writes a record for each name, so it holds no lock. A null pointer means no properties.
class TracedLookup {
  public:
    explicit TracedLookup(const KestProperties<std::string>* properties) : m_properties(properties) {}

    std::string_view operator()(std::string_view name) {
        internal::logRecord(kExpandTrace, "KestExpandString: Lookup ", name);
        const bool isProperty = m_properties != nullptr && m_properties->getPropertyValue(std::string(name), m_value);
        return isProperty ? m_value : environmentVariable(name);
    }

  private:
    const KestProperties<std::string>* const m_properties;
    std::string m_value;
};

// One expansion. The unread text is a stack of sources: the given text at the bottom, and above it the values of
// references, each above the source in which its reference ends. A source is removed when a later character is read. So
// the names on the stack are those whose values contain the next '>', at any depth. For example, with a = "x<b>" and
// b = "<a>", the text "<a>!" is read like this:
//
//   stack, unread parts                 read       result
//   "<a>!"                              <a>
//   "!", a: "x<b>"                      x <b>      x
//   "!", a: "", b: "<a>"                <a>        x<a>      a is on the stack, so <a> refers to itself
//   "!"                                 !          x<a>!
//
// Every character is read once, so the time is linear in the text and the values. `lookup` returns the value of a name
// as a view that is valid until its next call.
template <typename Lookup>
class Expansion {
  public:
    // The text outlives the object.
    Expansion(std::string_view text, Lookup& lookup)
        : m_lookup(lookup), m_growthLeft(kGrowthOfAnyText + kGrowthPerCharacter * text.size()) {
        m_sources.push_back({{}, text, m_names.end()});
        m_result.reserve(text.size());
    }

    std::string run() {
        while (copyUpToReference()) {
            std::string_view reference;
            const bool isReference = takeReference(reference);
            if (!isReference || !replace(reference)) m_result += reference;
        }
        return std::move(m_result);
    }

  private:
    using Names = std::set<std::string, std::less<>>;
    struct Source {
        std::string value;        // of a reference; empty for the given text
        std::string_view unread;  // the rest of the value, or of the text
        Names::iterator name;     // of the reference; end for the text
    };

    // Copies up to the next '<'. Returns false at the end of all sources.
    bool copyUpToReference() {
        while (!m_sources.empty()) {
            std::string_view& unread = m_sources.back().unread;
            const std::size_t begin = unread.find('<');
            m_result += unread.substr(0, begin);
            if (begin != std::string_view::npos) {
                unread.remove_prefix(begin);
                return true;
            }
            dropSource();
        }
        return false;
    }

    // Reads up to the next '>'. Returns false when there is none; then all sources are read.
    bool takeReference(std::string_view& reference) {
        m_reference.clear();
        while (!m_sources.empty()) {
            std::string_view& unread = m_sources.back().unread;
            const std::size_t end = unread.find('>');
            const std::string_view part = unread.substr(0, end == std::string_view::npos ? end : end + 1);
            const bool isWhole = m_reference.empty() && end != std::string_view::npos;
            reference = isWhole ? part : std::string_view(m_reference += part);
            unread.remove_prefix(part.size());
            if (end != std::string_view::npos) return true;
            dropSource();
        }
        return false;
    }

    void dropSource() {
        if (m_sources.back().name != m_names.end()) m_names.erase(m_sources.back().name);
        m_sources.pop_back();
    }

    // Replaces the reference by its value. Returns false when the reference must stay. The top source is the one in
    // which the reference ends.
    bool replace(std::string_view reference) {
        const std::string_view name = reference.substr(1, reference.size() - 2);
        if (m_names.contains(name)) return false;
        const std::string_view value = m_lookup(name);
        if (m_sources.size() > 1) {
            if (value.size() > m_growthLeft) return false;
            m_growthLeft -= value.size();
        }
        if (value.find('<') == std::string_view::npos) {
            m_result += value;
        } else {
            Source& source = m_sources.emplace_back(Source{std::string(value), {}, m_names.end()});
            source.unread = source.value;
            source.name = m_names.emplace(name).first;
        }
        return true;
    }

    Lookup& m_lookup;
    std::size_t m_growthLeft;
    Names m_names;                // of all sources but the text
    std::list<Source> m_sources;  // a list, since their values are not moved
    std::string m_reference;      // one that is in several sources
    std::string m_result;
};

// `properties` may be null.
std::string expandTraced(const std::string& text, const KestProperties<std::string>* properties) {
    internal::logRecord(kExpandTrace, "KestExpandString: expand = ", text);
    TracedLookup lookup(properties);
    std::string result = Expansion(text, lookup).run();
    internal::logRecord(kExpandTrace, "KestExpandString: result = ", result);
    return result;
}

}  // namespace

std::string KestExpandString(const std::string& text) {
    if (internal::isLogged(kExpandTrace)) return expandTraced(text, nullptr);
    return Expansion(text, environmentVariable).run();
}

std::string KestExpandString(const std::string& text, KestProperties<std::string>& properties) {
    if (internal::isLogged(kExpandTrace)) return expandTraced(text, &properties);
    LockedLookup lookup(properties);
    return Expansion(text, lookup).run();
}

}  // namespace KestSupport
