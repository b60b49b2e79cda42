#include "values/regular_expression_program.h"

#include "support/strings.h"

namespace KestSupport::internal {
namespace {

StepKind kindOf(TokenType type) {
    if (type == TokenType::Literal) return StepKind::Literal;
    return type == TokenType::Any ? StepKind::Any : StepKind::Set;
}

}  // namespace

template <typename StringType>
Step<StringType>::Step(const ExpressionToken<StringType>& from)
    : token(&from), kind(kindOf(from.type)), size(kind == StepKind::Literal ? from.segment.size() : 1) {
    if (kind == StepKind::Literal && size > 0) literal = LiteralSearch<CharType>(from.segment);
    if (kind == StepKind::Set) {
        set = std::make_unique<CharacterSet<CharType>>(from.segment, from.type == TokenType::NotInSet);
    }
}

template <typename StringType>
ExpressionProgram<StringType>::ExpressionProgram(const std::vector<ExpressionToken<StringType>>& tokens) {
    steps.reserve(tokens.size());
    for (const ExpressionToken<StringType>& token : tokens) {
        if (token.type == TokenType::Begin) {
            hasBegin = true;
        } else if (token.type == TokenType::End) {
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
