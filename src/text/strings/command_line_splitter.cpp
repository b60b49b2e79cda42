#include "text/strings/command_line_splitter.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace KestSupport::internal {
namespace {

class Splitter {
  public:
    Splitter(std::string_view text, const CommandLineRules& rules)
        : m_text(text), m_rules(rules), m_special(std::string(rules.delimiters).append(rules.quotes)) {}

    // Appends a token to `token`. Returns the offset of the delimiter after it.
    std::size_t takeToken(std::size_t position, std::string& token) const {
        for (;;) {
            const std::size_t end = std::min(m_text.find_first_of(m_special, position), m_text.size());
            token.append(m_text.substr(position, end - position));
            if (end == m_text.size() || m_rules.quotes.find(m_text[end]) == std::string_view::npos) return end;
            position = takeQuoted(end + 1, m_text[end], token);
        }
    }

  private:
    // Appends the text between quotes to the token. `position` is the offset after the opening quote. Returns the
    // offset after the closing quote.
    std::size_t takeQuoted(std::size_t position, char quote, std::string& token) const {
        for (;;) {
            const std::size_t end = std::min(m_text.find(quote, position), m_text.size());
            token.append(m_text.substr(position, end - position));
            if (end == m_text.size()) return end;
            const bool doubled = end + 1 < m_text.size() && m_text[end + 1] == quote;
            if (!doubled || !m_rules.doubledQuoteIsOne) return end + 1;
            token.push_back(quote);
            position = end + 2;
        }
    }

    const std::string_view m_text;
    const CommandLineRules& m_rules;
    const std::string m_special;
};

}  // namespace

std::vector<std::string> splitCommandLine(std::string_view text, const CommandLineRules& rules) {
    const Splitter splitter(text, rules);
    std::vector<std::string> tokens;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t end = splitter.takeToken(position, tokens.emplace_back());
        if (!rules.keepsEmptyTokens && tokens.back().empty()) tokens.pop_back();
        position = std::min(text.find_first_not_of(rules.delimiters, end), text.size());
    }
    return tokens;
}

}  // namespace KestSupport::internal
