// Tests kest-agent from outside: its output, its files and its life as a service.
#include "agent/agent_folder.h"
#include "kit/environment_guard.h"
#include "kit/system.h"

namespace {

const std::string kHint = " (kest-agent --help lists the options)";
const std::string kWhole = " is not a whole number from ";
const std::string kLimit = " is not a number of 0 or more";

TEST(Agent, RefusesBadInput) {
    const Folder folder;
    const auto check = [&](const Texts& arguments, const std::string& line) {
        const Texts before = folder.names();
        ChildProcess agent = folder.start(arguments);
        EXPECT_EQ(agent.wait(), 2) << line;
        EXPECT_EQ(agent.errors(), "kest-agent: " + line + "\n");
        EXPECT_EQ(agent.output(), "") << line;
        EXPECT_EQ(folder.names(), before) << line;
    };
    const std::pair<std::string, std::string> arguments[] = {
        {"--colour", "command line: Unrecognized option: --colour" + kHint},
        {"-n", "command line: option data not available for: -n" + kHint},
        {"a\nb", "command line: unexpected argument: a\\x0Ab"},
        {"--samples=many", "option --samples: \"many\"" + kWhole + "1 to 1000000000"},
        {"--log-level=10", "option --log-level: \"10\"" + kWhole + "0 to 9"},
        {"-snone", "settings file none: No such file or directory"},
        {"-s.", "settings file .: not a regular file"},
        {"--encipher=none", "key file none: No such file or directory"},
    };
    for (const auto& [argument, line] : arguments)
        check({argument}, line);
    const std::string longName(300, 'x');
    // A line that begins with a colon follows "settings file s".
    const std::pair<std::string, std::string> settings[] = {
        {std::string("a\nb\0c", 5), ": line 2 is not text"},
        {std::string((1 << 20) + 1, '#'), ": larger than 1048576 bytes"},
        {"cpu.limit 5\n", ": there is no setting \"cpu.limit 5\""},
        {"cpu.limit=1\n cpu.limit = 2\n", ": cpu.limit is given twice"},
        {"memory.limit=5%\r\n", ": memory.limit: \"5%\"" + kLimit},
        {"process.limit=-1\n", ": process.limit: \"-1\"" + kLimit},
        {"process.limit=+1\n", ": process.limit: \"+1\"" + kLimit},
        {"process.limit=1.2.3\n", ": process.limit: \"1.2.3\"" + kLimit},
        {"log.level.Disk=-2\n", ": log.level.Disk: \"-2\"" + kWhole + "-1 to 9"},
        {"agent.version=0.9,{2-3}\n", ": agent.version: \"0.9,{2-3}\" is not for this version of kest-agent, 1.0.0"},
        {"agent.version={2}\n",
         ": agent.version: \"{2}\" is not a version range: "
         "KestVersion::createRangeVector: Invalid range specification: {2}"},
        {"language=xx_YY\n", ": language: \"xx_YY\" is not a locale of this system"},
        {"cpu.limit.host=web5\n", ": cpu.limit.host: \"web5\" is not a pattern, a blank and a number of 0 or more"},
        {"cpu.limit.host=[ 5\n", ": cpu.limit.host: \"[ 5\" is not a pattern: empty set in pattern"},
        {"secret=00\n", ": secret: needs secret.key.file"},
        {"secret=00\nsecret.key.file=s\n", ": secret: damaged: not the output of kest-agent --encipher"},
        {"secret=" + std::string(48, '0') + "\nsecret.key.file=s\n",
         ": secret: cannot be deciphered: the key is wrong, or the text is damaged"},
        {"\nsecret=\nsecret.key.file=s\n", "key file s: has no key in its first line"},
        {"log.console=on\n", ": log.console: \"on\" is neither yes nor no"},
        {"disk.path=/none\n", ": disk.path: \"/none\": No such file or directory"},
        {"log.file=none/log\n", "log file none/log: No such file or directory"},
        {"log.file=.\n", "log file .: not a regular file"},
        {"log.keep=1000\n", ": log.keep: \"1000\"" + kWhole + "0 to 999"},
        {"state.file=\n", ": state.file: \"\" is not a file name"},
        {"state.file=none/state\n", "state file none/state: No such file or directory"},
        {"state.file=.\n", "state file .: not a regular file"},
        {"state.file=" + longName + "\n", "state file " + longName.substr(0, 120) + "...: " + kit::kLongNameFails},
        {"state.file=s\n", "state file s: not a state of kest-agent"},
    };
    for (const auto& [text, line] : settings) {
        folder.write("s", text);
        check({"--settings", "s", "-n1"}, (line[0] == ':' ? "settings file s" : "") + line);
    }
}

TEST(Agent, SamplesAndKeepsItsState) {
    const Folder folder;
    folder.write("precious", "kept");
    std::error_code noLinks;
    std::filesystem::create_symlink("precious", folder.pathOf("log.kest-agent-probe"), noLinks);
    folder.write("s",
                 "# comment\n\n interval = 1 \nprocess.limit=1\nmemory.limit=100\ndisk.limit=100\n"
                 "disk.path=/\ndisk.path=.\r\nlog.level.Cpu=0\nlog.file=./log\nlog.console=yes\nstate.file=state\n");
    using Counts = std::vector<std::pair<const char*, std::size_t>>;
    const auto expectCounts = [](const std::string& text, const Counts& expected) {
        for (const auto& [pattern, times] : expected)
            EXPECT_EQ(count(text, pattern), times) << pattern << " in " << text;
    };
    ChildProcess first = folder.start({"-s", "s", "-n", "2"});
    EXPECT_EQ(first.wait(), 0) << first.errors();
    expectCounts(first.output(),
                 {{" 3 Memory     \\[\\d+\\] memory in use \\(%\\) \\d+(\\.\\d\\d)? \\(limit 100\\)\n", 2},
                  {" 3 Disk       \\[\\d+\\] file system of [/.] in use \\(%\\) \\d+(\\.\\d\\d)? \\(limit 100\\)\n", 4},
                  {" 3 Process    \\[\\d+\\] processes \\d+ \\(limit 1\\)\n", 2},
                  {" 1 Process    \\[\\d+\\] processes has risen to \\d+, above its limit of 1\n", 1},
                  {" Cpu ", 0},
                  {"cannot be read", 0},
                  {"ending after 2 samples\n", 1},
                  {"last seen", 0}});
    const std::string state = folder.readText("state");
    for (const char* line : {"agent\\.status=stopped", "agent\\.samples=2", "process\\.above=yes", "process\\.rises=1",
                             "memory\\.above=no", "memory\\.rises=0", "disk\\.1\\.path=/", "disk\\.2\\.path=\\.",
                             "agent\\.time=(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)"})
        EXPECT_EQ(count(state, line + std::string("\n")), 1u) << line << state;
    EXPECT_EQ(count(state, "cpu\\.value=\\d+(\\.\\d\\d)?\n"), kit::kHasLoadAverage ? 1u : 0u);
    const Texts names = folder.names();
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(folder.read("precious"), "kept") << "no link is followed";
    EXPECT_EQ(folder.readText("log"), first.output()) << "the file holds what standard output shows";

    ChildProcess second = folder.start({"--settings=s", "--samples=1", "--log-level", "1"});
    EXPECT_EQ(second.wait(), 0) << second.errors();
    expectCounts(second.output(), {{"\n", 1}, {" has risen to ", 1}});
    ChildProcess third = folder.start({"-s", "s", "-n1"});
    EXPECT_EQ(third.wait(), 0) << third.errors();
    expectCounts(third.output(), {{"last seen .*, stopped after 1 samples\n", 1}});
    folder.write("s", std::string("log.file=log\nlog.size=1\nstate.file=") + kit::kUmlaut + "\n");
    EXPECT_EQ(folder.start({"-s", "s", "-n1"}).wait(), 0);
    EXPECT_EQ(folder.readText("log.1"), first.output() + second.output() + third.output());
    EXPECT_EQ(folder.names().back(), "\u00fc");
}

TEST(Agent, PrintsItsInventory) {
    const Folder folder;
    folder.write("s",
                 "agent.version={1.0-2.0}\nhost.name=web-17\nlanguage=C\ninterval=7\nmemory.limit=5\ndisk.path=/\n"
                 "cpu.limit.host=^db 1\ncpu.limit.host=[0-9] 2\ncpu.limit.host=^web-[0-9]+$ 3\n"
                 "disk.limit.host=[a-z] 4\n");
    ChildProcess agent = folder.start({"-s", "s", "--inventory"});
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    const std::regex tree(
        "web-17\n"
        "  agent\n    language: C\n    seconds between samples: 7\n    version: 1\\.0\\.0\n"
        "  limits\n    file system of / in use \\(%\\): 4\n" +
        std::string(kit::kHasLoadAverage ? "    load average: 3\n" : "") +
        "    memory in use \\(%\\): 5\n"
        "    processes: 2000\n"
        "  system\n    kernel: .+\n    memory \\(MiB\\): \\d+\n    processors: \\d+\n");
    EXPECT_TRUE(std::regex_match(agent.output(), tree)) << agent.output();
    EXPECT_EQ(folder.names(), Texts{"s"});
}

TEST(Agent, NoticesAnAlteredState) {
    const Folder folder;
    folder.write("key", "open sesame\r\nsecond line\n");
    folder.write("secret", "a secret of some length\n");
    const ChildProcess::Options secretAsInput{folder.path(), "", false, folder.pathOf("secret")};
    ChildProcess encipher(KEST_AGENT, {"--encipher", "key"}, secretAsInput);
    ChildProcess again(KEST_AGENT, {"--encipher", "key"}, secretAsInput);
    EXPECT_EQ(encipher.wait(), 0) << encipher.errors();
    EXPECT_EQ(again.wait(), 0);
    ASSERT_TRUE(std::regex_match(encipher.output(), std::regex("secret=[0-9A-F]{96}\n"))) << encipher.output();
    EXPECT_NE(encipher.output(), again.output()) << "the random block differs";

    const auto run = [&](const std::string& secret) {
        folder.write("s", "secret.key.file=key\nmemory.limit=0\n" + secret);
        ChildProcess agent = folder.start({"-s", "s", "-n", "1"});
        agent.wait();
        return agent.output() + agent.errors();
    };
    const std::string notSealed = "the seal of the last state is wrong";
    EXPECT_EQ(run(encipher.output()).find(notSealed), std::string::npos);
    EXPECT_EQ(run(again.output()).find(notSealed), std::string::npos) << "the same secret, enciphered again";
    std::string state = folder.read("kest-agent.state");
    ASSERT_NE(state.find("memory.above=yes"), std::string::npos);
    folder.write("kest-agent.state", state.replace(state.find("memory.above=yes"), 16, "memory.above=no"));
    EXPECT_NE(run(again.output()).find(notSealed), std::string::npos);

    folder.write("key", "open sesamE\n");
    EXPECT_EQ(run(again.output()),
              "kest-agent: settings file s: secret: cannot be deciphered: the key is wrong, or the text is damaged\n");
}

TEST(Agent, RunsAsAService) {
    kit::ownFixedServiceNames();
    const Folder folder;
    kit::EnvironmentGuard environment;
    environment.set("KEST_STATE_DIR", folder.pathOf("services"));
    const auto run = [&](const std::string& program, const Texts& arguments) {
        ChildProcess child(program, arguments, {folder.path()});
        const int code = child.wait();
        return std::to_string(code) + " " + child.output() + child.errors();
    };
    const Texts install{"--install", "-s", "it's set"};
    EXPECT_EQ(run(KEST_AGENT, install), "2 kest-agent: settings file it's set: No such file or directory\n");
    folder.write("it's set",
                 "interval=1\nstate.file=" + folder.pathOf("state") + "\nlog.file=" + folder.pathOf("log") + "\n");
    run(KEST_AGENT, {"--remove"});  // where the manager is the system's, an earlier run may have left it
    EXPECT_EQ(run(KEST_AGENT, {"--remove"}), "2 kest-agent: service kest-agent: is not installed\n");
    EXPECT_EQ(run(KEST_AGENT, install), "0 service kest-agent: installed\n");
    EXPECT_EQ(run(KEST_AGENT, install), "2 kest-agent: service kest-agent: is installed already\n");
    EXPECT_EQ(run(KEST_AGENT, {"--service"}),
              "2 kest-agent: service kest-agent: was not started by the service manager "
              "(kestsc start kest-agent does that)\n");

    const auto kestsc = [&](const std::string& command) { return run(KESTSC, {command, "kest-agent"})[0] - '0'; };
    for (const auto& [command, code] : {std::pair{"start", 0}, {"status", 0}, {"stop", 0}, {"status", 3}})
        EXPECT_EQ(kestsc(command), code) << command;
    EXPECT_NE(folder.readText("state").find("agent.status=stopped\n"), std::string::npos);

    EXPECT_EQ(kestsc("start"), 0);
    EXPECT_EQ(run(KEST_AGENT, {"--remove"}), "0 service kest-agent: removed\n");
    EXPECT_EQ(kestsc("status"), 4);

    folder.write("it's set", "state.file=" + folder.pathOf("state") + "\n");
    EXPECT_EQ(run(KEST_AGENT, install), "0 service kest-agent: installed\n");
    folder.write("it's set", "interval=never\n");
    EXPECT_EQ(kestsc("start"), kit::servicesAreOfTheTest() ? 1 : 6) << "the program ends before it answers";
    EXPECT_EQ(run(KEST_AGENT, {"--remove"}), "0 service kest-agent: removed\n");
}

TEST(Agent, ShowsHelpAndVersion) {
    ChildProcess version(KEST_AGENT, {"--version"}), help(KEST_AGENT, {"--help"});
    EXPECT_EQ(version.wait() + help.wait(), 0);
    EXPECT_EQ(count(version.output(), "^kest-agent \\d+\\.\\d+\\.\\d+\n$"), 1u) << version.output();
    for (const std::string option : {"--settings=FILE", "--samples=N", "--interval=SECONDS", "--log-level=N",
                                     "--console", "--install", "--remove", "--service", "--version"})
        EXPECT_EQ(count(help.output(), " " + option + " "), 1u) << option;
}

}  // namespace
