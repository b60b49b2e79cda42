#include "values/pattern/walk.h"

#include <algorithm>

#include "support/strings.h"

namespace KestSupport::internal {

// Left uninitialised, the few runs cost nothing; a run is written before it is read.
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
        // Looking for it costs as much as an attempt or two.
        constexpr std::size_t kFailuresBefore = 4;
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

// The first place from `from` on where the first step can take something. Tokens advance on a failure only above an
// entry, so the bottom entry always comes from the first step, also in every new start. A literal and an optional token
// are searched forward; another one has to be right there.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::nextStart(std::size_t from) const {
    const auto& steps = m_program.steps;
    const ThisStep& lead = steps.front();
    if (lead.kind == StepKind::literal) return first(lead, from);
    if (steps.size() > 1 && steps[1].isNeededLiteral()) return nextStartBefore(steps[1], from);
    if (lead.isOptional()) return first(lead, from);
    return isAt(lead, from) ? from : npos;
}

// The same when a literal that must not be left out follows a set or any character. It has to stand behind the first
// entry, at or in front of the place where that step's run ends: only entries of this run lie below it. So its first
// place decides, and the text in front of that is looked at backwards, as far as the run goes.
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
            // The search ends at the first place where such a step fails.
            if (startOfRun(lead, from, place) != from) return npos;
            return lead.isRepeated() ? from : place - 1;
        }
    }
    return npos;
}

// What an attempt matches lies behind its start, and so does what it tries and gives back.
template <typename StringType>
bool ExpressionWalk<StringType>::lacksRarest(std::size_t from) {
    if (m_program.rarest == 0) return false;
    if (m_rarestAt < from) m_rarestAt = first(m_program.steps[m_program.rarest], from);
    return m_rarestAt == npos;
}

// Tries all steps from a place where the first one can take something. After a failure, m_nextStart is the next place
// that is worth a try.
//
// When the first step is repeated, an attempt from a later place of its run would have the same entries but for the
// lowest ones. It would do the same as this one until it runs out of entries; so where this one fails, it fails. The
// same holds when the second step is repeated, for the later places of the first step from which it would end within
// that run. There, a token of one or more could pass on above the first step's entry, and not above the second's, when
// it equals the first; but the first has a factor of another kind then. A first step that is not searched forward has
// to hold at each place in between, so it goes on with the next one.
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
    if (giveBack(step) == Retry::failed) return false;
    push(step, true);
    return true;
}

template <typename StringType>
bool ExpressionWalk<StringType>::takeOneOrMore(const ThisStep& step) {
    if (!isAt(step, m_position)) {
        if (isTopEqual(step)) return true;
        const Retry retry = giveBack(step);
        if (retry != Retry::matched) return retry == Retry::skipped;
    }
    // Above another token's entry the first one of these can be given back only when that one can.
    const Run& below = top();
    push(step, isTopEqual(step) || !below.isSingle() || below.canGiveBackFirst);
    return true;
}

// Takes what the step finds at the position, where it can take something.
template <typename StringType>
void ExpressionWalk<StringType>::push(const ThisStep& step, bool canGiveBackFirst) {
    const std::size_t end = step.isRepeated() ? endOfRun(step, m_position) : m_position + step.size;
    m_runs[m_depth++] = {&step, m_position, end, canGiveBackFirst};
    m_position = end;
}

// Takes entries from the stack until the step can take something where the last of them began. The bottom entry cannot
// be given back, so the stack never becomes empty.
template <typename StringType>
auto ExpressionWalk<StringType>::giveBack(const ThisStep& step) -> Retry {
    for (;;) {
        Run& run = top();
        const std::size_t low = run.start + (run.canGiveBackFirst ? 0 : 1);
        const std::size_t high = run.isSingle() ? run.start + 1 : run.end;
        const std::size_t place = last(step, low, high);
        if (place != npos) {
            m_position = run.end = place;
            if (place == run.start) --m_depth;
            return Retry::matched;
        }
        if (!run.canGiveBackFirst) return Retry::failed;
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

// Calls the search with the test that a step for one character makes.
template <typename StringType>
template <typename Search>
std::size_t ExpressionWalk<StringType>::byCharacter(const ThisStep& step, const Search& search) {
    using CharType = typename StringType::value_type;
    if (step.kind == StepKind::any) return search([](CharType) { return true; });
    if (step.kind == StepKind::set) return search([&set = *step.set](CharType c) { return set.contains(c); });
    return search([wanted = step.token->segment.front()](CharType c) { return c == wanted; });
}

// The first place from `place` on where a step for one character fails.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::endOfRun(const ThisStep& step, std::size_t place) const {
    if (step.kind == StepKind::any) return m_text.size();
    return byCharacter(step, [&](const auto& takes) {
        while (place < m_text.size() && takes(m_text[place]))
            ++place;
        return place;
    });
}

// The first place from `low` on from which a step for one character holds up to `place`.
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

// The last place from `low` up to `high`, exclusive.
template <typename StringType>
std::size_t ExpressionWalk<StringType>::last(const ThisStep& step, std::size_t low, std::size_t high) const {
    high = std::min(high, placesFor(step.size));
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
