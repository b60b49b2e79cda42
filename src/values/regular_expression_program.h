// A compiled pattern in the form in which the walk reads it: the tokens that take characters, as steps, with whatever
// makes them quick to try.
//
// Threads: nothing changes after construction, so any number may read. Lifetime: the program refers to the tokens that
// it was made from.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>
#include <vector>

#include "values/literal_search.h"
#include "values/regular_expression_tokens.h"

namespace KestSupport::internal {

/// The characters that a set takes, negation included.
template <typename CharT>
class CharacterSet {
  public:
    CharacterSet(std::basic_string_view<CharT> members, bool isNegated) : m_isNegated(isNegated) {
        m_low.fill(isNegated);
        for (const CharT member : members) {
            const Code code = static_cast<Code>(member);
            if (code < kLow) {
                m_low[code] = !isNegated;
            } else {
                if (m_high.empty()) m_high.resize(65536, false);
                m_high[code] = true;
            }
        }
    }

    bool contains(CharT c) const {
        const Code code = static_cast<Code>(c);
        if (sizeof(CharT) == 1 || code < kLow) return m_low[code];
        return (!m_high.empty() && m_high[code]) != m_isNegated;
    }

  private:
    using Code = std::make_unsigned_t<CharT>;
    static constexpr unsigned kLow = 256;

    std::array<bool, kLow> m_low;
    std::vector<bool> m_high;  // the members of all codes, when any is not low
    bool m_isNegated;
};

enum class StepKind : std::uint8_t { Literal, Set, Any };

/// A token that takes characters.
template <typename StringType>
struct Step {
    using CharType = typename StringType::value_type;

    explicit Step(const ExpressionToken<StringType>& from);

    bool isOptional() const {
        return token->factor == TokenFactor::ZeroOrOne || token->factor == TokenFactor::ZeroOrMore;
    }
    /// Takes as many as there are. A token that takes no characters never does, as it would not come to an end.
    bool isRepeated() const {
        return size == 1 && (token->factor == TokenFactor::ZeroOrMore || token->factor == TokenFactor::OneOrMore);
    }
    /// A match needs this literal at some place: to go on behind it, the walk has to have found it at least once.
    bool isNeededLiteral() const { return kind == StepKind::Literal && size > 0 && !isOptional(); }

    const ExpressionToken<StringType>* token;
    StepKind kind;
    std::size_t size;                             ///< of what it takes at once; 1 unless it is a literal
    LiteralSearch<CharType> literal;              ///< for a literal of any characters
    std::unique_ptr<CharacterSet<CharType>> set;  ///< for a set
};

template <typename StringType>
struct ExpressionProgram {
    explicit ExpressionProgram(const std::vector<ExpressionToken<StringType>>& tokens);

    std::vector<Step<StringType>> steps;
    bool hasBegin = false;
    bool hasEnd = false;
    /// Index of the step behind the first whose literal is needed and promises to be the rarest; 0 for none.
    std::size_t rarest = 0;
};

}  // namespace KestSupport::internal
