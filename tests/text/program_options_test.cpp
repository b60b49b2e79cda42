#include "support/program_options.h"

#include <gtest/gtest.h>

#include "kit/failure_of.h"
#include "text/command_line_splitter.h"

using namespace KestSupport;
using namespace std::string_literals;
using kit::failureOf;

namespace {

using Texts = std::vector<std::string>;
using Make = std::function<KestProgramOptions(int, char**)>;

KestProgramOptions madeOf(Texts texts, const Make& make) {
    std::vector<char*> argv;
    for (std::string& text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    return make(static_cast<int>(texts.size()), argv.data());
}

struct Row {
    Texts command;
    std::vector<std::pair<std::string, std::string>> options;  // "absent" stands for one that was not given
    Texts arguments;
};

std::string switchOf(const KestProgramOptions& options, const std::string& name) {
    std::string value;
    const std::string failure = failureOf([&] { value = options.getSwitch(name); });
    return failure.empty() ? "absent" : failure == "no failure" ? value : failure;
}

void check(const Row& row, const KestProgramOptions& options) {
    const std::string about = testing::PrintToString(row.command);
    EXPECT_EQ(options.getProgramName(), row.command[0]) << about;
    EXPECT_EQ(Texts(options.begin(), options.end()), row.arguments) << about;
    for (const auto& [name, value] : row.options)
        EXPECT_EQ(switchOf(options, name), value) << about << name;
}

}  // namespace

TEST(ProgramOptions, TakeEveryOptionWithoutSpecifications) {
    const Row dashes[] = {
        {{"prog", "-v", "-o=x", "y", "--l=3", "z"}, {{"v", ""}, {"o", "x"}, {"l", "3"}, {"x", "absent"}}, {"y", "z"}},
        {{"prog", "-a=1", "--a=2", "-b=  x ", "-", "--", "-=x", "", "/s"},
         {{"a", "1"}, {"b", "x "}, {"", "absent"}},
         {"", "/s"}},
        {{"prog", "-#a=1", "-b=1\r2", "---c"}, {{"#a", "absent"}, {"b", "1"}, {"-c", ""}}, {}},
        {{"-p"}, {{"p", "absent"}}, {}},
    };
    for (const Row& row : dashes)
        check(row, madeOf(row.command, [](int argc, char** argv) { return KestProgramOptions(argc, argv, false); }));
    const Row slashes{{"prog", "/s=1", "//t", "-/u", "x/"}, {{"s", "1"}, {"/t", ""}, {"/u", ""}}, {"x/"}};
    check(slashes, madeOf(slashes.command, [](int argc, char** argv) { return KestProgramOptions(argc, argv, true); }));
    char* nothing[] = {nullptr};
    check({{""}, {}, {}}, KestProgramOptions(0, nothing, false));
}

const Make specified = [](int argc, char** argv) {
    return KestProgramOptions(argc, argv, "ab:c", ":file.:mode:help:", true);
};

TEST(ProgramOptions, TakeWhatTheSpecificationsName) {
    const Row rows[] = {
        {{"prog", "-b", "value", "x"}, {{"b", "value"}, {"a", "absent"}}, {"x"}},
        {{"prog", "-bvalue", "-ax", "-c", "x"}, {{"b", "value"}, {"a", ""}, {"x", "absent"}, {"c", ""}}, {"x"}},
        {{"prog", "-file", "f", "--mode=fast", "x"}, {{"file", "f"}, {"mode", "fast"}}, {"x"}},
        {{"prog", "--file", "--mode", "/a", "/help"},
         {{"file", "--mode"}, {"mode", "absent"}, {"a", ""}, {"help", ""}},
         {}},
        {{"prog", "--file=f", "g", "-b", "", "-b= x"}, {{"file=f", "g"}, {"file", "absent"}, {"b", ""}}, {}},
        {{"prog", "-help=now", "-bhelp", "--mode"}, {{"help", "now"}, {"b", "help"}, {"mode", ""}}, {}},
    };
    for (const Row& row : rows)
        check(row, madeOf(row.command, specified));
}

TEST(ProgramOptions, RefuseWhatTheSpecificationsDoNotName) {
    const std::string unknown = "KestProgramOptions::parse: Unrecognized option: ";
    const std::string noData = "KestProgramOptions::parse: option data not available for: -";
    const std::pair<std::string, std::string> rows[] = {
        {"-dx", unknown + "-d"},    {"-", unknown + "-"},         {"-:", unknown + "-:"},
        {"-=x", unknown + "-="},    {"--mod", unknown + "--mod"}, {"--modes=x", unknown + "--modes"},
        {"--a", unknown + "--a"},   {"--", unknown + "--"},       {"--=x", unknown + "--"},
        {"/d", unknown + "-d"},     {"/", unknown + "-"},         {"-b", noData + "b"},
        {"-file", noData + "file"}, {"--file", noData + "file"},  {"--file=x", noData + "file=x"},
    };
    for (const auto& [option, failure] : rows) {
        EXPECT_EQ(failureOf([&] { madeOf({"prog", "x", option}, specified); }), failure);
        const std::string line = "prog \t" + option;
        EXPECT_EQ(failureOf([&] { KestProgramOptions(line, "ab:c", ":file.:mode:", true); }), failure);
        EXPECT_EQ(failureOf([&] { KestProgramOptions(line, true); }), "no failure");
    }
    EXPECT_EQ(failureOf([] { KestProgramOptions("prog -a --b", "", "", false); }), unknown + "-a");
}

TEST(ProgramOptions, SplitACommandLineAtUnquotedBlanks) {
    const std::pair<std::string, Texts> rows[] = {
        {"", {}},
        {"prog \"a b\" 'c''d' z", {"prog", "a b", "c'd", "z"}},
        {" prog\t \ta  ", {"", "prog", "a"}},
        {"\t", {""}},
        {"prog 'last one'", {"prog", "last one"}},
        {"\"C:\\my dir\\prog.exe\" -x", {"C:\\my dir\\prog.exe", "-x"}},
        {"a\"b c\"d'e f' \"\" x", {"ab cde f", "", "x"}},
        {"\"it's\" 'say \"x\"' \"\"\"\" ''''''", {"it's", "say \"x\"", "\"", "''"}},
        {"prog \"open to the end ", {"prog", "open to the end "}},
        {"prog a'", {"prog", "a"}},
        {"x '", {"x", ""}},
        {"a\nb c", {"a\nb", "c"}},
    };
    for (const auto& [line, tokens] : rows) {
        EXPECT_EQ(internal::splitCommandLine(line, internal::kOptionRules), tokens) << line;
        EXPECT_EQ(KestProgramOptions(line, false).getProgramName(), tokens.empty() ? "" : tokens[0]) << line;
    }
    check({{"prog"}, {{"o", "a b"}, {"p", "c d"}, {"z", "1"}}, {"", "x -y"}},
          KestProgramOptions("prog '-o=a b' -p='c d' '' \"x -y\" -z=1\0cut"s, false));
}

TEST(ProgramOptions, WalkTheArgumentsWithACursorOfTheirOwn) {
    KestProgramOptions options("prog x -a=1 y -a=2 z -long=3", false);
    EXPECT_EQ(*options, "x");
    EXPECT_EQ(*++options, "y");
    EXPECT_EQ(options.getArgument(), "y");
    KestProgramOptions copy(options), assigned("other q -n", false);
    assigned = options;
    options = *&options;
    EXPECT_EQ(*options, "y") << "assignment to itself does nothing";
    options = KestProgramOptions("gone", false);
    EXPECT_EQ(options.getIterator(), options.end());
    for (KestProgramOptions* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getIterator(), other->begin());
        ++*other;
        EXPECT_EQ(*++*other, "z");
        EXPECT_EQ(++*other, other->end());
        EXPECT_EQ(*--*other, "z");
        EXPECT_EQ(other->getArgument(other->reset()), "x");
        EXPECT_EQ(other->getArgument(2u), "z");
        EXPECT_EQ(other->getArgumentCount(), 3u);
        EXPECT_EQ(failureOf([&] { other->getArgument(3u); }), "KestProgramOptions::getArgument: index out of bounds");
        check({{"prog"}, {{"a", "1"}}, {"x", "y", "z"}}, *other);
        EXPECT_EQ(other->getSwitch("a", "long") + other->getSwitch("long", "n"), "33");
        EXPECT_EQ(failureOf([&] { other->getSwitch("m", "n"); }), "");
    }
}
