// The simplest search of a compiled pattern, with one entry for each match of a token. The tests compare the library's
// searches with it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "values/pattern/tokens.h"

namespace KestTest {

/// Returns the offset or npos, and sets `length` like the library's find.
template <typename S>
std::size_t findNaively(const std::vector<KestSupport::internal::ExpressionToken<S>>& tokens, const S& text,
                        std::size_t& length, std::size_t start) {
    using Type = KestSupport::internal::TokenType;
    using Factor = KestSupport::internal::TokenFactor;
    struct Entry {
        std::size_t start, length, token;
        int back;
    };
    std::vector<Entry> stack;
    std::size_t p = start;
    bool begin = false, end = false;
    for (std::size_t t = 0; t < tokens.size();) {
        const auto& [type, factor, segment, ranges] = tokens[t];
        const bool optional = factor == Factor::zeroOrOne || factor == Factor::zeroOrMore;
        const bool onTopOfEqual = !stack.empty() && tokens[stack.back().token] == tokens[t];
        std::size_t place = p, size = 0;
        if (type == Type::begin || type == Type::end) {
            (type == Type::begin ? begin : end) = true;
        } else if (type == Type::literal) {
            size = segment.size();
            place = text.find(segment, p);
            if (!stack.empty() && place != p) place = S::npos;
        } else {
            size = 1;
            const bool inside = p < text.size(), member = inside && tokens[t].hasMember(text[p]);
            if (!inside || (type == Type::inSet && !member) || (type == Type::notInSet && member)) place = S::npos;
        }
        if (place != S::npos) {
            const int top = static_cast<int>(stack.size()) - 1;
            const bool inherits = top >= 0 && factor == Factor::oneOrMore && !onTopOfEqual;
            if (type != Type::begin && type != Type::end) {
                stack.push_back({place, size, t, inherits ? stack.back().back : top});
            }
            p = place + size;
            if (size == 0 || factor == Factor::one || factor == Factor::zeroOrOne) ++t;
        } else if (stack.empty()) {
            if (!optional || p >= text.size() || ++p == text.size()) return S::npos;
        } else if (optional || (factor == Factor::oneOrMore && onTopOfEqual)) {
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
    length = p - stack.front().start;
    return (begin && stack.front().start != start) || (end && p != text.size()) ? S::npos : stack.front().start;
}

}  // namespace KestTest
