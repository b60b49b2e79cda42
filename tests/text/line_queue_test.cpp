// Which thread writes the lines of several threads, and what a failed output loses of them.
#include "text/log/line_queue.h"

#include "kit/gate.h"
#include "support/threads.h"
#include "text/log/log_file.h"

using namespace KestSupport;

namespace {

using Texts = std::vector<std::string>;

struct Queue : internal::LineQueue {
    Turn addText(const std::string& text) {
        const KestCriticalSection guard(records, true);
        return add([&text](std::string& to) { to += text; });
    }
    void end(const Turn& turn) {
        finish(turn, [this](std::string_view text, std::span<const std::size_t>) {
            if (text == "slow\n") {
                begun.open();
                never.passWithin(std::chrono::milliseconds(100));
            }
            written.emplace_back(text);
        });
    }
    KestCriticalSectionObject records;
    Texts written;
    kit::Gate begun, never;
};

struct Sender : KestThread {
    Sender(Queue& target, std::string line) : queue(target), text(std::move(line)) { start(); }
    using KestThread::run;
    int run() override {
        const auto turn = queue.addText(text);
        added.open();
        queue.end(turn);
        return 0;
    }
    Queue& queue;
    const std::string text;
    kit::Gate added;
};

}  // namespace

TEST(LineQueue, WritesLinesThatWaitInOneCall) {
    Queue queue;
    const auto first = queue.addText("first\n");
    {
        Sender one(queue, "one\n");
        one.added.pass();
        Sender two(queue, "two\n");
        two.added.pass();
        queue.end(first);
        one.waitForThreadExit();
        two.waitForThreadExit();
    }
    queue.end(queue.addText("again\n"));
    EXPECT_EQ(queue.written, (Texts{"first\n", "one\ntwo\n", "again\n"}));
}

// A thread that is killed while it writes, ends after that.
TEST(LineQueue, KeepsTheLineOfAKilledThread) {
    for (const std::string text : {"waits\n", "slow\n"}) {
        Queue queue;
        const auto first = queue.addText("first\n");
        Sender killed(queue, text);
        killed.added.pass();
        const bool isWriting = text == "slow\n";
        if (isWriting) {
            queue.end(first);
            queue.begun.pass();
        }
        killed.kill();
        if (!isWriting) queue.end(first);
        queue.end(queue.addText("last\n"));
        EXPECT_EQ(queue.written,
                  isWriting ? (Texts{"first\n", "slow\n", "last\n"}) : (Texts{"first\n", "waits\nlast\n"}));
    }
}

TEST(LineQueue, LosesOneLineWhenAnOutputFails) {
    const std::string all = "a\nbb\nc\n";
    const auto expectOutput = [&](std::size_t taken, std::size_t expectedLost, const std::string& expected) {
        internal::LineEnds lines;
        std::string output;
        bool failed = false;
        const std::size_t ends[] = {2, 5, 7};
        const std::size_t lost = lines.write(all, ends, [&](std::string_view text) {
            const std::size_t size = std::exchange(failed, true) ? text.size() : taken;
            output += text.substr(0, size);
            return size;
        });
        EXPECT_EQ(std::pair(lost, output), std::pair(expectedLost, expected)) << taken;
    };
    expectOutput(0, 1, "bb\nc\n");
    expectOutput(1, 1, "a\nbb\nc\n");
    expectOutput(2, 1, "a\nc\n");
    expectOutput(3, 1, "a\nb\nc\n");
    expectOutput(6, 1, "a\nbb\nc");
    expectOutput(7, 0, all);
}
