// Which options and arguments a command line gives, and which command lines are errors.
#include "support/program_options.h"

#include "kit/failure_of.h"
#include "text/strings/command_line_splitter.h"

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
    std::vector<std::pair<std::string, std::string>> options;  // the value "absent" means that it was not given
    Texts arguments;
};

void check(const Row& row, const KestProgramOptions& options) {
    const std::string about = testing::PrintToString(row.command);
    EXPECT_EQ(options.getProgramName(), row.command[0]) << about;
    EXPECT_EQ(Texts(options.begin(), options.end()), row.arguments) << about;
    for (const auto& [option, value] : row.options) {
        const std::string& name = option;
        std::string found = "absent";
        EXPECT_EQ(failureOf([&] { found = options.getSwitch(name); }), value == "absent" ? "" : "no failure") << name;
        EXPECT_EQ(found, value) << about << name;
    }
}

const std::string kLongSpec = ":file.:mode:help:";
const Make specified = [](int argc, char** argv) { return KestProgramOptions(argc, argv, "ab:c", kLongSpec, true); };
const Make gnu = [](int argc, char** argv) {
    return KestProgramOptions(argc, argv, "ab:c", kLongSpec, KestGnuOptions());
};
// Short and long specifications are searched in different ways.
const Make specifiedAmongMany = [](int argc, char** argv) {
    std::string longSpec = "help:f:models.:none.:z";
    longSpec.append(300, 'z').append(kLongSpec);
    return KestProgramOptions(argc, argv, "ab:c", longSpec, true);
};

}  // namespace

TEST(ProgramOptions, AcceptOptions) {
    const Make dashes = [](int argc, char** argv) { return KestProgramOptions(argc, argv, false); };
    const Make slashes = [](int argc, char** argv) { return KestProgramOptions(argc, argv, true); };
    const std::pair<Make, Row> rows[] = {
        {dashes,
         {{"p", "-a=1", "y", "--a=2", "-b=  x ", "-", "--", "-=x", "", "/s"},
          {{"a", "1"}, {"b", "x "}, {"", "absent"}},
          {"y", "", "/s"}}},
        {dashes, {{"-p", "-#a=1", "-b=1\r2", "---c"}, {{"p", "absent"}, {"#a", "absent"}, {"b", "1"}, {"-c", ""}}, {}}},
        {slashes, {{"p", "/s=1", "//t", "-/u", "x/"}, {{"s", "1"}, {"/t", ""}, {"/u", ""}}, {"x/"}}},
        {specified, {{"p", "-b", "v", "-ax", "/c", "x"}, {{"b", "v"}, {"a", ""}, {"x", "absent"}, {"c", ""}}, {"x"}}},
        {specified,
         {{"p", "--file", "--mode", "/help", "-bhelp"}, {{"file", "--mode"}, {"mode", "absent"}, {"b", "help"}}, {}}},
        {specified, {{"p", "--file=f", "g", "-b", "", "-b= x"}, {{"file=f", "g"}, {"file", "absent"}, {"b", ""}}, {}}},
        {specified, {{"p", "-file", "f", "-help=now", "--mode"}, {{"file", "f"}, {"help", "now"}, {"mode", ""}}, {}}},
        {gnu,
         {{"p", "--file=a=b", "-help", "-", "-b", "--", "--mode", "/a", "--", "-c", "--"},
          {{"file", "a=b"}, {"help", ""}, {"b", "--"}, {"mode", ""}, {"c", "absent"}},
          {"-", "/a", "-c", "--"}}},
        {gnu, {{"p", "--file", "--", "-file=", "x"}, {{"file", "--"}, {"file=", "absent"}}, {"x"}}}};
    for (const auto& [make, row] : rows) {
        check(row, madeOf(row.command, make));
        const bool isSpecified = &row >= &rows[3].second && &row < &rows[7].second;
        if (isSpecified) check(row, madeOf(row.command, specifiedAmongMany));
    }
    // A name may contain colons, and a plain entry wins over another entry of its name.
    for (const std::string& more : {std::string(), std::string(300, 'm')})
        check({{""}, {{"a:b", "1"}, {"d", ""}, {"e", "f"}}, {"x"}},
              KestProgramOptions(" --a:b=1 -d x -e f", "", more + ":d.:a:b:c.:d:e.:", false));
    char* nothing[] = {nullptr};
    check({{""}, {}, {}}, KestProgramOptions(0, nothing, false));
}

TEST(ProgramOptions, RefuseUnknownOptions) {
    const std::string unknown = "KestProgramOptions::parse: Unrecognized option: ";
    const std::string noData = "KestProgramOptions::parse: option data not available for: -";
    const std::pair<std::string, std::string> rows[] = {
        {"-", unknown + "-"},         {"-:", unknown + "-:"},
        {"--mod", unknown + "--mod"}, {"--a", unknown + "--a"},
        {"-b", noData + "b"},         {"-file", noData + "file"},
        {"--file", noData + "file"},  {"--file=x", noData + "file=x"},
        {"-dx", unknown + "-d"},      {"-=x", unknown + "-="},
        {"--=x", unknown + "--"},     {"--mode.=x", unknown + "--mode."},
        {"/d", unknown + "-d"},       {"/", unknown + "-"}};
    for (const auto& [text, failure] : rows) {
        const std::string& option = text;
        EXPECT_EQ(failureOf([&] { madeOf({"prog", "x", option}, specified); }), failure);
        EXPECT_EQ(failureOf([&] { madeOf({"p", option}, specifiedAmongMany); }), failure);
        EXPECT_EQ(failureOf([&] { KestProgramOptions("prog \t" + option, "ab:c", ":file.:mode:", true); }), failure);
    }
    EXPECT_EQ(failureOf([] { KestProgramOptions("prog -a --b", "", "", false); }), unknown + "-a");
    EXPECT_EQ(failureOf([] {
                  madeOf({"p", "--help=x"}, gnu);
              }),
              "KestProgramOptions::parse: option takes no data: -help=x");
    EXPECT_EQ(failureOf([] { madeOf({"p", "--file"}, gnu); }), noData + "file");
}

TEST(ProgramOptions, SplitAtUnquotedBlanks) {
    const std::pair<std::string, Texts> rows[] = {
        {"", {}},
        {" prog\t \ta  ", {"", "prog", "a"}},
        {"\t", {""}},
        {"\"C:\\my dir\\prog.exe\" 'c''d'", {"C:\\my dir\\prog.exe", "c'd"}},
        {"a\"b c\"d'e f' \"\" x", {"ab cde f", "", "x"}},
        {"\"it's\" 'say \"x\"' \"\"\"\" ''''''", {"it's", "say \"x\"", "\"", "''"}},
        {"prog \"open to the end ", {"prog", "open to the end "}},
        {"prog a'", {"prog", "a"}},
        {"a\nb '", {"a\nb", ""}},
    };
    for (const auto& [line, tokens] : rows) {
        EXPECT_EQ(internal::splitCommandLine(line, internal::kOptionRules), tokens) << line;
        EXPECT_EQ(KestProgramOptions(line, false).getProgramName(), tokens.empty() ? "" : tokens[0]) << line;
    }
    check({{"prog"}, {{"o", "a b"}, {"p", "c d"}, {"z", "1"}}, {"", "x -y"}},
          KestProgramOptions("prog '-o=a b' -p='c d' '' \"x -y\" -z=1\0cut"s, false));
}

TEST(OptionTable, MakesSpecificationsAndUsage) {
    const KestOptionTable table{{'o', "output", "FILE", "where the  result\ngoes"},
                                {'\0', "longer-name", "DATA", "on a line of its own"},
                                {'q', "", "N", "10 gro\u00DFe, schwere W\u00F6rter"},
                                {'x', "", "", ""},
                                {'\0', "m", "", "unbroken" + std::string(20, '!')}};
    EXPECT_EQ(table.shortSpec(), "o:q:x");
    EXPECT_EQ(table.longSpec(), ":output.:longer-name.:m:");
    EXPECT_EQ(
        table.usage(0),
        "  -o, --output FILE       where the result\n                          goes\n"
        "      --longer-name DATA  on a line of its own\n  -q N                    10 gro\u00DFe, schwere W\u00F6rter\n"
        "  -x\n      --m                 unbroken!!!!!!!!!!!!!!!!!!!!\n");
    EXPECT_EQ(table.usage(KestGnuOptions(), 27),
              "  -o, --output=FILE\n           where the result\n           goes\n"
              "      --longer-name=DATA\n           on a line of its\n           own\n"
              "  -q N     10 gro\u00DFe,\n           schwere W\u00F6rter\n"
              "  -x\n      --m  unbroken!!!!!!!!!!!!!!!!!!!!\n");
    EXPECT_EQ(KestOptionTable({{'q', "", "N", "\xE4\xE4\xE4 b"}}).usage(13), "  -q N  \xE4\xE4\xE4 b\n");
    EXPECT_EQ(KestOptionTable({{'q', "", "N", "\xE4\xE4\xE4 b"}}).usage(12), "  -q N  \xE4\xE4\xE4\n        b\n");
}

TEST(ProgramOptions, MoveACursorOverTheArguments) {
    KestProgramOptions options("prog x -a=1 y -a=2 z -long=3", false), assigned("other q -n", false);
    EXPECT_EQ(*++options, "y");
    KestProgramOptions copy(options);
    EXPECT_EQ(copy.getIterator(), copy.begin());
    assigned = options;
    options = *&options;
    EXPECT_EQ(options.getArgument(), "y") << "assignment to itself does nothing";
    options = KestProgramOptions("gone", false);
    EXPECT_EQ(options.getIterator(), options.end());
    EXPECT_EQ(assigned.getIterator(), assigned.begin());
    ++assigned;
    ++assigned;
    EXPECT_EQ(++assigned, assigned.end());
    EXPECT_EQ(*--assigned, "z");
    EXPECT_EQ(assigned.getArgument(assigned.reset()), "x");
    EXPECT_EQ(failureOf([&] { copy.getArgument(3u); }), "KestProgramOptions::getArgument: index out of bounds");
    EXPECT_EQ(copy.values("a"), (Texts{"1", "2"}));
    EXPECT_TRUE(copy.isSet("long") && !copy.isSet("n") && copy.values("n").empty());
    EXPECT_EQ(assigned.getSwitch("a", "long") + assigned.getSwitch("long", "n"), "33");
    for (KestProgramOptions* other : {&copy, &assigned})
        check({{"prog"}, {{"a", "1"}}, {"x", "y", "z"}}, *other);
}
