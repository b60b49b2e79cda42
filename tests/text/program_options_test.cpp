#include "support/program_options.h"

#include <gtest/gtest.h>

#include "support/exceptions.h"
#include "text/command_line_splitter.h"

using namespace KestSupport;
using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

// An argc and argv of their own, for as long as the object lives.
class Command {
  public:
    explicit Command(Texts texts) : m_texts(std::move(texts)) {
        for (std::string& text : m_texts)
            m_argv.push_back(text.data());
        m_argv.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(m_texts.size()); }
    char** argv() { return m_argv.data(); }

  private:
    Texts m_texts;
    std::vector<char*> m_argv;
};

Texts argumentsOf(const KestProgramOptions& options) {
    return {options.begin(), options.end()};
}

std::string switchOf(const KestProgramOptions& options, const std::string& name) {
    try {
        return options.getSwitch(name);
    } catch (const KestException& e) {
        return e.getText().empty() && e.getCode() == 0 ? "absent" : "another failure";
    }
}

std::string failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const KestException& e) {
        return e.getCode() == 0 ? e.getText() : "another code than 0";
    }
    return "no failure";
}

// What a row expects of the options and arguments; "absent" stands for an option that was not given.
struct Expected {
    Texts command;
    std::vector<std::pair<std::string, std::string>> options;
    Texts arguments;
};

void check(const Expected& row, const KestProgramOptions& options) {
    const std::string about = testing::PrintToString(row.command);
    EXPECT_EQ(options.getProgramName(), row.command[0]) << about;
    EXPECT_EQ(argumentsOf(options), row.arguments) << about;
    EXPECT_EQ(options.getArgumentCount(), row.arguments.size()) << about;
    for (const auto& [name, value] : row.options)
        EXPECT_EQ(switchOf(options, name), value) << about << name;
}

}  // namespace

TEST(ProgramOptions, TakeEveryOptionWithoutSpecifications) {
    const struct : Expected {
        bool allowSlash = false;
    } rows[] = {
        {{{"prog", "-v", "-o=x", "y", "--level=3", "z"},
          {{"v", ""}, {"o", "x"}, {"level", "3"}, {"x", "absent"}},
          {"y", "z"}}},
        {{{"prog", "-a=1", "--a=2", "-b=  x ", "-", "--", "-=x", "", "/s"},
          {{"a", "1"}, {"b", "x "}, {"", "absent"}},
          {"", "/s"}}},
        {{{"prog", "/s=1", "//t", "-/u", "x/"}, {{"s", "1"}, {"/t", ""}, {"/u", ""}}, {"x/"}}, true},
        {{{"prog", "-#a=1", "-b=1\r2", "---c"}, {{"#a", "absent"}, {"b", "1"}, {"-c", ""}}, {}}},
        {{{"-p"}, {{"p", "absent"}}, {}}},
    };
    for (const auto& row : rows) {
        Command command(row.command);
        check(row, KestProgramOptions(command.argc(), command.argv(), row.allowSlash));
    }
    char* nothing[] = {nullptr};
    const KestProgramOptions empty(0, nothing, false);
    EXPECT_EQ(empty.getProgramName(), "");
    EXPECT_EQ(empty.begin(), empty.end());
}

TEST(ProgramOptions, TakeWhatTheSpecificationsName) {
    const Expected rows[] = {
        {{"prog", "-b", "value", "x"}, {{"b", "value"}, {"a", "absent"}}, {"x"}},
        {{"prog", "-bvalue", "-ax", "-c", "x"}, {{"b", "value"}, {"a", ""}, {"x", "absent"}, {"c", ""}}, {"x"}},
        {{"prog", "-file", "f", "--mode=fast", "--", "-a"}, {}, {}},
        {{"prog", "-file", "f", "--mode=fast", "x"}, {{"file", "f"}, {"mode", "fast"}}, {"x"}},
        {{"prog", "--file", "--mode", "/a", "/help"},
         {{"file", "--mode"}, {"mode", "absent"}, {"a", ""}, {"help", ""}},
         {}},
        {{"prog", "--file=f", "g", "-b", "", "-b= x"}, {{"file=f", "g"}, {"file", "absent"}, {"b", ""}}, {}},
        {{"prog", "-help=now", "-bhelp", "--mode"}, {{"help", "now"}, {"b", "help"}, {"mode", ""}}, {}},
    };
    const std::string shortSpec = "ab:c";
    const std::string longSpec = ":file.:mode:help:";
    for (const Expected& row : rows) {
        Command command(row.command);
        if (row.options.empty()) {
            EXPECT_EQ(failureOf([&] { KestProgramOptions(command.argc(), command.argv(), shortSpec, longSpec, true); }),
                      "KestProgramOptions::parse: Unrecognized option: --");
            continue;
        }
        check(row, KestProgramOptions(command.argc(), command.argv(), shortSpec, longSpec, true));
    }
}

TEST(ProgramOptions, RefuseWhatTheSpecificationsDoNotName) {
    const std::string unknown = "KestProgramOptions::parse: Unrecognized option: ";
    const std::string noData = "KestProgramOptions::parse: option data not available for: -";
    const struct {
        Texts command;
        std::string failure;
    } rows[] = {
        {{"prog", "-dx"}, unknown + "-d"},
        {{"prog", "-"}, unknown + "-"},
        {{"prog", "-:"}, unknown + "-:"},
        {{"prog", "-=x"}, unknown + "-="},
        {{"prog", "--mod"}, unknown + "--mod"},
        {{"prog", "--modes=x"}, unknown + "--modes"},
        {{"prog", "--a"}, unknown + "--a"},
        {{"prog", "--"}, unknown + "--"},
        {{"prog", "--=x"}, unknown + "--"},
        {{"prog", "/d"}, unknown + "-d"},
        {{"prog", "/"}, unknown + "-"},
        {{"prog", "x", "-b"}, noData + "b"},
        {{"prog", "-file"}, noData + "file"},
        {{"prog", "--file"}, noData + "file"},
        {{"prog", "--file=x"}, noData + "file=x"},
    };
    for (const auto& row : rows) {
        Command command(row.command);
        EXPECT_EQ(failureOf([&] { KestProgramOptions(command.argc(), command.argv(), "ab:c", ":file.:mode:", true); }),
                  row.failure);
        const std::string line =
            row.command[0] + " \t" + row.command[1] + (row.command.size() > 2 ? " " + row.command[2] : "");
        EXPECT_EQ(failureOf([&] { KestProgramOptions(line, "ab:c", ":file.:mode:", true); }), row.failure);
        EXPECT_EQ(failureOf([&] { KestProgramOptions(line, true); }), "no failure");
    }
    EXPECT_EQ(failureOf([] { KestProgramOptions("prog -a --b", "", "", false); }), unknown + "-a");
}

TEST(ProgramOptions, SplitACommandLineAtUnquotedBlanks) {
    const struct {
        std::string line;
        Texts tokens;
    } rows[] = {
        {"", {}},
        {"prog", {"prog"}},
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
    for (const auto& row : rows) {
        EXPECT_EQ(internal::splitCommandLine(row.line), row.tokens) << row.line;
        const KestProgramOptions options(row.line, false);
        EXPECT_EQ(options.getProgramName(), row.tokens.empty() ? "" : row.tokens[0]) << row.line;
        EXPECT_LE(options.getArgumentCount(), row.tokens.size()) << row.line;
    }
    const KestProgramOptions quoted("prog '-o=a b' -p='c d' '' \"x -y\" -z=1\0cut"s, false);
    EXPECT_EQ(switchOf(quoted, "o") + switchOf(quoted, "p") + switchOf(quoted, "z"), "a bc d1");
    EXPECT_EQ(argumentsOf(quoted), (Texts{"", "x -y"}));
}

TEST(ProgramOptions, WalkTheArgumentsWithACursorOfTheirOwn) {
    KestProgramOptions options("prog x -a=1 y -a=2 z -long=3", false);
    EXPECT_EQ(*options, "x");
    EXPECT_EQ(*++options, "y");
    EXPECT_EQ(options.getArgument(), "y");
    KestProgramOptions copy(options);
    KestProgramOptions assigned("other q -n", false);
    assigned = options;
    options = *&options;
    EXPECT_EQ(*options, "y") << "assignment to itself does nothing";
    options = KestProgramOptions("gone", false);
    EXPECT_EQ(options.getIterator(), options.end());
    for (KestProgramOptions* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getIterator(), other->begin());
        EXPECT_EQ(**other, "x");
        ++*other;
        EXPECT_EQ(*++*other, "z");
        EXPECT_EQ(++*other, other->end());
        EXPECT_EQ(*--*other, "z");
        EXPECT_EQ(other->getArgument(other->reset()), "x");
        EXPECT_EQ(other->getArgument(2u), "z");
        EXPECT_EQ(failureOf([&] { other->getArgument(3u); }), "KestProgramOptions::getArgument: index out of bounds");
        EXPECT_EQ(other->getProgramName(), "prog");
        EXPECT_EQ(other->getSwitch("a"), "1");
        EXPECT_EQ(other->getSwitch("a", "long"), "3");
        EXPECT_EQ(other->getSwitch("long", "n"), "3");
        EXPECT_EQ(failureOf([&] { other->getSwitch("m", "n"); }), "");
    }
}
