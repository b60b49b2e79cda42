#include "values/pattern/program.h"

#include "support/strings.h"

namespace KestSupport::internal {
namespace {

StepKind kindOf(TokenType type) {
    if (type == TokenType::literal) return StepKind::literal;
    return type == TokenType::any ? StepKind::any : StepKind::set;
}

}  // namespace

template <typename CharT>
CharacterSet<CharT>::CharacterSet(const std::vector<CharacterRange<CharT>>& ranges, bool isNegated)
    : m_isNegated(isNegated) {
    m_low.fill(isNegated);
    for (const CharacterRange<CharT>& range : ranges) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): narrow characters are ordered as signed values
        for (int place = range.first; place <= range.last; ++place) {
            const auto code = static_cast<unsigned>(static_cast<Code>(place));
            if (code >= kLow) {
                m_high.push_back({code, static_cast<unsigned>(range.last)});
                break;
            }
            m_low[code] = !isNegated;
        }
    }
    orderHighRanges();
    if (m_high.size() < kManyRanges) return;
    m_bits.resize(65536);
    for (const HighRange& range : m_high)
        std::fill(m_bits.begin() + range.first, m_bits.begin() + range.last + 1, true);
    m_high = {};
}

// Sorts the ranges and joins those that overlap.
template <typename CharT>
void CharacterSet<CharT>::orderHighRanges() {
    std::sort(m_high.begin(), m_high.end(), [](const HighRange& a, const HighRange& b) { return a.first < b.first; });
    std::size_t count = 0;
    for (const HighRange& range : m_high) {
        if (count > 0 && range.first <= m_high[count - 1].last) {
            m_high[count - 1].last = std::max(m_high[count - 1].last, range.last);
        } else {
            m_high[count++] = range;
        }
    }
    m_high.resize(count);
    m_high.shrink_to_fit();
}

template <typename StringType>
Step<StringType>::Step(const ExpressionToken<StringType>& from)
    : token(&from), kind(kindOf(from.type)), size(kind == StepKind::literal ? from.segment.size() : 1) {
    if (kind == StepKind::literal && size > 0) literal = LiteralSearch<CharType>(from.segment);
    if (kind == StepKind::set) {
        set = std::make_unique<CharacterSet<CharType>>(from.ranges, from.type == TokenType::notInSet);
        const bool isOne = from.ranges.size() == 1 && from.ranges[0].first == from.ranges[0].last;
        if (isOne && from.type == TokenType::notInSet) onlyOther = static_cast<CharType>(from.ranges[0].first);
    }
}

template <typename StringType>
ExpressionProgram<StringType>::ExpressionProgram(const std::vector<ExpressionToken<StringType>>& tokens) {
    steps.reserve(tokens.size());
    for (const ExpressionToken<StringType>& token : tokens) {
        if (token.type == TokenType::begin) {
            hasBegin = true;
        } else if (token.type == TokenType::end) {
            hasEnd = true;
        } else {
            steps.emplace_back(token);
        }
    }
    for (std::size_t i = 1; i < steps.size(); ++i) {
        if (!steps[i].isNeededLiteral()) continue;
        if (rarest == 0 || steps[i].literal.rarity() > steps[rarest].literal.rarity()) rarest = i;
    }
}

template struct Step<std::string>;
template struct Step<wstring16>;
template struct ExpressionProgram<std::string>;
template struct ExpressionProgram<wstring16>;

}  // namespace KestSupport::internal
