// Records of many threads stay whole while settings change and threads are killed.

#include "kit/log_capture.h"
#include "support/log_record.h"
#include "text/log/internal_log.h"
#include "threads/function_work.h"

using namespace KestSupport;

namespace {

constexpr int kRecords = 3000;
constexpr int kKilled = 8;  // the sender whose records may end early
constexpr int kLongest = 96;

/// Sender, number, and a text whose length and letter follow from both.
std::string message(int sender, int number) {
    const std::string body(static_cast<std::size_t>(number % (kLongest + 1)), static_cast<char>('a' + sender));
    return std::to_string(sender) + "," + std::to_string(number) + "," + body + ">";
}

/// Writes both kinds of records by turns.
void logRecord(KestLogging& log, int level, const std::string& text) {
    const std::string module = "M" + text.substr(0, 1);
    thread_local bool t_whole = false;
    if (t_whole = !t_whole; t_whole) {
        KestLogRecord(level, module) << text[0] << text.c_str() + 1;
    } else {
        log << setloglevel(module, level) << text[0] << text.c_str() + 1 << endrecord;
    }
}

void logFromFourThreads(KestLogging& log) {
    std::vector<std::thread> threads;
    for (int sender = 0; sender < 4; ++sender) {
        threads.emplace_back([&log, sender] {
            for (int number = 0; number < kRecords; ++number)
                logRecord(log, 9, message(sender, number));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

/// How many records of the sender arrived. Each line must be a whole one.
int countRecords(const kit::LogCapture& log, int sender) {
    int count = 0;
    for (const std::string& line : log.messages()) {
        const int from = line.empty() ? 0 : line[0] - '0';
        const int number = line.size() < 2 ? 0 : std::atoi(line.c_str() + 2);
        const std::string whole =
            from == kKilled ? message(kKilled, kLongest).substr(0, line.size()) : message(from, number);
        EXPECT_EQ(line, whole) << "torn or mixed";
        count += from == sender;
    }
    return count;
}

}  // namespace

TEST(LoggingStress, WritesWholeRecordsWhileSettingsChange) {
    kit::LogCapture log(9);
    std::thread steady(logFromFourThreads, std::ref(log));
    for (int i = 0; i < kRecords; ++i) {
        log.setLogLevel(7 + i % 3);
        log.setLogLevel("M1", i % 10);
        if (i % 100 < 2) log.setTarget(i % 2);
        std::this_thread::yield();
    }
    steady.join();
    log << setloglevel(1) << message(9, 1) << endrecord;
    EXPECT_EQ(countRecords(log, 9), 1);
}

TEST(LoggingStress, TellsTheLevelWhileLoggersEnd) {
    std::atomic<bool> stop{false};
    std::thread reader([&stop] {
        while (!stop)
            EXPECT_LE(internal::currentLogLevel(), 5);
    });
    for (int i = 0; i < kRecords; ++i) {
        KestLogging brief("unused", 0, 5);
        KestLogging::setInstance(brief);
    }
    stop = true;
    reader.join();
}

TEST(LoggingStress, LosesNoRecordWhileThreadsAreKilled) {
    kit::LogCapture log(9);
    std::thread steady(logFromFourThreads, std::ref(log));
    const std::string text = message(kKilled, kLongest);  // a killed thread frees nothing
    for (int i = 0; i < 100; ++i)
        kit::killInside(i * 20, [&](int) { logRecord(log, 9, text); });
    steady.join();
    for (int sender = 0; sender < 4; ++sender)
        EXPECT_EQ(countRecords(log, sender), kRecords);
}
