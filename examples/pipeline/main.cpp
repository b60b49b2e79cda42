// kest-words FILE...: counts the words of files. One thread per file sends its lines into a channel; three threads
// receive the lines and count.
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <support/threads.h>

#include "channel.h"

namespace {

using Lines = pipeline::Channel<std::string>;
using Counts = std::map<std::string, unsigned long>;

constexpr int kDone = 1;  // not 0, which is the exit code of a run that throws
constexpr int kUnread = 2;

class Reader : public KestSupport::KestThread {
  public:
    Reader(const std::string& file, Lines& lines) : KestThread(file), m_lines(lines) {}
    ~Reader() override { waitForThreadExit(); }

  private:
    using KestThread::run;
    int run() override {
        std::ifstream file(getName());
        std::string line;
        while (std::getline(file, line) && m_lines.send(std::move(line))) {
        }
        if (file.is_open() && !file.bad()) return kDone;
        m_lines.produceSentinel(true);  // there is no result, so the other threads stop
        return kUnread;
    }

    Lines& m_lines;
};

class Counter : public KestSupport::KestThread {
  public:
    explicit Counter(Lines& lines) : m_lines(lines) {}
    ~Counter() override { waitForThreadExit(); }

    /// For use after the run.
    const Counts& counts() const { return m_counts; }

  private:
    using KestThread::run;
    int run() override {
        for (std::string line; m_lines.receive(line);) {
            std::istringstream words(line);
            for (std::string word; words >> word;)
                ++m_counts[word];
        }
        return kDone;
    }

    Lines& m_lines;
    Counts m_counts;
};

int countWords(int fileCount, char** files) {
    pipeline::Queue<std::string> queue;
    Lines lines(queue);
    std::vector<std::unique_ptr<Reader>> readers;
    for (int i = 0; i < fileCount; ++i)
        readers.push_back(std::make_unique<Reader>(files[i], lines));
    Counter counters[] = {Counter(lines), Counter(lines), Counter(lines)};
    for (const auto& reader : readers)
        reader->start();
    for (Counter& counter : counters)
        counter.start();

    bool complete = true;
    for (const auto& reader : readers) {
        reader->waitForThreadExit();
        if (reader->getExitCode() == kDone) continue;
        std::fprintf(stderr, "kest-words: cannot read %s\n", reader->getName().c_str());
        complete = false;
    }
    lines.produceSentinel(false);
    Counts all;
    for (Counter& counter : counters) {
        counter.waitForThreadExit();
        complete = complete && counter.getExitCode() == kDone;
        for (const auto& [word, count] : counter.counts())
            all[word] += count;
    }
    if (!complete) return 2;
    for (const auto& [word, count] : all)
        std::printf("%lu %s\n", count, word.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) return countWords(argc - 1, argv + 1);
    std::fputs("usage: kest-words FILE...\n", stderr);
    return 2;
}
