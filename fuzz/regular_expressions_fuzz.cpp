// Compiles a pattern of any bytes and searches a text of any bytes; a zero byte separates them. A match must be inside
// the text, be found again, and be the one that the naive search finds, if that search is not too slow.
#include <support/regular_expressions.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "values/naive_expression_matcher.h"

namespace {

void requireThat(bool condition) {
    if (!condition) std::abort();
}

template <typename StringType>
struct Expression : KestSupport::KestRegularExpression<StringType> {
    using KestSupport::KestRegularExpression<StringType>::setPatternImpl;
};

template <typename StringType>
void search(const StringType& pattern, const StringType& text) {
    constexpr std::size_t kUntouched = 12345;
    std::vector<KestSupport::internal::ExpressionToken<StringType>> tokens;
    std::string message;
    Expression<StringType> expression;
    requireThat(expression.setPatternImpl(pattern, message) == message.empty());
    std::string again;
    requireThat(KestSupport::internal::compilePattern(pattern, tokens, again) == again.empty() && again == message);

    std::size_t length = kUntouched;
    const std::size_t offset = expression.find(text, length, 0);
    requireThat(offset == expression.find(text, 0));
    if (offset != StringType::npos) {
        requireThat(offset <= text.size() && length <= text.size() - offset);
        requireThat(expression.match(text, 0) == text.substr(offset, length));
    }
    expression.replace(text, StringType(2, 'a'), 1, 0);

    // The naive search reads all ranges of a set for each character.
    std::size_t ranges = 0;
    for (const auto& token : tokens)
        ranges += token.segment.size() + token.ranges.size();
    requireThat(ranges <= pattern.size());
    if (text.size() * text.size() * ranges > 10'000'000) return;
    std::size_t naiveLength = kUntouched;
    requireThat(offset == KestTest::findNaively(tokens, text, naiveLength, 0));
    requireThat(length == naiveLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::uint8_t* const end = data + size;
    const std::uint8_t* const zero = std::find(data, end, 0);
    const std::uint8_t* const text = zero == end ? end : zero + 1;
    search(std::string(data, zero), std::string(text, end));
    // Every third code becomes a high one, so that sets have low and high members.
    const auto widened = [](const std::uint8_t* first, const std::uint8_t* last) {
        KestSupport::wstring16 result(first, last);
        for (unsigned short& unit : result)
            unit = static_cast<unsigned short>(unit >= 0x80 && unit % 3 == 0 ? unit << 8 : unit);
        return result;
    };
    search(widened(data, zero), widened(text, end));
    return 0;
}
