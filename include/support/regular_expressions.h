// A small pattern matcher: literals, sets of characters, any character and two anchors, each of which may be repeated.
//
//   KestRegularExpression                a pattern and the searches with it; made for std::string and wstring16
//   KestRegularExpressionImplementation  the engine that it holds
//
// What stands in a pattern:
//
//   abc        these characters            [a-z_]  one character of a set       ^  at the start of the search (first in
//   .          any one character           [^0-9]  one that is not in the set      the pattern; elsewhere itself)
//   \. \[ \\   the character itself        x*      none or more                 $  at the end of the text (last in the
//   \b \f \n   the control characters      x+      one or more                     pattern)
//   \r \t      8, 12, 10, 13, 9            x?      none or one
//
// A repetition belongs to the one character, set or '.' in front of it. There are no groups, no alternatives and no
// counts. Sets end at a '.', '$', '[', '*', '+' or '?' too; such a member is written with a backslash. A '-' that
// begins a set is a member. "\0", "\^", "\e" and "\x" stand for no character at all, and a character of code zero ends
// the literal or set that it stands in. Characters are compared exactly; in a range, narrow ones from 0x80 on come
// before the others. A compiled pattern takes memory in proportion to its size, less than 300 bytes per character.
//
// The search is a simple one, and differs from that of other matchers:
//
//   - A first token that is a literal or optional is searched for forward; a set or '.' that has to be there, alone or
//     with '+', must match right at the start.
//   - Tokens are greedy and give back one by one, but no token is tried in another way once it has been passed: a.c
//     matches the first two characters of acx, since the c takes back what the '.' had.
//   - Anchors are tested once, at the first match without them: abc$ does not match abcabc.
//   - Where an optional first token fits nothing at all, nothing is found: x?abc does not match abc.
//
// A search takes time for at most the square of the text's size, times the pattern's; mostly, it reads the text once.
// It takes neither memory nor stack for the text's size. Only at log level 9, which tells each step with the whole
// text, is it slow.
//
// Threads: searches and replacements run concurrently with each other and with setPattern; each uses the pattern that
// was there when it began. No lock is held while a record is logged.
//
// Lifetime: not copied; a pattern is set once and used often.
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

/// Holds the pattern and what it was compiled into, and searches. For KestRegularExpression's use.
template <typename StringType>
class KEST_SUPPORT_EXPORT KestRegularExpressionImplementation {
  public:
    using Snapshot = std::shared_ptr<const internal::CompiledExpression<StringType>>;
    /// Whether a search tells the length of what the begin anchor refuses, for which it may have to look further.
    enum class Length { Always, OfMatch };

    KestRegularExpressionImplementation();
    KestRegularExpressionImplementation(const KestRegularExpressionImplementation&) = delete;
    KestRegularExpressionImplementation& operator=(const KestRegularExpressionImplementation&) = delete;
    ~KestRegularExpressionImplementation();

    /// One call at a time. See KestRegularExpression::setPatternImpl.
    bool compile(const StringType& pattern, std::string& message);
    /// What the pattern is compiled into now. It never changes.
    Snapshot snapshot() const;
    /// See KestRegularExpression::find.
    static std::size_t find(const Snapshot& compiled, const StringType& text, std::size_t& length, std::size_t start,
                            Length wanted);
    void print() const;

  private:
    StringType m_pattern;  // the last one that compiled; guarded by m_tokenLock
    Snapshot m_pCompiled;  // never null; guarded by m_tokenLock
    mutable KestCriticalSectionObject m_tokenLock{false};
};

/// A pattern. A new one has none, and finds nothing.
template <typename StringType>
class KEST_SUPPORT_EXPORT KestRegularExpression {
  public:
    KestRegularExpression();
    KestRegularExpression(const KestRegularExpression&) = delete;
    KestRegularExpression& operator=(const KestRegularExpression&) = delete;
    ~KestRegularExpression();

    /// Replaces the pattern. Throws KestException, code 0, with one of
    ///
    ///   end token found inside expression   a '$' that is not the last character
    ///   empty set in pattern                [] or [^], or a pattern that ends behind [ or [^
    ///   bad escape expression               a token that begins with a '\' which ends the pattern
    ///   bad regular expression              a '\' that ends the pattern within a token
    ///   end of expression found in pattern  a '-' that ends the pattern within a set
    ///   invalid endpoint in range           a range that ends before it begins
    ///
    /// Searches then use the tokens in front of the error: after ab$c, those of ab. A set that is left open ends with
    /// the pattern.
    void setPattern(const StringType& pattern);

    /// The offset of the first match at or behind `start`, and in `length` its length; or npos, also for a start behind
    /// the end of the text. Without a match `length` stays as it is, unless it is an anchor alone that refuses what was
    /// matched: then it is the length of that. At level 9 and above the steps are logged; an untouched length too.
    std::size_t find(const StringType& text, std::size_t& length, std::size_t start) const;
    /// The same without the length, and for a pattern with '^' the quicker one where it does not match.
    std::size_t find(const StringType& text, std::size_t start) const;
    /// The characters of the first match; empty without one.
    StringType match(const StringType& text, std::size_t start) const;
    /// A copy of the text with the first match replaced or, with mode 1, each that is found when the search goes on
    /// behind the replacement. There, a '^' stands for the place where it goes on, and a match of no character is the
    /// last one to be replaced. The replacement is taken as it is.
    StringType replace(const StringType& text, const StringType& replacement, int mode, std::size_t start) const;

    /// Logs the pattern and its tokens, if the level is exactly 9.
    void print() const;

  protected:
    /// Replaces the pattern. On failure, false with the reason in `message`, which is left alone otherwise.
    bool setPatternImpl(const StringType& pattern, std::string& message);

  private:
    using Engine = KestRegularExpressionImplementation<StringType>;

    Engine m_engine;
    mutable KestCriticalSectionObject m_lock{false};  // held while the pattern is set, and by replace to read it
};

extern template class KEST_SUPPORT_EXPORT KestRegularExpressionImplementation<std::string>;
extern template class KEST_SUPPORT_EXPORT KestRegularExpressionImplementation<wstring16>;
extern template class KEST_SUPPORT_EXPORT KestRegularExpression<std::string>;
extern template class KEST_SUPPORT_EXPORT KestRegularExpression<wstring16>;

}  // namespace KestSupport
