#include "samples.h"

#include <support/locks.h>

#include <new>
#include <utility>

namespace agent {

using KestSupport::KestCriticalSection;

void SampleQueue::clear() {
    const KestCriticalSection guard(m_lock, true);
    m_samples.clear();
}

void SampleQueue::push(Sample sample) {
    const KestCriticalSection guard(m_lock, true);
    m_samples.push_back(std::move(sample));
}

std::optional<Sample> SampleQueue::pop() {
    const KestCriticalSection guard(m_lock, true);
    if (m_samples.empty()) return std::nullopt;
    std::optional<Sample> oldest(std::move(m_samples.front()));
    m_samples.pop_front();
    return oldest;
}

void SampleExchange::produce(Sample sample) {
    m_samples.push(std::move(sample));
    lockSyncMutex();
    setSyncEvent();
    unlockSyncMutex();
}

std::optional<Sample> SampleExchange::consume() {
    lockSyncMutex();
    std::optional<Sample> sample = m_samples.pop();
    while (!sample && !m_sentinel) {
        waitForSyncEvent();
        sample = m_samples.pop();
    }
    unlockSyncMutex();
    return sample;
}

Sampler::Sampler(KestSupport::KestTimer& pace, SampleExchange& exchange, Read read)
    : KestEventTimerThread("sampler", pace), m_exchange(exchange), m_read(std::move(read)) {}

Sampler::~Sampler() {
    endLoop();
}

// An exception would end the thread. Without memory this sample is dropped; the next firing tries again.
void Sampler::handleTimerEvent() try { m_exchange.produce(m_read()); } catch (const std::bad_alloc&) {
    return;
}

Recorder::Recorder(SampleExchange& exchange, Record record)
    : KestThread("recorder"), m_exchange(exchange), m_record(std::move(record)) {}

Recorder::~Recorder() {
    waitForThreadExit();
}

int Recorder::run() {
    while (const std::optional<Sample> sample = m_exchange.consume()) {
        try {
            m_record(*sample);
        } catch (const std::bad_alloc&) {
            continue;  // the next sample tries again
        }
    }
    return 0;
}

}  // namespace agent
