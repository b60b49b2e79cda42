// Which records the logger writes, with which texts, to which outputs, and what several threads may do.
#include "support/logging.h"
#include "support/log_record.h"

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <ctime>

#include "kit/allocations.h"
#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"
#include "platform/clock.h"
#include "support/threads.h"
#include "text/log/internal_log.h"
#include "text/log/log_file.h"
#include "text/log/log_format.h"
#include "threads/timer_manager.h"

using namespace KestSupport;

namespace {

using Lines = std::vector<std::string>;

struct Capture : kit::LogCapture {
    using KestLogging::cancelTimer;
    using KestLogging::resetTimer;
    using KestLogging::timerElapsed;
    using LogCapture::LogCapture;
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
        if (!counts) return KestLogging::handleNotification(sender, notification);
        ++visits;
    }
    bool counts = false;
    std::atomic<int> visits{0};
};

}  // namespace

TEST(Logging, WritesRecordsWithinTheLevels) {
    const kit::TimeZoneGuard utc("UTC0");  // no hour comes twice
    const std::string id = "[" + std::to_string(KestThread::getCurrentThreadId()) + "] x\n";
    const auto now = [] {
        const std::time_t seconds = std::time(nullptr);
        char text[32];
        return std::string(text, std::strftime(text, sizeof text, "%Y%m%d_%H:%M:%S ", std::localtime(&seconds)));
    };
    const auto expectWritten = [&](int global, const std::string& module, int level, const std::string& expected) {
        Capture log(global);
        log.setLogLevel("Disk", 3);
        const std::string before = now();
        log << setloglevel(module, level) << "x" << endrecord;
        const std::string line = log.text(), stamp = line.size() > 2 ? line.substr(0, before.size()) : "";
        EXPECT_EQ(stamp, stamp.empty() ? "" : std::clamp(stamp, before, now()));
        EXPECT_EQ(line, stamp + expected) << global << ' ' << module << ' ' << level;
    };
    expectWritten(5, "", 5, "5 Global     " + id);
    expectWritten(5, "", 6, "");
    expectWritten(5, "Disk", 0, "x\n");  // level 0 is written whatever the module's level
    expectWritten(9, "Disk", 5, "");
    expectWritten(9, "Disk", 3, "3 Disk       " + id);
    expectWritten(2, "Disk", 3, "");  // a module's level does not lift the global one
    expectWritten(9, std::string(700, 'm'), 4, "4 " + std::string(700, 'm') + " " + id);
    expectWritten(-1, "", 0, "");
    expectWritten(-1, "", -1, "-1 Global     " + id);
}

TEST(Logging, IgnoresLevelsOutOfRange) {
    {
        KestLogging log;
        KestLogging::setInstance(log);
        EXPECT_EQ(std::pair(KestLogging::isAccessAllowed(), log.getTarget()), std::pair(false, 2));
        for (const int level : {7, -1, 10, -2}) {
            log.setLogLevel(level);
            log.setLogLevel("M", level);
        }
        EXPECT_EQ(std::tuple(log.getLogLevel(), log.getLogLevel("M"), log.getLogLevel("m")), std::tuple(7, -1, 7));
        KestLogging other("x", 0, 99);
        other.setLogLevel(8);
        { const KestLogging unregistered("x", 0, 99); }
        EXPECT_EQ(&KestLogging::getInstance(), &log);
        EXPECT_TRUE(KestLogging::isAccessAllowed());
        EXPECT_EQ(std::pair(bool(KestLogRecord(7)), bool(KestLogRecord(8))), std::pair(true, false));
        KestLogging::setInstance(other);
        EXPECT_TRUE(KestLogRecord(8));
        KestLogging::setInstance(log);
    }
    EXPECT_FALSE(KestLogging::isAccessAllowed());
}

template <typename... Values>
void expectInserted(const std::string& expected, const Values&... values) {
    Capture log;
    log.enableRecordData(false);
    (log << ... << values) << endrecord;
    EXPECT_EQ(log.text(), expected + "\n");
}

TEST(Logging, InsertsTheTextOfEveryType) {
    expectInserted(std::to_string(DBL_MAX) + "|-" + std::to_string(DBL_MAX), DBL_MAX, '|', -DBL_MAX);
    expectInserted("true/false", true, '/', false);
    expectInserted("-32768 65535-2147483648", short{-32768}, ' ', static_cast<unsigned short>(65535), INT_MIN);
    expectInserted("4294967295" + std::to_string(LONG_MIN) + std::to_string(~0UL), ~0U, LONG_MIN, ~0UL);
    expectInserted("-92233720368547758080", LLONG_MIN, 0ULL);
    expectInserted("1.500000-0.0000000.1000000.000000", 1.5, -0.0, 0.1F, 2.5e-7);
    expectInserted("inf-infnan-nan", INFINITY, -INFINITY, double{NAN}, -double{NAN});
    expectInserted("0000001234ABCDEF", reinterpret_cast<const void*>(0x1234ABCDEFUL));
    expectInserted("text two\nlinesCi", "text", std::string(" two\nlines"), string_ci("Ci\0cut", 6), "cut");
    expectInserted("wccc", wstring16{'w'}, wstring16_ci(3, 'c'), wstring16_ci(3, 0));
    expectInserted(std::string(1'000'000, 'x'), std::string(1'000'000, 'x'));
}

TEST(Logging, ForgetsTheChoiceAfterARecord) {
    Capture log(4);
    log << setloglevel("M", 2) << endrecord << "refused, since without a choice the level is 9" << endrecord;
    log << setloglevel("M", 2) << setloglevel(3) << "replaced" << endrecord;
    const KestSetLogLevelManipulator copied = setloglevel("N", 4);
    log << copied << setloglevel(-2) << "kept" << endrecord;
    internal::logRecord(internal::LogLevel::notice, "shown ", 4, std::string("!"));
    internal::logRecord(internal::LogLevel::operation, "hidden");
    EXPECT_EQ(log.messages(), (Lines{"replaced", "kept", "shown 4!"}));
    EXPECT_NE(log.lines()[0].find(" 3 Global     ["), std::string::npos);
    EXPECT_NE(log.lines()[1].find(" 4 N          ["), std::string::npos);
}

TEST(Logging, KeepsNoPrefixThatNoMemoryWasLeftFor) {
    static thread_local int t_accepted = -1;
    for (const int accepted : {0, 1}) {
        internal::RecordPrefix prefix(true, false, false);
        std::string line;
        prefix.appendTo(line, 2, "A", 7);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // until another millisecond
        t_accepted = accepted;
        {
            const kit::AllocationHook hook([](std::size_t) { return t_accepted-- != 0; });
            EXPECT_THROW(prefix.appendTo(line, 3, "a module that is longer than a short text", 7), std::bad_alloc);
        }
        line.clear();
        prefix.appendTo(line, 3, "A", 7);
        EXPECT_NE(line.find(" 3 A "), std::string::npos) << line;
    }
}

TEST(Logging, ReleasesTheMemoryOfALongRecord) {
    static thread_local int t_large = 0;
    Capture log(5);
    const std::string text(1 << 20, 'x');
    const auto largeAllocations = [&] {
        t_large = 0;
        const kit::AllocationHook counting([](std::size_t size) { return (t_large += size >> 20 != 0) >= 0; });
        log << setloglevel(5) << text << endrecord << setloglevel(5) << "short" << endrecord;
        return t_large;
    };
    const int first = largeAllocations();
    EXPECT_EQ(largeAllocations(), first) << "memory of the first record was kept";
}

TEST(Logging, CutsTheFileNameAtTheLastDot) {
    std::string names;
    for (const char* base : {"app.cfg", "log", "a.b.c", "", ".cfg", "\"quoted", "\"", "d.d/app"})
        names += internal::logFileName(base, 7) + ' ';
    EXPECT_EQ(names, "app7.log log7.log a.b7.log 7.log 7.log quoted7.log 7.log d7.log ");
}

static const kit::ChildRole switchesTargets("logging switches targets", [](const Lines& arguments) {
    std::srand(1);  // determines the numbers in the file names
    KestLogging log(arguments[0], 3, 1);
    log.enableRecordData(false);
    for (const int target : {3, 2, 1, 1, 0}) {
        log.setTarget(target);
        log << setloglevel(1) << "to " << target << endrecord;
    }
    return 0;
});

TEST(Logging, WritesToTargetsAndReportsOpenings) {
    const kit::LogFolder folder;
    const std::string base = folder.pathOf("absent/app");
    kit::ChildProcess child = kit::ChildProcess::inRole("logging switches targets", {base + ".cfg"});
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.output(), "to 3\nto 2\n");
    std::srand(1);
    std::string expected;
    for (int opening = 0; opening < 2; ++opening) {
        const std::string name = base + std::to_string(std::rand()) + ".log";
        expected += "KestLogging: Opening " + name + " for logging...\n";
        expected += "KestLogging: Cannot open log file " + name + " (" + std::to_string(ENOENT) + ")\n";
    }
    EXPECT_EQ(child.errors(), expected);
}

TEST(Logging, ContinuesAfterAnOutputFailure) {
    Capture log;
    const kit::FailingCalls full("writeRecords", 2, false, ENOSPC);
    for (const char* text : {"before", "lost", "after"})
        log << text << endrecord;
    EXPECT_EQ(log.messages(), (Lines{"before", "after"}));
}

TEST(Logging, LetsOthersWaitForAnOpenRecord) {
    Capture log(5);
    log << setloglevel("Mine", 5) << "open";
    std::thread([&] {
        log << endrecord;  // has no effect on another thread's record
        log.setTarget(2);  // the old file is closed after the record
        log.setTarget(1);
        log.setLogLevel("Mine", 5);
    }).join();
    kit::Gate entered;
    std::thread waiting([&] {
        log << setloglevel("Other", 4);
        entered.open();
        log << "other" << endrecord;
    });
    EXPECT_FALSE(entered.passWithin(std::chrono::milliseconds(50)));
    log << " whole" << endrecord;
    waiting.join();
    EXPECT_EQ(log.messages(), (Lines{"open whole", "other"}));
}

TEST(Logging, WritesARecordWholeOrNotAtAll) {
    Capture log(5);
    log << setloglevel(5);
    std::thread([&] { log << endrecord; }).join();  // discards the choice
    log << "refused";
    std::thread([&] { log << setloglevel(5); }).join();
    log << "and so is the rest" << endrecord << setloglevel(5) << "a ";
    for (const int level : {3, 5}) {
        std::thread([&] { log.setLogLevel(level); }).join();
        log << level;
    }
    log << endrecord << setloglevel(6);
    log.setLogLevel(6);  // a choice of the thread itself counts at once
    log << "own" << setloglevel(7) << " hidden" << setloglevel(6) << " choice" << endrecord;
    EXPECT_EQ(log.messages(), (Lines{"a 35", "own choice"}));
}

TEST(Logging, SeparatesRecordsOfEndedThreadsAndExceptions) {
    Capture log(5);
    std::string id;
    std::thread([&] {
        id = " 4 Dead       [" + std::to_string(KestThread::getCurrentThreadId()) + "] left";
        log << setloglevel("Dead", 4) << "left";
    }).join();
    const auto fails = []() -> int { throw 1; };
    EXPECT_THROW(log << setloglevel(5) << "half" << fails() << endrecord, int);
    log << setloglevel(5) << "next" << endrecord;
    EXPECT_THROW(log << setloglevel(5) << "ended" << fails(), int);
    log << endrecord << setloglevel(5) << "whole" << endrecord;
    EXPECT_EQ(log.messages(), (Lines{"left", "next", "ended", "whole"}));
    EXPECT_NE(log.lines().at(0).find(id), std::string::npos);
}

TEST(Logging, WatchesRecordsThatStayOpen) {
    Capture log(9);
    log.counts = true;
    const auto expectVisits = [&](int visits, int afterSeconds) {
        platform::stepClocks(afterSeconds, afterSeconds);
        KestTimerManager::reschedule();  // fires here, unless the timer thread is faster
        kit::await([&] { return log.visits >= visits; });
        EXPECT_EQ(log.visits.exchange(0), visits) << afterSeconds;
    };
    KestTimerManager::cancelWait();
    {
        const kit::FailingCalls none("createThread");
        log << "unwatched, but not lost" << endrecord;
    }
    EXPECT_EQ(log.messages().size(), 1U);
    for (const bool stays : {true, false}) {
        log.resetTimer();
        if (!stays) log.cancelTimer();
        expectVisits(stays, 61);
        expectVisits(stays, 61);  // repeats until the record ends
        log << "ended" << endrecord;
        expectVisits(0, 200);
        log << "runs" << endrecord;
        expectVisits(0, 40);
        log << "open";
        expectVisits(0, 40);  // too early
        expectVisits(1, 40);
        log << endrecord;
    }
    constexpr int kSteps = 2 * (2 * 61 + 200 + 3 * 40);
    platform::stepClocks(-kSteps, -kSteps);
}

TEST(Logging, IsVisitedByOneWatchdogThread) {
    KestCollaborator sender;
    Capture log;
    for (const int level : {8, 9}) {
        log.setLogLevel(level);
        log.timerElapsed();
    }
    log << setloglevel(9) << "open";
    {
        const kit::FailingCalls counted("createThread", INT_MAX);
        for (int i = 0; i < 5; ++i)
            log.handleNotification(sender, KestNotification(5));
        EXPECT_EQ(counted.seen(), 1);
    }
    log << setloglevel(9) << endrecord;
    kit::await([&] { return log.lines().size() >= 3; });
    const std::string message =
        "KestLogging::timerElapsed: called (NOTE: This message only appears and repeats when LogLevel = 9)";
    EXPECT_EQ(log.messages(), (Lines{message, "open", message}));
    for (int i = 0; i < 100; ++i) {
        Capture brief;
        brief << "still open";
        brief.handleNotification(sender, KestNotification(1));
    }
}
