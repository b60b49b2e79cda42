// The search of a compiled pattern in a text.
//
// The walk tries the tokens in order. A stack has one entry for each repetition of a token, with the characters that it
// took. If a token fails, the walk removes the top entry and tries the token where that entry began, and so on. It
// never removes the bottom entry: instead it restarts one character after the start of that entry. It never returns to
// an earlier token. For the pattern .*abc and the text xxabcyy:
//
//   .*    takes xxabcyy, in seven entries
//   abc   fails at the end; the walk removes the entries of y, y, c, b and a, and abc matches where that a began
//
// Two things make it fast. Consecutive entries of one token are stored as one run, so that repetitions and the removal
// of entries become searches in the text. And starts that cannot lead to a match are skipped; the functions that skip
// them give the reasons.
//
// Time: one start costs at most the text's size times the pattern's, since each token adds one run and removes each
// entry below it once. So a search costs at most the square of the text's size times the pattern's. Memory: one run for
// each token.
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

/// A walk of a pattern with at most this number of steps allocates no memory.
inline constexpr std::size_t kFewSteps = 12;

/// One search: one call of run or runAtStart.
template <typename StringType>
class ExpressionWalk {
  public:
    using View = basic_text_view<typename StringType::value_type>;

    ExpressionWalk(const ExpressionProgram<StringType>& program, View text);

    /// Returns the match of the walk from `start`. The anchors are not tested.
    ExpressionMatch run(std::size_t start);
    /// The same, but no match if it does not begin at `start`.
    ExpressionMatch runAtStart(std::size_t start);

  private:
    static constexpr std::size_t npos = ExpressionMatch::npos;
    using ThisStep = Step<StringType>;

    /// The entries of one token: one for each character, or a single one.
    struct Run {
        const ThisStep* step;
        std::size_t start;
        std::size_t end;
        bool canRemoveFirst;  // the entries after the first can always be removed

        bool isSingle() const { return step->size != 1 || end - start == 1; }
    };
    enum class Retry { matched, skipped, failed };

    std::size_t nextStart(std::size_t from) const;
    std::size_t nextStartBefore(const ThisStep& follower, std::size_t from) const;
    bool lacksRarest(std::size_t from);
    bool attempt(std::size_t start);
    bool take(const ThisStep& step);
    bool takeOneOrMore(const ThisStep& step);
    void push(const ThisStep& step, bool canRemoveFirst);
    Retry backtrack(const ThisStep& step);
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

    const ExpressionProgram<StringType>& m_program;
    const View m_text;
    std::size_t m_position = 0;
    std::size_t m_nextStart = 0;  // the next start after a failed attempt
    std::size_t m_rarestAt = 0;   // the rarest literal is not from the start up to here; 0 if the walk has not searched
    std::size_t m_failures = 0;   // failed attempts
    std::size_t m_depth = 0;
    Run* m_runs;  // the stack
    Run m_few[kFewSteps];
    std::unique_ptr<Run[]> m_many;
};

}  // namespace KestSupport::internal
