// A compiled pattern in the form that the walk reads: each token that takes characters is a step, with the data that
// make it fast to try.
//
// Threads: nothing changes after construction, so any number of threads may read. Lifetime: the program refers to the
// tokens that it was made from.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "values/pattern/literal_search.h"
#include "values/pattern/tokens.h"

namespace KestSupport::internal {

/// The characters that a set takes, negation included. Low codes have a table. High codes have ordered ranges, or one
/// bit each if there are kManyRanges ranges or more.
template <typename CharT>
class CharacterSet {
  public:
    CharacterSet(const std::vector<CharacterRange<CharT>>& ranges, bool isNegated);

    bool contains(CharT c) const {
        const Code code = static_cast<Code>(c);
        if (sizeof(CharT) == 1 || code < kLow) return m_low[code];
        return isHighMember(code) != m_isNegated;
    }

  private:
    using Code = std::make_unsigned_t<CharT>;
    struct HighRange {
        unsigned first;
        unsigned last;
    };
    static constexpr unsigned kLow = 256;
    static constexpr std::size_t kManyRanges = 64;

    bool isHighMember(unsigned code) const {
        if (!m_bits.empty()) return m_bits[code];
        // The first range that does not end before the code.
        const auto range = std::lower_bound(m_high.begin(), m_high.end(), code,
                                            [](const HighRange& each, unsigned c) { return each.last < c; });
        return range != m_high.end() && range->first <= code;
    }
    void orderHighRanges();

    std::array<bool, kLow> m_low;
    std::vector<HighRange> m_high;  // members that are not low: in order, without overlap
    std::vector<bool> m_bits;       // replaces m_high if there are many
    bool m_isNegated;
};

enum class StepKind : std::uint8_t { literal, set, any };

/// A token that takes characters.
template <typename StringType>
struct Step {
    using CharType = typename StringType::value_type;

    explicit Step(const ExpressionToken<StringType>& from);

    bool isOptional() const {
        return token->factor == TokenFactor::zeroOrOne || token->factor == TokenFactor::zeroOrMore;
    }
    /// Takes as many characters as match. A token without characters is not repeated: that would never end.
    bool isRepeated() const {
        return size == 1 && (token->factor == TokenFactor::zeroOrMore || token->factor == TokenFactor::oneOrMore);
    }
    /// Every match needs this literal: the walk continues after it only if it has found it at least once.
    bool isNeededLiteral() const { return kind == StepKind::literal && size > 0 && !isOptional(); }

    const ExpressionToken<StringType>* token;
    StepKind kind;
    std::size_t size;                             ///< characters that it takes at once; 1 unless it is a literal
    LiteralSearch<CharType> literal;              ///< for a literal that is not empty
    std::unique_ptr<CharacterSet<CharType>> set;  ///< for a set
    std::optional<CharType> onlyOther;            ///< for a set of all characters but one, like [^;]
};

template <typename StringType>
struct ExpressionProgram {
    explicit ExpressionProgram(const std::vector<ExpressionToken<StringType>>& tokens);

    std::vector<Step<StringType>> steps;
    bool hasBegin = false;
    bool hasEnd = false;
    /// Index of the later step whose needed literal has the rarest character; 0 if no later step needs a literal.
    std::size_t rarest = 0;
};

}  // namespace KestSupport::internal
