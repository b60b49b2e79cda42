#include "values/pattern/tokens.h"

#include <algorithm>
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

    /// Returns null, or the reason why the pattern is invalid.
    const char* parse() {
        while (m_carried || m_next < m_pattern.size()) {
            m_token = Token();
            if (!readToken()) return m_failure;
            if (!m_carried) readFactor();
            cutAtZero();
            m_tokens.push_back(std::move(m_token));
        }
        return nullptr;
    }

  private:
    using CharType = typename StringType::value_type;
    using Range = CharacterRange<CharType>;
    using Place = typename Range::Place;

    bool fail(const char* reason) {
        m_failure = reason;
        return false;
    }

    bool isSet() const { return m_token.type != TokenType::literal; }
    bool isAtEnd() const { return m_next == m_pattern.size(); }

    bool readToken() {
        if (m_carried) {
            append(*std::exchange(m_carried, std::nullopt));
            return collect();
        }
        const CharType c = m_pattern[m_next++];
        switch (c) {
            case '$':
                m_token.type = TokenType::end;
                return isAtEnd() || fail(kEndInside);
            case '.':
                m_token.type = TokenType::any;
                return true;
            case '[':
                m_token.type = TokenType::inSet;
                if (!isAtEnd() && m_pattern[m_next] == '^') {
                    m_token.type = TokenType::notInSet;
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
                    m_token.type = TokenType::begin;
                    return true;
                }
                break;
            default:
                break;
        }
        append(c);
        return collect();
    }

    // Reads the characters of a literal or a set, up to the first one of the next token.
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
                    // Only the last character is repeated, so it becomes a separate literal.
                    if (hasSeveral()) m_carried = takeLast();
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
            if (isSet() && c == '-') {
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

    // Appends the range from the last member, which is then a member twice, to the character after the '-'. Without a
    // member before it, the '-' is one.
    bool appendRange() {
        if (m_next + 1 == m_pattern.size()) return fail(kOpenRange);
        if (m_token.ranges.empty()) return append(m_pattern[m_next++]);
        const Place first = m_token.ranges.back().last;
        const Place last = static_cast<Place>(placeOf(m_pattern[m_next + 1]));
        if (first > last) return fail(kBackwardRange);
        m_token.ranges.push_back({first, last});
        m_next += 2;
        return true;
    }

    bool append(CharType c) {
        if (!isSet()) {
            m_token.segment += c;
            return true;
        }
        auto& ranges = m_token.ranges;
        const Place place = static_cast<Place>(placeOf(c));
        if (!ranges.empty() && place == ranges.back().last + 1) {
            ranges.back().last = place;
        } else {
            ranges.push_back({place, place});
        }
        return true;
    }

    bool hasSeveral() const {
        const auto& ranges = m_token.ranges;
        if (!isSet()) return m_token.segment.size() > 1;
        return ranges.size() > 1 || (ranges.size() == 1 && ranges.front().first != ranges.front().last);
    }

    CharType takeLast() {
        if (!isSet()) {
            const CharType last = m_token.segment.back();
            m_token.segment.pop_back();
            return last;
        }
        auto& range = m_token.ranges.back();
        const auto last = static_cast<CharType>(range.last);
        if (range.first == range.last) {
            m_token.ranges.pop_back();
        } else {
            --range.last;
        }
        return last;
    }

    void cutAtZero() {
        m_token.segment.resize(std::min(m_token.segment.size(), m_token.segment.find(CharType{})));
        auto& ranges = m_token.ranges;
        auto cut =
            std::find_if(ranges.begin(), ranges.end(), [](const Range& r) { return r.first <= 0 && 0 <= r.last; });
        if (cut == ranges.end()) return;
        if (cut->first < 0) {
            cut->last = static_cast<Place>(-1);
            ++cut;
        }
        ranges.erase(cut, ranges.end());
    }

    void readFactor() {
        if (isAtEnd()) return;
        switch (m_pattern[m_next]) {
            case '*':
                m_token.factor = TokenFactor::zeroOrMore;
                break;
            case '+':
                m_token.factor = TokenFactor::oneOrMore;
                break;
            case '?':
                m_token.factor = TokenFactor::zeroOrOne;
                break;
            default:
                return;
        }
        ++m_next;
    }

    const basic_text_view<CharType> m_pattern;
    std::vector<Token>& m_tokens;
    std::size_t m_next = 0;  // index of the next character to read
    Token m_token;
    std::optional<CharType> m_carried;  // the character that a repetition has split off; the next token
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
