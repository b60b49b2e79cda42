// A small pattern matcher: literals, sets of characters, any character and two anchors, each of which may be repeated.
//
//   KestRegularExpression                a pattern and the searches with it, for std::string and wstring16
//   KestRegularExpressionImplementation  the engine that it holds
//
// The parts of a pattern:
//
//   abc        these characters            [a-z_]  one character of a set       ^  at the start of the search (first in
//   .          any one character           [^0-9]  one that is not in the set      the pattern; elsewhere itself)
//   \. \[ \\   the character itself        x*      none or more                 $  at the end of the text (last in the
//   \b \f \n   the control characters      x+      one or more                     pattern)
//   \r \t      8, 12, 10, 13, 9            x?      none or one
//
// A repetition applies to the one character, set or '.' before it. There are no groups, alternatives or counts. A set
// also ends at '.', '$', '[', '*', '+' or '?'; write such a member with a backslash. A '-' at the start of a set is a
// member. "\0", "\^", "\e" and "\x" are no character at all, and a character of code zero ends the literal or set that
// contains it. Characters are compared exactly; in a range, narrow ones from 0x80 on come before the others. A compiled
// pattern takes memory in proportion to its size, less than 300 bytes per character.
//
// The search is simple, and differs from that of other matchers:
//
//   - A first token that is a literal or optional is searched forward. A set or '.' that is not optional must match at
//     the start.
//   - A token takes as much as it can. If a later token fails, it takes over characters of the earlier ones, one by one
//     from the end; but no token is tried in a second way: a.c matches the first two characters of acx, because the c
//     takes over the character of the '.'.
//   - Anchors are tested once, at the first match without them: abc$ does not match abcabc.
//   - If an optional first token matches nowhere, the search finds nothing: x?abc does not match abc.
//
// A search takes at most time for the square of the text's size, times the pattern's size; usually it reads the text
// once. The memory and stack that it needs do not depend on the size of the text. It is slow only at log level 9 and
// above, where each step is logged with the whole text.
//
// Threads: searches and replacements run concurrently with each other and with setPattern; each uses the pattern that
// was set when it began. No lock is held while a record is logged.
//
// Lifetime: cannot be copied. Set a pattern once and use it often.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/locks.h"
#include "support/strings.h"

namespace KestSupport {

namespace internal {
template <typename StringType>
struct CompiledExpression;
}  // namespace internal

/// Holds the pattern and its compiled form, and searches. For the use of KestRegularExpression.
template <typename StringType>
class KEST_SUPPORT_EXPORT_TEMPLATE KestRegularExpressionImplementation {
  public:
    /// A compiled pattern, which never changes.
    using Snapshot = std::shared_ptr<const internal::CompiledExpression<StringType>>;
    /// Whether a search reports the length of a match that the begin anchor refuses, which may take longer.
    enum class Length { Always, OfMatch };

    KestRegularExpressionImplementation();
    KestRegularExpressionImplementation(const KestRegularExpressionImplementation&) = delete;
    KestRegularExpressionImplementation& operator=(const KestRegularExpressionImplementation&) = delete;
    ~KestRegularExpressionImplementation();

    /// See KestRegularExpression::setPatternImpl. Calls must not overlap.
    bool compile(const StringType& pattern, std::string& message);
    /// Returns the compiled pattern. The object never changes.
    Snapshot snapshot() const;
    /// See KestRegularExpression::find.
    std::size_t find(const StringType& text, std::size_t& length, std::size_t start, Length wanted) const;
    static std::size_t find(const Snapshot& compiled, const StringType& text, std::size_t& length, std::size_t start,
                            Length wanted);
    /// See KestRegularExpression::print.
    void print() const;

  private:
    StringType m_pattern;  // the last one that compiled; guarded by m_tokenLock
    Snapshot m_pCompiled;  // never null; guarded by m_tokenLock
    mutable KestCriticalSectionObject m_tokenLock{false};
    mutable internal::LockBias m_bias;  // for m_tokenLock
};

/// A pattern. Until one is set, searches find nothing.
template <typename StringType>
class KEST_SUPPORT_EXPORT_TEMPLATE KestRegularExpression {
  public:
    KestRegularExpression();
    KestRegularExpression(const KestRegularExpression&) = delete;
    KestRegularExpression& operator=(const KestRegularExpression&) = delete;
    ~KestRegularExpression();

    /// Replaces the pattern. Throws KestException, code 0, with one of
    ///
    ///   end token found inside expression   a '$' that is not the last character
    ///   empty set in pattern                [] or [^], or a pattern that ends after [ or [^
    ///   bad escape expression               a token that begins with a '\' which ends the pattern
    ///   bad regular expression              a '\' that ends the pattern within a token
    ///   end of expression found in pattern  a '-' that ends the pattern within a set
    ///   invalid endpoint in range           a range that ends before it begins
    ///
    /// After a failure, searches use the tokens before the error: after ab$c, those of ab. A set without a ']' ends
    /// with the pattern.
    void setPattern(const StringType& pattern);

    /// Returns the offset of the first match at or after `start`, and sets `length`; npos if there is none, or if
    /// `start` is after the end of the text. Without a match `length` is unchanged, unless only an anchor refuses a
    /// match: then it is the length of that match. At log level 9 and above the steps are logged, and an unchanged
    /// length too.
    std::size_t find(const StringType& text, std::size_t& length, std::size_t start) const;
    /// The same without the length. It is faster if a pattern with '^' does not match.
    std::size_t find(const StringType& text, std::size_t start) const;
    /// Returns the characters of the first match; empty if there is none.
    StringType match(const StringType& text, std::size_t start) const;
    /// Returns a copy of the text with the first match replaced. With mode 1, the search continues after each
    /// replacement and replaces each match; a '^' then matches the place where the search continues, and a match of no
    /// characters is the last one to be replaced. The replacement is inserted unchanged.
    StringType replace(const StringType& text, const StringType& replacement, int mode, std::size_t start) const;

    /// Logs the pattern and its tokens, if the level is exactly 9.
    void print() const;

  protected:
    /// Replaces the pattern. On failure returns false with the reason in `message`, which is unchanged otherwise.
    bool setPatternImpl(const StringType& pattern, std::string& message);

  private:
    using Engine = KestRegularExpressionImplementation<StringType>;

    Engine m_engine;
    mutable KestCriticalSectionObject m_lock{false};  // held while the pattern is set, and by replace to read it
};

extern template class KEST_SUPPORT_EXPORT_DECLARED KestRegularExpressionImplementation<std::string>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestRegularExpressionImplementation<wstring16>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestRegularExpression<std::string>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestRegularExpression<wstring16>;

}  // namespace KestSupport
