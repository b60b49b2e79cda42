// Patterns: searches in 64 KiB of a log, with a match near the end or without a match, and compilation.
#include <support/regular_expressions.h>

#include <memory>
#include <regex>
#include <string>

#include "bench_kit.h"

#ifdef KEST_HAVE_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif
#ifdef KEST_HAVE_RE2
#include <re2/re2.h>
#endif

namespace {

using KestBench::Body;

constexpr std::size_t longText = 64 * 1024;
constexpr std::size_t npos = std::string::npos;

struct Search {
    std::string pattern;
    std::string text;
    std::size_t offset;  // of the match, which every engine must find
};

// Lines of a log. No two lines are equal.
std::string logOf(std::size_t size) {
    const char* const words[] = {"service", "started",    "stopped", "disk",  "memory", "of",  "process", "uses",
                                 "timer",   "elapsed",    "the",     "queue", "is",     "not", "empty",   "after",
                                 "retry",   "connection", "from",    "host",  "port",   "at",  "level",   "warning"};
    std::string text;
    unsigned state = 12345;
    const auto next = [&state] { return (state = state * 1103515245 + 12345) >> 16; };
    while (text.size() < size) {
        text += std::to_string(20261118 + next() % 9) + " " + std::to_string(next() % 10);
        for (unsigned count = 4 + next() % 8; count > 0; --count)
            text += std::string(" ") + words[next() % std::size(words)];
        text += " [" + std::to_string(next() % 5000) + "]\n";
    }
    text.resize(size);
    text.back() = '\n';
    return text;
}

template <typename Find>
void measure(benchmark::State& state, std::size_t expected, const Find& find) {
    std::size_t offset = npos;
    for (auto _ : state)
        benchmark::DoNotOptimize(offset = find());
    if (offset != expected) state.SkipWithError("another offset");
}

void findOurs(benchmark::State& state, const Search& search) {
    KestSupport::KestRegularExpression<std::string> expression;
    expression.setPattern(search.pattern);
    measure(state, search.offset, [&] { return expression.find(search.text, 0); });
}

void compileOurs(benchmark::State& state, const std::string& pattern) {
    KestSupport::KestRegularExpression<std::string> expression;
    for (auto _ : state)
        expression.setPattern(pattern);
}

// std::regex needs stack for each repetition, so it is not measured with a '.' that matches more than a line.
void findStandard(benchmark::State& state, const Search& search) {
    const std::regex expression(search.pattern, std::regex::optimize);
    measure(state, search.offset, [&] {
        std::smatch match;
        return std::regex_search(search.text, match, expression) ? static_cast<std::size_t>(match.position()) : npos;
    });
}

#ifdef KEST_HAVE_PCRE2
struct FreePcre2 {
    void operator()(pcre2_code* code) const { pcre2_code_free(code); }
    void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

std::unique_ptr<pcre2_code, FreePcre2> compilePcre2(const std::string& pattern) {
    int error = 0;
    PCRE2_SIZE where = 0;
    const auto* const text = reinterpret_cast<PCRE2_SPTR>(pattern.data());
    return std::unique_ptr<pcre2_code, FreePcre2>(
        pcre2_compile(text, pattern.size(), PCRE2_DOTALL, &error, &where, nullptr));
}

void findPcre2(benchmark::State& state, const Search& search) {
    const auto code = compilePcre2(search.pattern);
    if (pcre2_jit_compile(code.get(), PCRE2_JIT_COMPLETE) != 0) return state.SkipWithError("no JIT");
    const std::unique_ptr<pcre2_match_data, FreePcre2> data(pcre2_match_data_create_from_pattern(code.get(), nullptr));
    const auto* const text = reinterpret_cast<PCRE2_SPTR>(search.text.data());
    measure(state, search.offset, [&] {
        const int count = pcre2_match(code.get(), text, search.text.size(), 0, 0, data.get(), nullptr);
        return count > 0 ? pcre2_get_ovector_pointer(data.get())[0] : npos;
    });
}

void compileByPcre2(benchmark::State& state, const std::string& pattern) {
    for (auto _ : state)
        benchmark::DoNotOptimize(compilePcre2(pattern).get());
}

constexpr bool kHavePcre2 = true;
#else
void findPcre2(benchmark::State&, const Search&) {}
void compileByPcre2(benchmark::State&, const std::string&) {}

constexpr bool kHavePcre2 = false;
#endif

#ifdef KEST_HAVE_RE2
void findRe2(benchmark::State& state, const Search& search) {
    RE2::Options options;
    options.set_dot_nl(true);
    options.set_encoding(RE2::Options::EncodingLatin1);
    const RE2 expression(search.pattern, options);
    measure(state, search.offset, [&] {
        re2::StringPiece match;
        return expression.Match(search.text, 0, search.text.size(), RE2::UNANCHORED, &match, 1)
                   ? static_cast<std::size_t>(match.data() - search.text.data())
                   : npos;
    });
}

constexpr bool kHaveRe2 = true;
#else
void findRe2(benchmark::State&, const Search&) {}

constexpr bool kHaveRe2 = false;
#endif

using Find = void (*)(benchmark::State& state, const Search& search);

Body searching(Find find, const Search& search) {
    return [=](benchmark::State& state) { find(state, search); };
}

Body compiling(void (*compile)(benchmark::State& state, const std::string& pattern), const std::string& pattern) {
    return [=](benchmark::State& state) { compile(state, pattern); };
}

struct Targets {
    double pcre2 = 0;  // with its JIT
    double re2 = 0;
    double standard = 0;
};
constexpr Targets kUsual{1.0, 1.0, 0.05};

enum class Standard { Yes, No };

void compareSearch(const std::string& what, const Targets& targets, const Search& search,
                   Standard standard = Standard::Yes) {
    KestBench::Comparison comparison("patterns/find " + what);
    comparison.ours(searching(findOurs, search))
        .peer("PCRE2 JIT", targets.pcre2, kHavePcre2 ? searching(findPcre2, search) : KestBench::kMissing)
        .peer("RE2", targets.re2, kHaveRe2 ? searching(findRe2, search) : KestBench::kMissing);
    if (standard == Standard::Yes) comparison.peer("std::regex", targets.standard, searching(findStandard, search));
}

// The only match is at the end of the text.
void findInText(benchmark::State& state, int kibibytes) {
    const std::string log = logOf(static_cast<std::size_t>(kibibytes) * 1024);
    findOurs(state, {"error=[0-9]+ [a-z_]*;", log + "error=17 disk_full; ", log.size()});
}

}  // namespace

void KestBench::registerBenches() {
    const std::string log = logOf(longText);
    const std::string half = log.substr(0, longText / 2);
    const Targets literal{0.5, 1.0, 0.05};
    compareSearch("literal", literal, {"timeout", log + "timeout 7", longText});
    compareSearch("literal of rare letters", literal, {"Exception", log + "Exception 7", longText});
    compareSearch("literal of frequent letters", {0.7, 1.0, 0.05}, {"shutdown", log + "shutdown 7", longText});
    compareSearch("literal then sets", kUsual, {"error=[0-9]+ [a-z_]*;", log + "error=17 disk_full; ", longText});
    compareSearch("literal then sets often", kUsual, {"timer [a-z]+ [0-9]+;", log, npos});
    compareSearch("optional set first", kUsual, {"[a-z]*@[a-z]+", log + "operator@host ", longText});
    compareSearch("optional set first nowhere", kUsual, {"[0-9]* warning z", log, npos});
    compareSearch("any and literal", kUsual, {".*timeout", half + "timeout" + half, 0}, Standard::No);
    compareSearch("any and literal nowhere", kUsual, {".*timeout", log, npos}, Standard::No);
    compareSearch("all but a line's end", kUsual, {"a[^\n]*z", log + "a to z", longText}, Standard::No);
    compareSearch("anchor", kUsual, {"^2026[0-9]+ .*timeout", half + "timeout" + half, 0}, Standard::No);
    compareSearch("anchor nowhere", kUsual, {"^[0-9]+ [0-9] .*timeout", log, npos}, Standard::No);
    compareSearch("anchor in the first line", {1.5, 1.5, 0}, {"^[0-9]+ [0-9] [a-z]+", log, 0});
    compareSearch("anchor refused at once", {1.5, 1.5, 0.05}, {"^[a-z]+ timeout", log, npos});
    compareSearch("rare byte", literal, {"host [a-z0-9 ]*~", log, npos});
    compareSearch("short text", {}, {"[0-9]+ms", "17ms", 0});

    for (const std::string pattern : {"shutdown", "error=[0-9]+ [a-z_]*;", "^2026[0-9]+ .*shutdown$"}) {
        Comparison("patterns/compile " + pattern)
            .ours(compiling(compileOurs, pattern))
            .peer("PCRE2", 1.2, kHavePcre2 ? compiling(compileByPcre2, pattern) : kMissing);
    }
    Growth("patterns/find literal then sets", "KiB").limit(1.15).at({1, 10, 100, 1000, 10000}, findInText);
}
