// The search of a compiled pattern, step by step as a reader would do it by hand: one entry for each time a token takes
// something, and no thought of speed. What the library's own walks find is compared with it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "values/regular_expression_tokens.h"

namespace KestTest {

template <typename S>
class NaiveExpressionMatcher {
  public:
    using Token = KestSupport::internal::ExpressionToken<S>;
    using Type = KestSupport::internal::TokenType;
    using Factor = KestSupport::internal::TokenFactor;

    /// The offset or npos; length as the library's find treats it.
    static std::size_t find(const std::vector<Token>& tokens, const S& text, std::size_t& length, std::size_t start) {
        std::vector<Entry> stack;
        std::size_t p = start, t = 0;
        bool begin = false, end = false;
        while (t < tokens.size()) {
            const Token& token = tokens[t];
            const bool optional = token.factor == Factor::ZeroOrOne || token.factor == Factor::ZeroOrMore;
            begin = begin || token.type == Type::Begin;
            end = end || token.type == Type::End;
            const bool anchor = token.type == Type::Begin || token.type == Type::End;
            const std::size_t place = anchor ? p : placeOf(token, text, p, stack.empty());
            if (place != S::npos) {
                const std::size_t size = anchor ? 0 : token.type == Type::Literal ? token.segment.size() : 1;
                const bool more = token.factor == Factor::ZeroOrMore || token.factor == Factor::OneOrMore;
                if (!anchor) stack.push_back({place, size, backIndex(token, tokens, stack), t});
                p = place + size;
                if (!more || size == 0) ++t;
            } else if (stack.empty()) {
                if (!optional || p >= text.size() || p + 1 >= text.size()) break;
                ++p;
            } else if (optional || (token.factor == Factor::OneOrMore && tokens[stack.back().token] == token)) {
                ++t;
            } else if (stack.back().back != -1) {
                p = stack.back().start;
                stack.pop_back();
            } else {
                p = stack.front().start + 1;
                t = stack.front().token;
                stack.clear();
            }
        }
        if (stack.empty()) return S::npos;
        length = 0;
        for (const Entry& entry : stack)
            length += entry.length;
        const std::size_t offset = stack.front().start;
        return (begin && offset != start) || (end && offset + length != text.size()) ? S::npos : offset;
    }

  private:
    struct Entry {
        std::size_t start, length;
        int back;
        std::size_t token;
    };

    static std::size_t placeOf(const Token& token, const S& text, std::size_t p, bool anywhere) {
        if (token.type == Type::Literal) {
            const std::size_t found = text.find(token.segment, p);
            return anywhere || found == p ? found : S::npos;
        }
        if (p >= text.size()) return S::npos;
        const bool member = token.segment.find(text[p]) != S::npos;
        return token.type == Type::Any || member == (token.type == Type::InSet) ? p : S::npos;
    }

    static int backIndex(const Token& token, const std::vector<Token>& tokens, const std::vector<Entry>& stack) {
        const int top = static_cast<int>(stack.size()) - 1;
        if (stack.empty() || token.factor != Factor::OneOrMore || tokens[stack.back().token] == token) return top;
        return stack.back().back;
    }
};

}  // namespace KestTest
