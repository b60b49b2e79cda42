#include "support/program_options.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/exceptions.h"
#include "text/strings/command_line_splitter.h"

namespace KestSupport {
namespace {

enum class LongOption { kUnknown, kPlain, kTakesNextArgument };

[[noreturn]] void refuse(std::string_view dashes, std::string_view option) {
    std::string text = "KestProgramOptions::parse: Unrecognized option: ";
    throw KestException(text.append(dashes).append(option), 0);
}

std::string_view nameOf(std::string_view option) {
    return option.substr(0, option.find('='));
}

// The names of a long specification. A specification of up to 256 characters is searched as a text, since sorting takes
// longer than the few searches of a small command line. The entries of a longer specification are sorted for a binary
// search. An entry is all text after a colon, since a wanted name may contain colons: ":a:b:" has the entries "a:b:",
// "b:" and "".
class LongOptions {
  public:
    explicit LongOptions(std::string_view specification) : m_specification(specification) {
        constexpr std::size_t kLongestUnordered = 256;
        if (specification.size() <= kLongestUnordered) return;
        for (std::size_t at = specification.find(':'); at != npos; at = specification.find(':', at + 1))
            m_entries.push_back(specification.substr(at + 1));
        std::sort(m_entries.begin(), m_entries.end());
    }

    LongOption find(std::string_view name) const {
        if (m_entries.empty()) return findInText(name);
        if (has(name, ":")) return LongOption::kPlain;
        return has(name, ".:") ? LongOption::kTakesNextArgument : LongOption::kUnknown;
    }

  private:
    static constexpr std::size_t npos = std::string_view::npos;

    // Searches for the name between a colon and one of the two ends. A plain entry wins, at any position.
    LongOption findInText(std::string_view name) const {
        LongOption found = LongOption::kUnknown;
        for (std::size_t at = m_specification.find(name, 1); at != npos; at = m_specification.find(name, at + 1)) {
            if (m_specification[at - 1] != ':') continue;
            const std::string_view end = m_specification.substr(at + name.size());
            if (end.starts_with(':')) return LongOption::kPlain;
            if (end.starts_with(".:")) found = LongOption::kTakesNextArgument;
        }
        return found;
    }
    // Compares the beginning of the entry with the name and its end.
    static int compare(std::string_view entry, std::string_view name, std::string_view end) {
        const int order = entry.substr(0, name.size()).compare(name);
        return order != 0 ? order : entry.substr(name.size(), end.size()).compare(end);
    }
    bool has(std::string_view name, std::string_view end) const {
        const auto entry = std::partition_point(m_entries.begin(), m_entries.end(),
                                                [&](std::string_view each) { return compare(each, name, end) < 0; });
        return entry != m_entries.end() && compare(*entry, name, end) == 0;
    }

    const std::string_view m_specification;
    std::vector<std::string_view> m_entries;  // empty for a short specification
};

}  // namespace

struct KestProgramOptions::Specification {
    std::string_view shortSpec;
    LongOptions longOptions;
    bool isGnu = false;
};

// The arguments that are not parsed yet.
class KestProgramOptions::Arguments {
  public:
    Arguments(int argc, char** argv) : m_argc(argc), m_argv(argv) {}

    /// Returns null at the end.
    const char* next() { return m_index < m_argc ? m_argv[m_index++] : nullptr; }

    /// Returns the next argument, as the data of the option.
    std::string dataFor(std::string_view option) {
        if (const char* const data = next(); data != nullptr) return data;
        std::string text = "KestProgramOptions::parse: option data not available for: -";
        throw KestException(text.append(option), 0);
    }

  private:
    const int m_argc;
    char** const m_argv;
    int m_index = 1;  // 0 is the program's name
};

KestProgramOptions::KestProgramOptions(int argc, char** argv, bool allowSlash) {
    parse(argc, argv, nullptr, allowSlash);
}

KestProgramOptions::KestProgramOptions(int argc, char** argv, const std::string& shortSpec, const std::string& longSpec,
                                       bool allowSlash) {
    const Specification specification{shortSpec, LongOptions(longSpec)};
    parse(argc, argv, &specification, allowSlash);
}

KestProgramOptions::KestProgramOptions(int argc, char** argv, const std::string& shortSpec, const std::string& longSpec,
                                       KestGnuOptions) {
    const Specification specification{shortSpec, LongOptions(longSpec), true};
    parse(argc, argv, &specification, false);
}

KestProgramOptions::KestProgramOptions(const std::string& commandLine, bool allowSlash) {
    parse(commandLine, nullptr, allowSlash);
}

KestProgramOptions::KestProgramOptions(const std::string& commandLine, const std::string& shortSpec,
                                       const std::string& longSpec, bool allowSlash) {
    const Specification specification{shortSpec, LongOptions(longSpec)};
    parse(commandLine, &specification, allowSlash);
}

KestProgramOptions::KestProgramOptions(const KestProgramOptions& other)
    : m_programName(other.m_programName),
      m_options(other.m_options),
      m_arguments(other.m_arguments),
      m_current(m_arguments.begin()) {}

KestProgramOptions& KestProgramOptions::operator=(const KestProgramOptions& other) {
    if (this == &other) return *this;
    // On failure nothing changes.
    std::string programName = other.m_programName;
    std::vector<std::string> arguments = other.m_arguments;
    m_options = other.m_options;
    m_programName.swap(programName);
    m_arguments.swap(arguments);
    reset();
    return *this;
}

KestProgramOptions::~KestProgramOptions() = default;

const std::string& KestProgramOptions::getArgument(unsigned int index) const {
    if (index >= m_arguments.size()) throw KestException("KestProgramOptions::getArgument: index out of bounds", 0);
    return m_arguments[index];
}

std::string KestProgramOptions::getSwitch(const std::string& name) const {
    std::string value;
    if (!m_options.getPropertyValue(name, value)) throw KestException();
    return value.c_str();
}

std::string KestProgramOptions::getSwitch(const std::string& name1, const std::string& name2) const {
    std::string value;
    if (!m_options.getPropertyValue(name2, value)) return getSwitch(name1);
    return value.c_str();
}

bool KestProgramOptions::isSet(const std::string& name) const {
    std::string value;
    return m_options.getPropertyValue(name, value);
}

std::vector<std::string> KestProgramOptions::values(const std::string& name) const {
    return m_options.getPropertyValues(name);
}

void KestProgramOptions::parse(int argc, char** argv, const Specification* specification, bool allowSlash) {
    if (argc > 0 && argv[0] != nullptr) m_programName = argv[0];
    Arguments arguments(argc, argv);
    const bool isGnu = specification != nullptr && specification->isGnu;
    bool hasEnded = false;  // the options, at "--"
    while (const char* const text = arguments.next()) {
        const bool hasMark = text[0] == '-' || (allowSlash && text[0] == '/');
        if (isGnu && !hasEnded && text == std::string_view("--")) {
            hasEnded = true;
        } else if (hasMark && !(isGnu && (hasEnded || text == std::string_view("-")))) {
            addOption(text, arguments, specification);
        } else {
            m_arguments.emplace_back(text);
        }
    }
    reset();
}

void KestProgramOptions::parse(const std::string& commandLine, const Specification* specification, bool allowSlash) {
    std::vector<std::string> tokens = internal::splitCommandLine(commandLine, internal::kOptionRules);
    std::vector<char*> argv;
    argv.reserve(tokens.size());
    for (std::string& token : tokens)
        argv.push_back(token.data());
    parse(static_cast<int>(argv.size()), argv.data(), specification, allowSlash);
}

// The text begins with a dash or a slash.
void KestProgramOptions::addOption(const char* text, Arguments& arguments, const Specification* specification) {
    const bool hasTwoDashes = text[0] == '-' && text[1] == '-';
    const char* const option = text + (hasTwoDashes ? 2 : 1);
    if (specification == nullptr) {
        m_options.addProperty(option, '=');
    } else if (option[0] == '\0' && !hasTwoDashes) {
        refuse("-", option);
    } else if (addLongOption(option, arguments, *specification)) {
        return;
    } else if (hasTwoDashes) {
        refuse("--", nameOf(option));
    } else {
        addShortOption(option, arguments, *specification);
    }
}

// Returns false if there is no such long option.
bool KestProgramOptions::addLongOption(const char* option, Arguments& arguments, const Specification& specification) {
    const std::string_view name = nameOf(option);
    const char* const data = option[name.size()] == '\0' || !specification.isGnu ? nullptr : option + name.size() + 1;
    switch (specification.longOptions.find(name)) {
        case LongOption::kPlain:
            if (data != nullptr)
                throw KestException("KestProgramOptions::parse: option takes no data: -" + std::string(option), 0);
            m_options.addProperty(option, '=');
            return true;
        case LongOption::kTakesNextArgument:
            if (data == nullptr) {
                m_options.addProperty(option, arguments.dataFor(option));
            } else {
                m_options.addProperty(std::string(name), data);
            }
            return true;
        case LongOption::kUnknown:
            break;
    }
    return false;
}

void KestProgramOptions::addShortOption(const char* option, Arguments& arguments, const Specification& specification) {
    const std::string_view letter = std::string_view(option).substr(0, 1);
    const std::string_view rest = std::string_view(option).substr(letter.size());
    const std::string_view spec = specification.shortSpec;
    // A colon in the specification is no option letter.
    const std::size_t at = letter == ":" ? std::string_view::npos : spec.find(letter);
    if (at == std::string_view::npos) refuse("-", letter);
    const bool takesData = spec.substr(at + 1).starts_with(':');
    std::string data;
    if (takesData) data = rest.empty() ? arguments.dataFor(letter) : std::string(rest);
    m_options.addProperty(std::string(letter), data);
}

}  // namespace KestSupport
