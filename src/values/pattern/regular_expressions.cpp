#include "support/regular_expressions.h"

#include <utility>
#include <vector>

#include "support/exceptions.h"
#include "sync/biased_guard.h"
#include "text/log/internal_log.h"
#include "values/pattern/program.h"
#include "values/pattern/trace.h"
#include "values/pattern/walk.h"

namespace KestSupport {

namespace internal {

template <typename StringType>
struct CompiledExpression {
    explicit CompiledExpression(std::vector<ExpressionToken<StringType>> list)
        : tokens(std::move(list)), program(tokens) {}
    CompiledExpression(const CompiledExpression&) = delete;
    CompiledExpression& operator=(const CompiledExpression&) = delete;

    const std::vector<ExpressionToken<StringType>> tokens;
    const ExpressionProgram<StringType> program;
};

}  // namespace internal

namespace {

constexpr int kReplaceAll = 1;

template <typename StringType>
std::size_t findQuickly(const internal::ExpressionProgram<StringType>& program, const StringType& text,
                        std::size_t& length, std::size_t start, bool onlyMatches) {
    internal::ExpressionWalk<StringType> walk(program, text);
    const internal::ExpressionMatch match = program.hasBegin && onlyMatches ? walk.runAtStart(start) : walk.run(start);
    if (match.offset == StringType::npos) return StringType::npos;
    length = match.length;
    const bool isRefused =
        (program.hasBegin && match.offset != start) || (program.hasEnd && match.offset + match.length != text.size());
    return isRefused ? StringType::npos : match.offset;
}

}  // namespace

template <typename StringType>
KestRegularExpressionImplementation<StringType>::KestRegularExpressionImplementation()
    : m_pCompiled(std::make_shared<internal::CompiledExpression<StringType>>(
          std::vector<internal::ExpressionToken<StringType>>())) {}

template <typename StringType>
KestRegularExpressionImplementation<StringType>::~KestRegularExpressionImplementation() = default;

template <typename StringType>
bool KestRegularExpressionImplementation<StringType>::compile(const StringType& pattern, std::string& message) {
    std::vector<internal::ExpressionToken<StringType>> tokens;
    const bool isCompiled = internal::compilePattern(pattern, tokens, message);
    StringType kept = isCompiled ? pattern : StringType();
    Snapshot compiled = std::make_shared<internal::CompiledExpression<StringType>>(std::move(tokens));
    const internal::BiasedGuard guard(m_bias, m_tokenLock);
    // The old tokens are freed after the lock is released.
    m_pCompiled.swap(compiled);
    if (isCompiled) m_pattern.swap(kept);
    return isCompiled;
}

template <typename StringType>
auto KestRegularExpressionImplementation<StringType>::snapshot() const -> Snapshot {
    const internal::BiasedGuard guard(m_bias, m_tokenLock);
    return m_pCompiled;
}

// For a short search the owner of the lock keeps it, since the two counts of a reference would take a third of the
// time. A thread that sets a pattern then waits for the end of the search, of at most 65,536 times the pattern's size.
template <typename StringType>
std::size_t KestRegularExpressionImplementation<StringType>::find(const StringType& text, std::size_t& length,
                                                                  std::size_t start, Length wanted) const {
    constexpr std::size_t kShortText = 256;
    Snapshot compiled;
    {
        const internal::BiasedGuard guard(m_bias, m_tokenLock);
        const auto& program = m_pCompiled->program;
        const bool isAtStart = program.hasBegin && wanted == Length::OfMatch;
        const std::size_t most = isAtStart ? kShortText * kShortText : kShortText;
        if (guard.isOwner() && text.size() <= most && program.steps.size() <= internal::kFewSteps &&
            !internal::isLogged(internal::kExpressionTraceLevel)) {
            return findQuickly(program, text, length, start, wanted == Length::OfMatch);
        }
        compiled = m_pCompiled;
    }
    return find(compiled, text, length, start, wanted);
}

template <typename StringType>
std::size_t KestRegularExpressionImplementation<StringType>::find(const Snapshot& compiled, const StringType& text,
                                                                  std::size_t& length, std::size_t start,
                                                                  Length wanted) {
    if (!internal::isLogged(internal::kExpressionTraceLevel)) {
        return findQuickly(compiled->program, text, length, start, wanted == Length::OfMatch);
    }
    const std::size_t offset = internal::findWithTrace(compiled->tokens, text, length, start);
    internal::logRecord(internal::kExpressionTraceLevel, "KestRegularExpressionImplementation::find: match found at ",
                        static_cast<std::int64_t>(offset), ":", length);
    return offset;
}

// Logs after the lock is released: a thread that searches while its log record is open may wait for this lock.
template <typename StringType>
void KestRegularExpressionImplementation<StringType>::print() const {
    if (!internal::isLogLevel(internal::kExpressionTraceLevel)) return;
    StringType pattern;
    Snapshot compiled;
    {
        const internal::BiasedGuard guard(m_bias, m_tokenLock);
        pattern = m_pattern;
        compiled = m_pCompiled;
    }
    internal::logRecord(internal::kExpressionTraceLevel, "regular expression: ", pattern);
    for (const auto& token : compiled->tokens)
        internal::traceToken(token);
}

template <typename StringType>
KestRegularExpression<StringType>::KestRegularExpression() = default;

template <typename StringType>
KestRegularExpression<StringType>::~KestRegularExpression() = default;

template <typename StringType>
void KestRegularExpression<StringType>::setPattern(const StringType& pattern) {
    std::string message;
    if (!setPatternImpl(pattern, message)) throw KestException(message, 0);
}

template <typename StringType>
bool KestRegularExpression<StringType>::setPatternImpl(const StringType& pattern, std::string& message) {
    const KestCriticalSection guard(m_lock, true);
    return m_engine.compile(pattern, message);
}

template <typename StringType>
std::size_t KestRegularExpression<StringType>::find(const StringType& text, std::size_t& length,
                                                    std::size_t start) const {
    return m_engine.find(text, length, start, Engine::Length::Always);
}

template <typename StringType>
std::size_t KestRegularExpression<StringType>::find(const StringType& text, std::size_t start) const {
    std::size_t length = 0;
    return m_engine.find(text, length, start, Engine::Length::OfMatch);
}

template <typename StringType>
StringType KestRegularExpression<StringType>::match(const StringType& text, std::size_t start) const {
    std::size_t length = 0;
    const std::size_t offset = m_engine.find(text, length, start, Engine::Length::OfMatch);
    return offset == StringType::npos ? StringType() : text.substr(offset, length);
}

template <typename StringType>
StringType KestRegularExpression<StringType>::replace(const StringType& text, const StringType& replacement, int mode,
                                                      std::size_t start) const {
    KestCriticalSection guard(m_lock, true);
    const auto compiled = m_engine.snapshot();
    // Released before traces are logged: a thread whose log record is open may wait for this lock.
    guard.unlock();
    // With traces, each search reads the text as replaced so far, which the traces show. Otherwise the result is built
    // in one pass: a search reads nothing before its start, so it finds the same in the original text.
    const bool isTraced = internal::isLogged(internal::kExpressionTraceLevel);
    StringType searched = isTraced ? text : StringType();
    StringType result;
    std::size_t copied = 0;
    std::size_t length = 0;
    do {
        const std::size_t offset =
            Engine::find(compiled, isTraced ? searched : text, length, start, Engine::Length::OfMatch);
        if (offset == StringType::npos) break;
        if (isTraced) {
            searched.replace(offset, length, replacement);
            start = offset + replacement.size();
        } else {
            result.append(text, copied, offset - copied).append(replacement);
            start = copied = offset + length;
        }
    } while (mode == kReplaceAll && length > 0);
    return isTraced ? searched : result.append(text, copied);
}

template <typename StringType>
void KestRegularExpression<StringType>::print() const {
    m_engine.print();
}

template class KEST_SUPPORT_EXPORT_DEFINED KestRegularExpressionImplementation<std::string>;
template class KEST_SUPPORT_EXPORT_DEFINED KestRegularExpressionImplementation<wstring16>;
template class KEST_SUPPORT_EXPORT_DEFINED KestRegularExpression<std::string>;
template class KEST_SUPPORT_EXPORT_DEFINED KestRegularExpression<wstring16>;

}  // namespace KestSupport
