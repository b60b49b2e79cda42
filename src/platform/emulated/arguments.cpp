// Command lines by the quoting rules of the shell, without its expansions.
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/process.h"

namespace KestSupport::platform {
namespace {

constexpr std::string_view kSeparators = " \t\n";
constexpr std::string_view kEscapedInQuotes = "\"\\$`";
// Characters without a meaning for any shell, anywhere in a word.
constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+:,./-";

class Splitter {
  public:
    explicit Splitter(std::string_view text) noexcept : m_text(text) {}

    /// Appends the next word. Returns false if there is none.
    bool next(std::string& word) {
        // A backslash with a line feed continues the line. It is no separator and starts no word.
        for (;;) {
            m_position = std::min(m_text.find_first_not_of(kSeparators, m_position), m_text.size());
            if (!m_text.substr(m_position).starts_with("\\\n")) break;
            m_position += 2;
        }
        if (m_position == m_text.size()) return false;
        while (m_position < m_text.size() && kSeparators.find(m_text[m_position]) == std::string_view::npos)
            takeOne(word);
        return true;
    }

  private:
    void takeOne(std::string& word) {
        const char c = m_text[m_position++];
        if (c == '\'') {
            const std::size_t end = std::min(m_text.find('\'', m_position), m_text.size());
            word.append(m_text.substr(m_position, end - m_position));
            m_position = end + 1;
        } else if (c == '"') {
            takeDoubleQuoted(word);
        } else if (c == '\\' && m_position < m_text.size()) {
            if (m_text[m_position] != '\n') word += m_text[m_position];
            ++m_position;
        } else {
            word += c;
        }
    }

    void takeDoubleQuoted(std::string& word) {
        while (m_position < m_text.size()) {
            const char c = m_text[m_position++];
            if (c == '"') return;
            const char next = c == '\\' && m_position < m_text.size() ? m_text[m_position] : '\0';
            if (next == '\n') {
                ++m_position;
            } else if (next != '\0' && kEscapedInQuotes.find(next) != std::string_view::npos) {
                word += next;
                ++m_position;
            } else {
                word += c;
            }
        }
    }

    const std::string_view m_text;
    std::size_t m_position = 0;
};

}  // namespace

std::vector<std::string> splitArguments(std::string_view commandLine) {
    std::vector<std::string> words;
    Splitter splitter(commandLine);
    for (std::string word; splitter.next(word); word.clear())
        words.push_back(word);
    return words;
}

std::string quoteArgument(std::string_view argument) {
    if (!argument.empty() && argument.find_first_not_of(kPlain) == std::string_view::npos) return std::string(argument);
    std::string quoted = "'";
    for (const char c : argument)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

bool getsUnchanged(std::string_view, std::string_view) {
    return true;
}

bool isProgramFile(const std::string& path) {
    std::error_code ignored;
    return path.starts_with('/') && std::filesystem::is_regular_file(path, ignored);
}

}  // namespace KestSupport::platform
