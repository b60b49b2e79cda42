// Tests kest-agent with what only Linux has: signals, links, limits of a process, locales of the environment.
#include "agent/agent_folder.h"

namespace {

TEST(Agent, ContinuesWhenSavingFails) {
    const Folder folder;
    std::filesystem::create_directory(folder.pathOf("there"));
    folder.write("s", "interval=1\nstate.file=there/state\n");
    ChildProcess agent = folder.start({"-s", "s"});
    ASSERT_TRUE(agent.waitForOutput(" Process "));
    std::filesystem::rename(folder.pathOf("there"), folder.pathOf("gone"));
    ASSERT_TRUE(agent.waitForOutput("the state was not saved: state file there/state: "));
    ASSERT_TRUE(agent.waitForOutput(" Process ")) << "it continues";
    folder.write("precious", "kept");
    std::filesystem::remove(folder.pathOf("gone/state.kest-agent-new"));
    std::filesystem::create_symlink("../precious", folder.pathOf("gone/state.kest-agent-new"));
    std::filesystem::rename(folder.pathOf("gone"), folder.pathOf("there"));
    ASSERT_TRUE(agent.waitForOutput("the state is saved again\n"));
    agent.requestEnd();
    EXPECT_EQ(agent.wait(), 0);
    EXPECT_EQ(agent.errors(), "");
    EXPECT_NE(agent.output().find("kest-agent: ending after "), std::string::npos);
    EXPECT_EQ(folder.read("precious"), "kept") << "no link is followed";
    EXPECT_NE(folder.read("there/state").find("agent.status=stopped\n"), std::string::npos);

    const Folder full;
    full.write("kest-agent.state", "agent.status=before\n");
    ChildProcess limited = full.start({"-n", "1"}, "ulimit -f 0; trap '' XFSZ");
    EXPECT_EQ(limited.wait(), 2);
    EXPECT_EQ(limited.errors(), "kest-agent: state file kest-agent.state: could not be written completely\n");
    EXPECT_EQ(full.names(), Texts{"kest-agent.state"});
    EXPECT_EQ(full.read("kest-agent.state"), "agent.status=before\n");
}

TEST(Agent, ReloadsOnHangUp) {
    const Folder folder;
    const std::string limits = "cpu.limit=1000000\nmemory.limit=100\ndisk.limit=100\n";  // no value exceeds them
    folder.write("s", limits + "interval=1\nlog.level.Cpu=0\nlog.file=log\nlog.console=yes\n");
    ChildProcess agent = folder.start({"-s", "s"});
    ASSERT_TRUE(agent.waitForOutput(" Process "));
    std::filesystem::rename(folder.pathOf("log"), folder.pathOf("old"));
    const std::pair<const char*, Texts> steps[] = {
        {"log.file=log\ninterval=2\nprocess.limit=0\ndisk.path=/\ndisk.path=.\n",
         {"settings read again, a sample every 2 s\n", " Cpu ", "file system of . in use", "processes has risen to "}},
        {"interval=never\nlanguage=C\n",
         {"the settings were not changed: settings file s: interval: \"never\"", " Disk "}},
        {"process.limit=0\nlog.file=other\n", {"the new log.file takes effect at the next start\n", " Process "}}};
    for (const auto& [settings, expected] : steps) {
        folder.write("s", limits + settings);
        agent.hangUp();
        for (const std::string& text : expected)
            ASSERT_TRUE(agent.waitForOutput(text)) << text << agent.output();
    }
    agent.interrupt();
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    EXPECT_EQ(count(agent.output(), "has risen"), 1u) << "a reload does not announce it again";
    EXPECT_EQ(folder.names(), (Texts{"kest-agent.state", "log", "old", "s"}));
    EXPECT_EQ(folder.read("old") + folder.read("log"), agent.output());
    EXPECT_EQ(count(folder.read("old"), "settings"), 0u);
    EXPECT_NE(folder.read("kest-agent.state").find("process.rises=1\n"), std::string::npos);
}

TEST(Agent, EndsWithoutThreads) {
    // No thread gets a stack of this size.
    const Folder folder;
    ChildProcess alone = folder.start({}, "ulimit -s 100000000000000 || exit 77");
    const int code = alone.wait();
    if (code == 77 || alone.errors().starts_with("FATAL: ThreadSanitizer")) {
        GTEST_SKIP() << "the user may not set that limit, or ThreadSanitizer does not start under it";
    }
    EXPECT_EQ(code, 2);
    EXPECT_EQ(alone.errors(), "kest-agent: thread recorder: could not be created\n");
}

TEST(Agent, SpeaksTheUsersLanguage) {
    const Folder folder;
    // The locales of the test: their names, with the content of C.utf8.
    for (const char* const locale : {"de_DE.UTF-8", "de_CH.UTF-8"})
        std::filesystem::create_directory_symlink("/usr/lib/locale/C.utf8", folder.pathOf(locale));
    folder.write("s", std::string((1 << 20) + 1, '#'));
    const auto errors = [&](const std::string& environment) {
        // The C library leaks memory for LOCPATH.
        const std::string command = "export ASAN_OPTIONS=detect_leaks=0 LOCPATH=$PWD " + environment;
        ChildProcess agent = folder.start({"-s", "s"}, command);
        agent.wait();
        return agent.errors();
    };
    EXPECT_EQ(errors("LC_ALL=de_DE.UTF-8"), "kest-agent: Einstellungsdatei s: größer als 1048576 Bytes\n");
    EXPECT_EQ(errors("LC_ALL= LC_MESSAGES=de_CH.UTF-8 LC_CTYPE=C.UTF-8"),
              "kest-agent: Einstellungsdatei s: grösser als 1048576 Bytes\n");
    EXPECT_EQ(errors("LC_ALL=fr_FR.UTF-8"), "kest-agent: settings file s: larger than 1048576 bytes\n");
    folder.write("s", "language=de_CH\nspeed=1\n");
    EXPECT_EQ(errors("LC_ALL=C"), "kest-agent: Einstellungsdatei s: die Einstellung \"speed\" gibt es nicht\n");
}

}  // namespace
