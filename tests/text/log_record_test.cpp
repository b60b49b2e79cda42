// The texts of KestLogRecord, which records it writes, and how it and records of the other kind meet.
#include "support/log_record.h"

#include <climits>
#include <cmath>
#include <sstream>

#include "kit/gate.h"
#include "kit/log_capture.h"

using namespace KestSupport;
using namespace std::chrono_literals;

namespace {

using Lines = std::vector<std::string>;

struct Counted {
    int& printed;
};
std::ostream& operator<<(std::ostream& stream, const Counted& value) {
    return stream << "value " << ++value.printed << '!';
}
struct Throwing {};
std::ostream& operator<<(std::ostream& stream, const Throwing&) {
    stream << "half";
    throw 1;
}

struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
};

template <typename... Values>
void expectText(const std::string& expected, const Values&... values) {
    const kit::LogCapture log;
    (KestLogRecord(5, "Text") << ... << values);
    EXPECT_EQ(log.messages(), Lines{expected});
}

template <typename... Values>
void expectTextOfTheLogger(const Values&... values) {
    kit::LogCapture log;
    (log << ... << values) << endrecord;
    expectText(log.messages().at(0), values...);
}

}  // namespace

TEST(LogRecord, InsertsWhatTheLoggerInserts) {
    expectTextOfTheLogger(true, '|', short{-5}, INT_MIN, ~0U, LLONG_MIN, ~0ULL, 1.5F, -1e300, -INFINITY);
    expectTextOfTheLogger(static_cast<unsigned char>('A'), "text", std::string(700, 'x'), string_ci("Ci"));
    expectTextOfTheLogger(reinterpret_cast<const void*>(0x1234ABCDUL), static_cast<int*>(nullptr));
    expectTextOfTheLogger(wstring16(300, 'w'), wstring16_ci(3, 'c'), wstring16_ci(3, 0));
}

TEST(LogRecord, InsertsViewsDurationsAndStreamedTypes) {
    char array[8] = "array";
    expectText("view array", std::string_view("view but not this", 5), array);
    expectText("5ns 6us 7ms -8s 9min 10h 2d", 5ns, ' ', 6us, ' ', 7ms, ' ', -8s, ' ', 9min, ' ', 10h, ' ',
               std::chrono::days(2));
    expectText("1.500000s 1209600.000000s", std::chrono::duration<double>(1.5), ' ', std::chrono::weeks(2));
    expectText("\"/var/lib\"", std::filesystem::path("/var/lib"));
    std::ostringstream id;
    id << std::this_thread::get_id();
    expectText(id.str(), std::this_thread::get_id());
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    int printed = 999;
    expectText("value 1000!1001", Counted{printed}, 1001);
    std::locale::global(before);
}

TEST(LogRecord, WritesRecordsWithinTheLevels) {
    kit::LogCapture log(5);
    int printed = 0;
    for (const int level : {0, 3, 5, 6}) {
        KestLogRecord(level) << level;
        KestLogRecord(level, "Low") << "low " << level << Counted{printed};
        EXPECT_EQ(static_cast<bool>(KestLogRecord(level)), level <= 5);
        log.setLogLevel("Low", 3);
    }
    EXPECT_EQ(printed, 2);  // above the level of the module no text is made
    EXPECT_EQ(log.messages(), (Lines{"0", "low 0value 1!", "3", "low 3value 2!", "5"}));
    EXPECT_EQ(log.lines().at(0), "0");
    EXPECT_NE(log.lines().at(2).find(" 3 Global     ["), std::string::npos);
    EXPECT_NE(log.lines().at(3).find(" 3 Low        ["), std::string::npos);
}

TEST(LogRecord, IsDroppedWhenAValueThrows) {
    const kit::LogCapture log;
    const auto fails = []() -> int { throw 1; };
    EXPECT_THROW(KestLogRecord(5) << "dropped" << fails(), int);
    {
        KestLogRecord record(5);
        EXPECT_THROW(record << "dropped" << Throwing(), int);
        EXPECT_FALSE(record << "too");
        KestLogRecord whole(5);
        EXPECT_THROW(whole << "whole" << fails(), int);  // nothing was inserted in part
    }
    struct WritesAtItsEnd {
        ~WritesAtItsEnd() { KestLogRecord(5) << "during an exception"; }
    };
    EXPECT_THROW((WritesAtItsEnd(), fails()), int);
    EXPECT_EQ(log.messages(), (Lines{"whole", "during an exception"}));
}

TEST(LogRecord, LeavesRecordsOfTheOtherKindAlone) {
    kit::LogCapture log(5);
    const auto inner = [](const std::string& text) {
        KestLogRecord(4, "Inner") << text;
        return text.size();
    };
    KestLogRecord(5) << "one " << inner("first");
    log << setloglevel("Chosen", 3);
    inner("second");
    log << "open " << inner("third") << endrecord;
    EXPECT_EQ(log.messages(), (Lines{"first", "one 5", "second", "third", "open 5"}));
    EXPECT_NE(log.lines().at(4).find(" 3 Chosen     ["), std::string::npos);

    log << setloglevel(5) << "whole";
    kit::Gate reached;
    std::thread other([&] {
        KestLogRecord record(5);
        record << "built";  // without waiting
        reached.open();
    });
    reached.pass();
    log << endrecord;
    other.join();
    std::thread([&] { log << setloglevel(5) << "left"; }).join();
    inner("after");
    const Lines all = log.messages();
    EXPECT_EQ(Lines(all.begin() + 5, all.end()), (Lines{"whole", "built", "left", "after"}));
}
