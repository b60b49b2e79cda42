#include "values/regular_expression_tokens.h"

#include <optional>
#include <string_view>
#include <utility>

#include "support/strings.h"

namespace KestSupport::internal {
namespace {

constexpr const char* kEndInside = "end token found inside expression";
constexpr const char* kEmptySet = "empty set in pattern";
constexpr const char* kLoneEscape = "bad escape expression";
constexpr const char* kOpenEscape = "bad regular expression";
constexpr const char* kOpenRange = "end of expression found in pattern";
constexpr const char* kBackwardRange = "invalid endpoint in range";

template <typename StringType>
class PatternParser {
  public:
    using Token = ExpressionToken<StringType>;

    PatternParser(const StringType& pattern, std::vector<Token>& tokens) : m_pattern(pattern), m_tokens(tokens) {}

    /// Null, or what is wrong with the pattern.
    const char* parse() {
        while (m_carried || m_next < m_pattern.size()) {
            m_token = Token();
            if (!readToken()) return m_failure;
            if (!m_carried) readFactor();
            m_token.segment.resize(std::min(m_token.segment.size(), m_token.segment.find(CharType{})));
            m_tokens.push_back(std::move(m_token));
        }
        return nullptr;
    }

  private:
    using CharType = typename StringType::value_type;

    bool fail(const char* reason) {
        m_failure = reason;
        return false;
    }

    bool isSet() const { return m_token.type != TokenType::Literal; }
    bool isAtEnd() const { return m_next == m_pattern.size(); }

    bool readToken() {
        if (m_carried) {
            append(*std::exchange(m_carried, std::nullopt));
            return collect();
        }
        const CharType c = m_pattern[m_next++];
        switch (c) {
            case '$':
                m_token.type = TokenType::End;
                return isAtEnd() || fail(kEndInside);
            case '.':
                m_token.type = TokenType::Any;
                return true;
            case '[':
                m_token.type = TokenType::InSet;
                if (!isAtEnd() && m_pattern[m_next] == '^') {
                    m_token.type = TokenType::NotInSet;
                    ++m_next;
                }
                if (isAtEnd() || m_pattern[m_next] == ']') return fail(kEmptySet);
                return collect();
            case '\\':
                if (isAtEnd()) return fail(kLoneEscape);
                --m_next;
                return collect();
            case '^':
                if (m_next == 1) {
                    m_token.type = TokenType::Begin;
                    return true;
                }
                break;
            default:
                break;
        }
        append(c);
        return collect();
    }

    // Takes the characters of a literal or a set, up to one that belongs to what follows.
    bool collect() {
        while (!isAtEnd()) {
            const CharType c = m_pattern[m_next];
            switch (c) {
                case '$':
                case '.':
                case '[':
                    return true;
                case '*':
                case '+':
                case '?':
                    // The repetition is for the last character alone, which becomes a literal of its own.
                    if (m_token.segment.size() > 1) {
                        m_carried = m_token.segment.back();
                        m_token.segment.pop_back();
                    }
                    return true;
                case '\\':
                    if (!appendEscaped()) return false;
                    continue;
                default:
                    break;
            }
            if (isSet() && c == ']') {
                ++m_next;
                return true;
            }
            if (isSet() && c == '-' && !m_token.segment.empty()) {
                if (!appendRange()) return false;
                continue;
            }
            append(c);
            ++m_next;
        }
        return true;
    }

    bool appendEscaped() {
        if (m_next + 1 == m_pattern.size()) return fail(kOpenEscape);
        const CharType c = m_pattern[m_next + 1];
        m_next += 2;
        switch (c) {
            case 'b':
                return append('\b');
            case 'f':
                return append('\f');
            case 'n':
                return append('\n');
            case 'r':
                return append('\r');
            case 't':
                return append('\t');
            case '0':
            case '^':
            case 'e':
            case 'x':
                return true;
            default:
                return append(c);
        }
    }

    // From the last member, which thus stands there twice, to the character behind the '-'.
    bool appendRange() {
        if (m_next + 1 == m_pattern.size()) return fail(kOpenRange);
        const int first = placeOf(m_token.segment.back());
        const int last = placeOf(m_pattern[m_next + 1]);
        if (first > last) return fail(kBackwardRange);
        for (int place = first; place <= last; ++place)
            append(static_cast<CharType>(place));
        m_next += 2;
        return true;
    }

    // Narrow characters from 0x80 on are negative in the order of ranges, whatever a char is to the compiler.
    static int placeOf(CharType c) {
        if constexpr (sizeof(CharType) == 1) return static_cast<signed char>(c);
        return c;
    }

    bool append(CharType c) {
        m_token.segment += c;
        return true;
    }

    void readFactor() {
        if (isAtEnd()) return;
        switch (m_pattern[m_next]) {
            case '*':
                m_token.factor = TokenFactor::ZeroOrMore;
                break;
            case '+':
                m_token.factor = TokenFactor::OneOrMore;
                break;
            case '?':
                m_token.factor = TokenFactor::ZeroOrOne;
                break;
            default:
                return;
        }
        ++m_next;
    }

    const std::basic_string_view<CharType> m_pattern;
    std::vector<Token>& m_tokens;
    std::size_t m_next = 0;  // what is read is in front of it
    Token m_token;
    std::optional<CharType> m_carried;  // a literal's character that a repetition has split off; the next token
    const char* m_failure = nullptr;
};

}  // namespace

template <typename StringType>
bool compilePattern(const StringType& pattern, std::vector<ExpressionToken<StringType>>& tokens, std::string& message) {
    const char* const failure = PatternParser<StringType>(pattern, tokens).parse();
    if (failure != nullptr) message = failure;
    return failure == nullptr;
}

template bool compilePattern(const std::string&, std::vector<ExpressionToken<std::string>>&, std::string&);
template bool compilePattern(const wstring16&, std::vector<ExpressionToken<wstring16>>&, std::string&);

}  // namespace KestSupport::internal
