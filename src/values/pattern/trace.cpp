#include "values/pattern/trace.h"

#include "support/strings.h"

namespace KestSupport::internal {
namespace {

constexpr char kTypeNames[][17] = {"in set", "not in set", "literal segment=", "any", "begin", "end"};
constexpr char kFactorNames[][13] = {"one", "zero or one", "zero or more", "one or more"};

/// One match of one token.
template <typename StringType>
struct MatchEntry {
    StringType text;
    std::size_t start;
    std::size_t length;
    std::int32_t backIndex;  // of the entry below; -1 if this one cannot be removed
    const ExpressionToken<StringType>* token;
};

template <typename... Values>
void trace(const Values&... values) {
    logRecord(kExpressionTraceLevel, values...);
}

// The stack is dumped at this level only, not at higher ones.
bool isDumping() {
    return isLogLevel(kExpressionTraceLevel);
}

template <typename StringType>
void traceEntry(const MatchEntry<StringType>& entry) {
    traceToken(*entry.token);
    trace("\tmatch token:");
    trace("\t\tsegment: ", entry.text, ":", entry.start, ":", entry.length, ":", entry.backIndex);
}

template <typename StringType>
class TracedWalk {
  public:
    using Token = ExpressionToken<StringType>;

    TracedWalk(const std::vector<Token>& tokens, const StringType& text, std::size_t start)
        : m_tokens(tokens), m_text(text), m_start(start), m_position(start) {}

    std::size_t run(std::size_t& length) {
        while (m_current < m_tokens.size() && step()) {
        }
        traceStack();
        if (m_stack.empty()) return npos;
        const std::size_t offset = m_stack.front().start;
        length = m_position - offset;
        const bool isRefused = (m_mustBegin && offset != m_start) || (m_mustEnd && m_position != m_text.size());
        return isRefused ? npos : offset;
    }

  private:
    static constexpr std::size_t npos = StringType::npos;

    // Tries the current token once. Returns false at the end of the search.
    bool step() {
        const Token& token = m_tokens[m_current];
        const bool isOptional = token.factor == TokenFactor::zeroOrOne || token.factor == TokenFactor::zeroOrMore;
        const bool isRepeated = token.factor == TokenFactor::zeroOrMore || token.factor == TokenFactor::oneOrMore;
        const std::size_t before = m_position;
        if (tryToken(token)) {
            // A token that takes no characters is not repeated: that would never end.
            if (!isRepeated || m_position == before) ++m_current;
            return true;
        }
        if (m_stack.empty()) {
            ++m_position;
            return isOptional && before < m_text.size() && m_position < m_text.size();
        }
        if (isOptional || (token.factor == TokenFactor::oneOrMore && *m_stack.back().token == token)) {
            ++m_current;
        } else {
            backtrack();
        }
        return true;
    }

    bool tryToken(const Token& token) {
        const auto isMember = [&] { return token.hasMember(m_text[m_position]); };
        const bool isInside = m_position < m_text.size();
        switch (token.type) {
            case TokenType::begin:
                m_mustBegin = true;
                return true;
            case TokenType::end:
                m_mustEnd = true;
                return true;
            case TokenType::literal:
                return tryLiteral(token);
            case TokenType::inSet:
                return isInside && isMember() && push(token, m_position, 1);
            case TokenType::notInSet:
                return isInside && !isMember() && push(token, m_position, 1);
            default:
                return isInside && push(token, m_position, 1);
        }
    }

    bool tryLiteral(const Token& token) {
        const std::size_t found = m_text.find(token.segment, m_position);
        trace(m_text, ".find (", token.segment, ", ", m_position, ") = ", static_cast<std::int32_t>(found));
        if (found == npos || (!m_stack.empty() && found != m_position)) return false;
        return push(token, found, token.segment.size());
    }

    bool push(const Token& token, std::size_t start, std::size_t length) {
        m_stack.push_back({m_text.substr(start, length), start, length, backIndexFor(token), &token});
        m_position = start + length;
        if (isDumping()) {
            trace("KestRegularExpressionImplementation::addMatch: begin");
            traceEntry(m_stack.back());
            trace("KestRegularExpressionImplementation::addMatch: end");
        }
        return true;
    }

    std::int32_t backIndexFor(const Token& token) const {
        if (m_stack.empty()) return -1;
        const MatchEntry<StringType>& top = m_stack.back();
        if (token.factor == TokenFactor::oneOrMore && !(*top.token == token)) return top.backIndex;
        return static_cast<std::int32_t>(m_stack.size() - 1);
    }

    void backtrack() {
        const MatchEntry<StringType>& top = m_stack.back();
        if (top.backIndex != -1) {
            m_position = top.start;
            m_stack.pop_back();
            return;
        }
        const MatchEntry<StringType>& bottom = m_stack.front();
        m_position = bottom.start + 1;
        m_current = static_cast<std::size_t>(bottom.token - m_tokens.data());
        m_stack.clear();
    }

    void traceStack() const {
        if (!isDumping()) return;
        trace("KestRegularExpressionImplementation::find: match stack begin");
        for (const MatchEntry<StringType>& entry : m_stack)
            traceEntry(entry);
        trace("KestRegularExpressionImplementation::find: match stack end");
    }

    const std::vector<Token>& m_tokens;
    const StringType& m_text;
    const std::size_t m_start;
    std::size_t m_position;
    std::size_t m_current = 0;  // index of the token
    bool m_mustBegin = false;
    bool m_mustEnd = false;
    std::vector<MatchEntry<StringType>> m_stack;
};

}  // namespace

template <typename StringType>
void traceToken(const ExpressionToken<StringType>& token) {
    const char* const type = kTypeNames[static_cast<int>(token.type)];
    const char* const factor = kFactorNames[static_cast<int>(token.factor)];
    if (token.type == TokenType::literal) {
        trace("ExpressionToken: type=", type, token.segment, " factor=", factor);
    } else {
        trace("ExpressionToken: type=", type, " factor=", factor);
    }
}

template <typename StringType>
std::size_t findWithTrace(const std::vector<ExpressionToken<StringType>>& tokens, const StringType& text,
                          std::size_t& length, std::size_t start) {
    return TracedWalk<StringType>(tokens, text, start).run(length);
}

template void traceToken(const ExpressionToken<std::string>&);
template void traceToken(const ExpressionToken<wstring16>&);
template std::size_t findWithTrace(const std::vector<ExpressionToken<std::string>>&, const std::string&, std::size_t&,
                                   std::size_t);
template std::size_t findWithTrace(const std::vector<ExpressionToken<wstring16>>&, const wstring16&, std::size_t&,
                                   std::size_t);

}  // namespace KestSupport::internal
