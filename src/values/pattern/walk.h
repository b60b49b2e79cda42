// The search of a compiled pattern in a text.
//
// The walk tries the tokens one after the other and keeps what each of them took on a stack. A token that fails takes
// back what others have, entry by entry, and is tried again where that began; when nothing more can be given back, the
// walk starts anew, one character behind the start of its first entry. A token never returns to an earlier one.
//
// Two things make it quick. What one token took in a row lies on the stack as one run, so that greedy tokens and giving
// back become searches in the text. And starts that cannot lead to a match are passed over; why they cannot is said
// where that is done.
//
// Time: a start costs at most the text's size times the pattern's, since each token adds one run and gives back what is
// there once; so a search costs at most the square of the text's size times the pattern's. Memory: one run for each
// token.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "support/strings.h"
#include "values/pattern/program.h"

namespace KestSupport::internal {

struct ExpressionMatch {
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    std::size_t offset = npos;  ///< npos for no match
    std::size_t length = 0;
};

/// One search. Made for one call of run.
template <typename StringType>
class ExpressionWalk {
  public:
    using View = basic_text_view<typename StringType::value_type>;

    ExpressionWalk(const ExpressionProgram<StringType>& program, View text);

    /// The match that the walk from `start` comes to, whatever the anchors say of it.
    ExpressionMatch run(std::size_t start);
    /// The same, but none when it does not begin at `start`.
    ExpressionMatch runAtStart(std::size_t start);

  private:
    static constexpr std::size_t npos = ExpressionMatch::npos;
    using ThisStep = Step<StringType>;

    /// What one token took: one character in each entry, or all in one.
    struct Run {
        const ThisStep* step;
        std::size_t start;
        std::size_t end;
        bool canGiveBackFirst;  // the entries behind the first can be given back in any case

        bool isSingle() const { return step->size != 1 || end - start == 1; }
    };
    enum class Retry { matched, skipped, failed };

    std::size_t nextStart(std::size_t from) const;
    std::size_t nextStartBefore(const ThisStep& follower, std::size_t from) const;
    bool lacksRarest(std::size_t from);
    bool attempt(std::size_t start);
    bool take(const ThisStep& step);
    bool takeOneOrMore(const ThisStep& step);
    void push(const ThisStep& step, bool canGiveBackFirst);
    Retry giveBack(const ThisStep& step);
    bool isTopEqual(const ThisStep& step) const { return *top().step->token == *step.token; }
    Run& top() { return m_runs[m_depth - 1]; }
    const Run& top() const { return m_runs[m_depth - 1]; }

    bool isAt(const ThisStep& step, std::size_t place) const;
    template <typename Search>
    static std::size_t byCharacter(const ThisStep& step, const Search& search);
    std::size_t endOfRun(const ThisStep& step, std::size_t place) const;
    std::size_t startOfRun(const ThisStep& step, std::size_t low, std::size_t place) const;
    std::size_t first(const ThisStep& step, std::size_t from) const;
    std::size_t last(const ThisStep& step, std::size_t low, std::size_t high) const;
    std::size_t placesFor(std::size_t size) const { return m_text.size() < size ? 0 : m_text.size() - size + 1; }

    static constexpr std::size_t kFewSteps = 12;

    const ExpressionProgram<StringType>& m_program;
    const View m_text;
    std::size_t m_position = 0;
    std::size_t m_nextStart = 0;  // where to go on after an attempt that failed
    std::size_t m_rarestAt = 0;   // the first place of the rarest literal that does not lie before the start
    std::size_t m_failures = 0;   // attempts that failed
    std::size_t m_depth = 0;
    Run* m_runs;  // the stack
    Run m_few[kFewSteps];
    std::unique_ptr<Run[]> m_many;
};

}  // namespace KestSupport::internal
