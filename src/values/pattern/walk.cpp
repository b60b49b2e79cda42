#include "values/pattern/walk.h"

#include <algorithm>

#include "support/strings.h"

namespace KestSupport::internal {

// m_few stays uninitialised, which costs nothing: each run is written before it is read.
template <typename StringType>
ExpressionWalk<StringType>::ExpressionWalk(const ExpressionProgram<StringType>& program, View text)
    : m_program(program), m_text(text), m_runs(m_few) {
    if (program.steps.size() <= kFewSteps) return;
    m_many = std::make_unique<Run[]>(program.steps.size());
    m_runs = m_many.get();
}

template <typename StringType>
ExpressionMatch ExpressionWalk<StringType>::run(std::size_t start) {
    if (m_program.steps.empty() || start > m_text.size()) return {};
    for (std::size_t place = nextStart(start); place != npos; place = nextStart(m_nextStart)) {
        // The search for the rarest literal costs as much as one or two attempts.
        constexpr std::size_t kFailuresBefore = 2;
        if (m_failures >= kFailuresBefore && lacksRarest(place)) return {};
        if (attempt(place)) return {place, m_position - place};
        ++m_failures;
    }
    return {};
}

template <typename StringType>
ExpressionMatch ExpressionWalk<StringType>::runAtStart(std::size_t start) {
    if (m_program.steps.empty() || start > m_text.size()) return {};
    if (!isAt(m_program.steps.front(), start) || !attempt(start)) return {};
    return {start, m_position - start};
}

// Returns the first place from `from` on where the first step can take something. A token that fails is skipped only if
// the stack has an entry, so the bottom entry is always that of the first step, also after a restart. A literal and an
// optional token are searched forward; any other token must match at `from`.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::nextStart(std::size_t from) const {
    const auto& steps = m_program.steps;
    const ThisStep& lead = steps.front();
    if (lead.kind == StepKind::literal) return first(lead, from);
    if (steps.size() > 1 && steps[1].isNeededLiteral()) return nextStartBefore(steps[1], from);
    if (lead.isOptional()) return first(lead, from);
    return isAt(lead, from) ? from : npos;
}

// The same if a literal that is not optional follows a set or any character. The literal must begin after the first
// entry and not after the end of the first step's run: below it there are only entries of this run. So the first place
// of the literal decides, and the run is read backwards from there.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::nextStartBefore(const ThisStep& follower, std::size_t from) const {
    const ThisStep& lead = m_program.steps.front();
    while (from < m_text.size()) {
        const std::size_t place = first(follower, from + 1);
        if (place == npos) return npos;
        if (lead.isOptional()) {
            const std::size_t low = lead.isRepeated() ? from : place - 1;
            const std::size_t start = startOfRun(lead, low, place);
            if (start != place) return start;
            from = place;
        } else {
            // A first step that is not optional ends the search where it fails.
            if (startOfRun(lead, from, place) != from) return npos;
            return lead.isRepeated() ? from : place - 1;
        }
    }
    return npos;
}

// An attempt reads no text before its start, so it cannot match if the rarest literal is not there.
template <typename StringType>
bool ExpressionWalk<StringType>::lacksRarest(std::size_t from) {
    if (m_program.rarest == 0) return false;
    if (m_rarestAt < from) m_rarestAt = first(m_program.steps[m_program.rarest], from);
    return m_rarestAt == npos;
}

// Tries all steps from a place where the first one can take something. After a failure, m_nextStart is the next place
// that is worth an attempt:
//
//   first step repeated    The end of its run. An attempt from a later place of the run has the same entries except the
//                          lowest ones, and does the same until it has no entry left; so it fails too.
//   second step repeated   The first place from which the first step ends after the second one's run, for the same
//                          reason. Only a token that is equal to the first step could differ, by a "one or more" that
//                          is skipped above an entry of an equal token; but here the first step is not repeated.
//   otherwise              The next place.
//
// The second row needs a first step that is searched forward. Any other one must match at each place in between.
template <typename StringType>
bool ExpressionWalk<StringType>::attempt(std::size_t start) {
    const auto& steps = m_program.steps;
    const ThisStep& lead = steps.front();
    m_depth = 0;
    m_position = start;
    push(lead, false);
    m_nextStart = lead.isRepeated() ? m_position : start + 1;
    const bool isSearched = lead.kind == StepKind::literal || lead.isOptional();
    for (std::size_t i = 1; i < steps.size(); ++i) {
        if (!take(steps[i])) return false;
        if (i == 1 && isSearched && !lead.isRepeated() && steps[1].isRepeated()) {
            m_nextStart = m_position + 1 - lead.size;
        }
    }
    return true;
}

template <typename StringType>
bool ExpressionWalk<StringType>::take(const ThisStep& step) {
    if (step.token->factor == TokenFactor::oneOrMore) return takeOneOrMore(step);
    if (isAt(step, m_position)) {
        push(step, true);
        return true;
    }
    if (step.isOptional()) return true;
    if (backtrack(step) == Retry::failed) return false;
    push(step, true);
    return true;
}

template <typename StringType>
bool ExpressionWalk<StringType>::takeOneOrMore(const ThisStep& step) {
    if (!isAt(step, m_position)) {
        if (isTopEqual(step)) return true;
        const Retry retry = backtrack(step);
        if (retry != Retry::matched) return retry == Retry::skipped;
    }
    // Above an entry of another token, the first of these entries can be removed only if that one can.
    const Run& below = top();
    push(step, isTopEqual(step) || !below.isSingle() || below.canRemoveFirst);
    return true;
}

// Records what the step takes at the position. The caller has checked that it takes something.
template <typename StringType>
void ExpressionWalk<StringType>::push(const ThisStep& step, bool canRemoveFirst) {
    const std::size_t end = step.isRepeated() ? endOfRun(step, m_position) : m_position + step.size;
    m_runs[m_depth++] = {&step, m_position, end, canRemoveFirst};
    m_position = end;
}

// Removes entries until the step can take something where the last removed one began. The bottom entry is never
// removed, so the stack never becomes empty.
template <typename StringType>
auto ExpressionWalk<StringType>::backtrack(const ThisStep& step) -> Retry {
    for (;;) {
        Run& run = top();
        const std::size_t low = run.start + (run.canRemoveFirst ? 0 : 1);
        const std::size_t high = run.isSingle() ? run.start + 1 : run.end;
        const std::size_t place = last(step, low, high);
        if (place != npos) {
            m_position = run.end = place;
            if (place == run.start) --m_depth;
            return Retry::matched;
        }
        if (!run.canRemoveFirst) return Retry::failed;
        m_position = run.start;
        --m_depth;
        if (step.token->factor == TokenFactor::oneOrMore && isTopEqual(step)) return Retry::skipped;
    }
}

template <typename StringType>
bool ExpressionWalk<StringType>::isAt(const ThisStep& step, std::size_t place) const {
    if (step.size > m_text.size() - place) return false;
    switch (step.kind) {
        case StepKind::set:
            return step.set->contains(m_text[place]);
        case StepKind::literal:
            return step.size == 0 || step.literal.isAt(m_text.data() + place);
        default:
            return true;
    }
}

// Calls the search with the test of a step for one character.
template <typename StringType>
template <typename Search>
std::size_t ExpressionWalk<StringType>::byCharacter(const ThisStep& step, const Search& search) {
    using CharType = typename StringType::value_type;
    if (step.kind == StepKind::any) return search([](CharType) { return true; });
    if (step.kind == StepKind::set) return search([&set = *step.set](CharType c) { return set.contains(c); });
    return search([wanted = step.token->segment.front()](CharType c) { return c == wanted; });
}

// Returns the first place from `place` on where a step for one character fails.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::endOfRun(const ThisStep& step, std::size_t place) const {
    if (step.kind == StepKind::any) return m_text.size();
    // A search for one character reads 16 bytes and more at once: a line of 70 characters takes 8 instead of 40 ns.
    if (step.onlyOther) return std::min(m_text.find(*step.onlyOther, place), m_text.size());
    return byCharacter(step, [&](const auto& takes) {
        while (place < m_text.size() && takes(m_text[place]))
            ++place;
        return place;
    });
}

// Returns the first place from `low` on from which a step for one character matches up to `place`.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::startOfRun(const ThisStep& step, std::size_t low, std::size_t place) const {
    if (step.kind == StepKind::any) return low;
    return byCharacter(step, [&](const auto& takes) {
        while (place > low && takes(m_text[place - 1]))
            --place;
        return place;
    });
}

template <typename StringType>
std::size_t ExpressionWalk<StringType>::first(const ThisStep& step, std::size_t from) const {
    const std::size_t end = placesFor(step.size);
    if (from >= end) return npos;
    if (step.size == 0) return from;
    if (step.kind == StepKind::literal) return step.literal.first(m_text.data(), from, end);
    return byCharacter(step, [&](const auto& takes) {
        while (from < end && !takes(m_text[from]))
            ++from;
        return from < end ? from : npos;
    });
}

// Returns the last place from `low` up to, but not including, `high`.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::last(const ThisStep& step, std::size_t low, std::size_t high) const {
    high = std::min(high, placesFor(step.size));
    // The search for the rarest literal has found none from the start up to m_rarestAt.
    if (&step == &m_program.steps[m_program.rarest]) low = std::max(low, m_rarestAt);
    if (low >= high) return npos;
    if (step.size == 0) return high - 1;
    if (step.kind == StepKind::literal) return step.literal.last(m_text.data(), low, high);
    return byCharacter(step, [&](const auto& takes) {
        while (high > low && !takes(m_text[high - 1]))
            --high;
        return high > low ? high - 1 : npos;
    });
}

template class ExpressionWalk<std::string>;
template class ExpressionWalk<wstring16>;

}  // namespace KestSupport::internal
