// The way of a sample: the sampler reads the figures on a timer and puts them into a queue; the recorder takes them
// from there. So a slow log or state file never delays the next reading.
#pragma once

#include <support/event_timer_thread.h>
#include <support/producer_consumer.h>
#include <support/threads.h>

#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace agent {

/// One reading of all figures, in the order of the watchers. A figure that could not be read is absent.
using Sample = std::vector<std::optional<double>>;

class SampleQueue : public KestSupport::KestBaseSynchronizedQueue {
  public:
    void clear() override;
    void push(Sample sample);
    /// Removes and returns the oldest sample; nothing when the queue is empty.
    std::optional<Sample> pop();

  private:
    std::deque<Sample> m_samples;  // guarded by m_lock
};

class SampleExchange : public KestSupport::KestBaseProducerConsumer {
  public:
    explicit SampleExchange(SampleQueue& queue) : KestBaseProducerConsumer(queue), m_samples(queue) {}

    void produce(Sample sample);
    /// Waits for a sample. Returns nothing when the exchange is closed and the queue is empty.
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

/// Passes each sample to `record` on its own thread until the exchange is closed.
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
