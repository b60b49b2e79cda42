// The road of a sample: a thread reads the figures at the pace of a timer and produces them into a queue; another one
// consumes them, so that a log or a state file that is slow never delays the next reading.
#pragma once

#include <support/event_timer_thread.h>
#include <support/producer_consumer.h>
#include <support/threads.h>

#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace agent {

/// One reading of every watcher's figure, in the order of the watchers; what could not be read is absent.
using Sample = std::vector<std::optional<double>>;

class SampleQueue : public KestSupport::KestBaseSynchronizedQueue {
  public:
    void clear() override;
    void push(Sample sample);
    /// The oldest sample; none when the queue is empty.
    std::optional<Sample> pop();

  private:
    std::deque<Sample> m_samples;  // guarded by m_lock
};

class SampleExchange : public KestSupport::KestBaseProducerConsumer {
  public:
    explicit SampleExchange(SampleQueue& queue) : KestBaseProducerConsumer(queue), m_samples(queue) {}

    void produce(Sample sample);
    /// Waits for a sample; none when the queue is empty and no more will come.
    std::optional<Sample> consume();

  private:
    SampleQueue& m_samples;
};

/// Produces a sample at each firing of the timer.
class Sampler : public KestSupport::KestEventTimerThread {
  public:
    using Read = std::function<Sample()>;

    Sampler(KestSupport::KestTimer& pace, SampleExchange& exchange, Read read);
    ~Sampler() override;

  private:
    void handleTimerEvent() override;

    SampleExchange& m_exchange;
    Read m_read;
};

/// Hands each sample on, on its own thread, until no more will come.
class Recorder : public KestSupport::KestThread {
  public:
    using Record = std::function<void(const Sample&)>;

    Recorder(SampleExchange& exchange, Record record);
    ~Recorder() override;

  private:
    using KestThread::run;
    int run() override;

    SampleExchange& m_exchange;
    Record m_record;
};

}  // namespace agent
