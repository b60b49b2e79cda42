// Log files with a fixed name: appending, rotation, opening again, failures, and the form of the lines.

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sstream>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"
#include "platform/clock.h"
#include "platform/record_file.h"
#include "support/log_record.h"

using namespace KestSupport;

namespace {

struct Kept : kit::TemporaryFolder {
    KestLogFileOptions options{.name = pathOf("log")};

    /// Writes the records through one logger without prefixes.
    void write(const std::vector<std::string>& texts) const {
        KestLogging log(KestLogging::fileTarget, 5, options);
        log.enableRecordData(false);
        for (const std::string& text : texts)
            log << setloglevel(1) << text << endrecord;
    }

    /// The files in the order of their names, each with its text.
    std::string files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        std::string all;
        for (const std::string& name : names)
            all += name + ": " + readText(name);
        return all;
    }
};

/// A calendar that is ahead.
struct Later {
    explicit Later(int seconds) : ahead(seconds) { platform::stepClocks(ahead, 0); }
    ~Later() { platform::stepClocks(-ahead, 0); }
    const int ahead;
};

constexpr int kDay = 24 * 60 * 60;

}  // namespace

TEST(KeptLogFile, AppendsAndRotatesBySize) {
    Kept kept;
    kept.write({"first"});
    kept.options.maxBytes = platform::sizeInFile("12345\nthird\n");
    kept.options.keep = 2;
    kept.write({"12345", "third"});  // the first fills the file exactly
    EXPECT_EQ(kept.files(), "log: third\nlog.1: first\n12345\n");
    kept.write({"longer than all", "a", "b"});
    EXPECT_EQ(kept.files(), "log: a\nb\nlog.1: longer than all\nlog.2: third\n");
    kept.options.keep = 0;
    kept.write({"123456789"});
    EXPECT_EQ(kept.files(), "log: 123456789\nlog.1: longer than all\nlog.2: third\n");
    kept.kit::TemporaryFolder::write("log", "torn");  // by a full disk, at the end of a process
    kept.write({"a", "b"});
    EXPECT_EQ(kept.readText("log"), "torn\na\nb\n");
}

TEST(KeptLogFile, RotatesByDay) {
    Kept kept;
    kept.options.daily = true;
    kit::EnvironmentGuard environment;
    environment.set("TZ", "UTC0");
    kept.write({"of an earlier day"});
    {
        const Later noon(kDay + kDay / 2 - static_cast<int>(std::time(nullptr) % kDay));
        KestLogging log(KestLogging::fileTarget, 5, kept.options);
        log.enableRecordData(false);
        log << setloglevel(1) << "today" << endrecord << setloglevel(1) << "too" << endrecord;
        const Later later(kDay);
        log << setloglevel(1) << "tomorrow" << endrecord << setloglevel(1) << "too" << endrecord;
    }
    EXPECT_EQ(kept.files(), "log: tomorrow\ntoo\nlog.1: today\ntoo\nlog.2: of an earlier day\n");
}

TEST(KeptLogFile, LosesNoRecordOfSeveralThreads) {
    Kept kept;
    kept.options.maxBytes = 200;
    kept.options.keep = 1000;
    KestLogging log(KestLogging::fileTarget, 5, kept.options);
    KestLogging::setInstance(log);
    log.enableRecordData(false);
    constexpr int kRecords = 400;
    std::vector<std::thread> threads;
    for (int id = 0; id < 3; ++id) {
        threads.emplace_back([id] {
            for (int i = 0; i < kRecords; ++i)
                KestLogRecord(5) << id << ' ' << i;
        });
    }
    for (int i = 0; i < 20; ++i) {
        std::error_code notYet;
        std::filesystem::rename(kept.options.name, kept.pathOf("moved" + std::to_string(i)), notYet);
        log.reopen();
    }
    for (std::thread& thread : threads)
        thread.join();
    std::map<std::string, int> counts;
    for (const auto& entry : std::filesystem::directory_iterator(kept.path())) {
        std::istringstream lines(kept.readText(entry.path().filename().string()));
        for (std::string line; std::getline(lines, line);)
            ++counts[line];
        EXPECT_LE(std::filesystem::file_size(entry), kept.options.maxBytes);
    }
    EXPECT_EQ(counts.size(), 3U * kRecords);
}

TEST(KeptLogFile, OpensTheFileAgain) {
    const Kept kept;
    KestLogging log(KestLogging::fileTarget, 5, kept.options);
    log.enableRecordData(false);
    log << setloglevel(1) << "old" << endrecord << setloglevel(1) << "open";
    std::filesystem::rename(kept.options.name, kept.pathOf("moved"));
    std::thread([&] { log.reopen(); }).join();  // returns although a record is open
    log << endrecord;
    EXPECT_EQ(kept.files(), "log: open\nmoved: old\n");
    std::filesystem::rename(kept.options.name, kept.pathOf("moved"));
    log.reopen();
    EXPECT_EQ(kept.files(), "log: moved: open\n");
}

TEST(KeptLogFile, ReportsFailuresOnceAndContinues) {
    Kept kept;
    kept.options.maxBytes = 1000;
    const auto report = [](const std::string& failure) { return "KestLogging: Cannot " + failure + " (13)\n"; };
    const std::string unopened = report("open log file " + kept.options.name);
    const std::string unnamed = report("rename log file " + kept.options.name + " to " + kept.options.name + ".1");
    const std::string half(600, 'h');
    std::vector<std::string> records;
    testing::internal::CaptureStderr();
    {
        std::unique_ptr<KestLogging> log;
        const auto write = [&](const std::string& text, int seconds = 0) {
            const Later later(seconds);
            *log << setloglevel(1) << text << endrecord;
        };
        {
            const kit::FailingCalls closed("openRecordFile", 1, true, EACCES);
            log = std::make_unique<KestLogging>(KestLogging::fileTarget, 5, kept.options);
            log->enableRecordData(false);
            write("lost");
            write("too", 10);
        }
        write("first", 20);
        {
            const kit::FailingCalls fixed("renameRecordFile", 1, true, EACCES);
            for (int i = 0; i < 6; ++i)
                write(half);
            EXPECT_GT(fixed.seen(), 1);
        }
        {
            const kit::FailingCalls closed("openRecordFile", 1, true, EACCES);
            write(half + half);
            write("in the renamed file");
        }
        write("last", 30);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), unopened + unnamed + unopened);
    std::string first = "KestLogging: 2 records were not written to " + kept.options.name + " (13)\nfirst\n";
    for (int i = 0; i < 6; ++i)
        first += half + (i == 0 ? "\n" + unnamed : "\n");
    EXPECT_EQ(kept.files(), "log: last\nlog.1: " + first + unopened + half + half + "\nin the renamed file\n");
}

TEST(KeptLogFile, CountsWhatAFullDiskRefused) {
    const Kept kept;
    KestLogging log(KestLogging::fileTarget, 5, kept.options);
    log.enableRecordData(false);
    for (const int refused : {1, 3}) {
        {
            const kit::FailingCalls full("writeRecords", 1, true, ENOSPC);
            for (int i = 0; i < refused; ++i)
                log << setloglevel(1) << "refused" << endrecord;
        }
        log << setloglevel(1) << "room" << endrecord << setloglevel(1) << "again" << endrecord;
    }
    const std::string name = kept.options.name, error = " (" + std::to_string(ENOSPC) + ")\nroom\nagain\n";
    EXPECT_EQ(kept.files(), "log: KestLogging: 1 record was not written to " + name + error +
                                "KestLogging: 3 records were not written to " + name + error);
}

TEST(KeptLogFile, ShowsMillisecondsZoneAndControlCharacters) {
    for (const auto& [zone, shown] : {std::pair("XXX-5:45", "\\+05:45"), {"XXX3:30", "-03:30"}, {"UTC0", "\\+00:00"}}) {
        kit::EnvironmentGuard environment;
        environment.set("TZ", zone);
        Kept kept;
        kept.options.milliseconds = kept.options.zoneOffset = kept.options.escape = true;
        KestLogging log(KestLogging::fileTarget, 5, kept.options);
        log << setloglevel("a\nb", 5) << std::string("c\r\n\t\x1B\0\x7F\\d\xC3\xA4", 11) << endrecord;
        const std::string line = kept.readText("log");
        const std::string time = "\\d{8}_\\d\\d:\\d\\d:\\d\\d\\.\\d{3}";
        const std::regex expected(time + shown +
                                  " 5 a\\\\nb {8}\\[\\d+\\] c\\\\r\\\\n\\\\t\\\\x1B\\\\x00\\\\x7F\\\\d\xC3\xA4\n");
        EXPECT_TRUE(std::regex_match(line, expected)) << line;
    }
}
