#include <cstddef>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/utilities.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr internal::LogLevel kExpandTrace = internal::LogLevel::trace;

// Limits the text from references inside values. Values with two references each, thirty levels deep, would otherwise
// produce a thousand million characters.
constexpr std::size_t kGrowthOfAnyText = std::size_t{1024} * 1024;
constexpr std::size_t kGrowthPerCharacter = 100;

std::string environmentVariable(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value == nullptr ? std::string() : value;
}

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
// Every character is read once, so the time is linear in the text and the values.
template <typename Lookup>
class Expansion {
  public:
    Expansion(const std::string& text, Lookup lookup)
        : m_lookup(std::move(lookup)), m_growthLeft(kGrowthOfAnyText + kGrowthPerCharacter * text.size()) {
        m_sources.push_back({text, 0, m_names.end()});
    }

    std::string run() {
        std::string reference;
        while (copyUpToReference()) {
            reference.clear();
            const bool isReference = takeReference(reference);
            if (!isReference || !replace(reference)) m_result += reference;
        }
        return std::move(m_result);
    }

  private:
    using Names = std::set<std::string>;
    struct Source {
        std::string text;
        std::size_t position;
        Names::iterator name;  // of the reference whose value this is; end for the text
    };

    // Copies up to the next '<'. Returns false at the end of all sources.
    bool copyUpToReference() {
        while (!m_sources.empty()) {
            Source& source = m_sources.back();
            const std::size_t begin = source.text.find('<', source.position);
            m_result.append(source.text, source.position, begin - source.position);
            source.position = begin;
            if (begin != std::string::npos) return true;
            dropSource();
        }
        return false;
    }

    // Reads up to the next '>'. Returns false when there is none; then all sources are read.
    bool takeReference(std::string& reference) {
        while (!m_sources.empty()) {
            Source& source = m_sources.back();
            const std::size_t end = source.text.find('>', source.position);
            if (end != std::string::npos) {
                reference.append(source.text, source.position, end + 1 - source.position);
                source.position = end + 1;
                return true;
            }
            reference.append(source.text, source.position);
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
    bool replace(const std::string& reference) {
        std::string name = reference.substr(1, reference.size() - 2);
        if (m_names.contains(name)) return false;
        internal::logRecord(kExpandTrace, "KestExpandString: Lookup ", name);
        std::string value = m_lookup(name);
        if (m_sources.size() > 1) {
            if (value.size() > m_growthLeft) return false;
            m_growthLeft -= value.size();
        }
        if (value.find('<') == std::string::npos) {
            m_result += value;
        } else {
            m_sources.push_back({std::move(value), 0, m_names.end()});
            m_sources.back().name = m_names.insert(std::move(name)).first;
        }
        return true;
    }

    Lookup m_lookup;
    std::size_t m_growthLeft;
    Names m_names;  // of all sources but the text
    std::vector<Source> m_sources;
    std::string m_result;
};

template <typename Lookup>
std::string expand(const std::string& text, Lookup lookup) {
    internal::logRecord(kExpandTrace, "KestExpandString: expand = ", text);
    std::string result = Expansion(text, std::move(lookup)).run();
    internal::logRecord(kExpandTrace, "KestExpandString: result = ", result);
    return result;
}

}  // namespace

std::string KestExpandString(const std::string& text) {
    return expand(text, environmentVariable);
}

std::string KestExpandString(const std::string& text, KestProperties<std::string>& properties) {
    return expand(text, [&properties](const std::string& name) {
        std::string value;
        return properties.getPropertyValue(name, value) ? value : environmentVariable(name);
    });
}

}  // namespace KestSupport
