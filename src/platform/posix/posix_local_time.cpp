#include "platform/local_time.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace KestSupport::platform {
namespace {

// Searching the environment for TZ takes longer than all else that a conversion does. Between two changes of the
// environment it is enough to look at one entry: that of TZ, or without one the last entry, behind which setenv and
// putenv would put it.
class ZoneWatch {
  public:
    std::uint32_t zone() {
        const std::uint32_t before = m_sequence.load(std::memory_order_acquire);
        const Sighting sighting{m_environment.load(std::memory_order_acquire), m_slot.load(std::memory_order_acquire),
                                m_entry.load(std::memory_order_acquire), m_text.load(std::memory_order_acquire)};
        const std::uint32_t number = m_number.load(std::memory_order_acquire);
        const bool whole = before % 2 == 0 && m_sequence.load(std::memory_order_relaxed) == before;
        return whole && sighting.holds() ? number : look();
    }

  private:
    /// Where TZ, or its absence, was seen.
    struct Sighting {
        char** environment = nullptr;  ///< the environment's first entry; null: nothing was seen
        char** slot = nullptr;         ///< the entry to look at
        char* entry = nullptr;         ///< what stood there
        const char* text = nullptr;    ///< the text of TZ; null when it is not set

        bool holds() const {
            if (environment == nullptr || environment != environ || *slot != entry) return false;
            // The entry may be its owner's memory (putenv), so a text that is still in place may be a new one.
            return text == nullptr ? slot[1] == nullptr : std::strcmp(entry, text) == 0;
        }
    };

    std::uint32_t look() {
        const std::lock_guard guard(m_mutex);
        // Never destroyed: destructors of static objects use dates too.
        // It never shrinks either, since m_text points into it.
        static auto& zones = *new std::map<std::string, std::uint32_t>;
        Sighting sighting = search();
        const std::string text = sighting.text == nullptr ? std::string() : sighting.text;
        auto known = zones.find(text);
        if (known == zones.end() && zones.size() < kMostZones) {
            known = zones.emplace(text, static_cast<std::uint32_t>(zones.size() + 1)).first;
        }
        tzset();
        if (known == zones.end()) return 0;
        if (sighting.text != nullptr) sighting.text = known->first.c_str();
        publish(sighting, known->second);
        return known->second;
    }

    // The entry in full, "TZ=" included, is the text; not set, it is empty.
    static Sighting search() {
        if (environ == nullptr || *environ == nullptr) return {};
        char** slot = environ;
        for (; *slot != nullptr; ++slot) {
            if (std::strncmp(*slot, "TZ=", 3) == 0) return {environ, slot, *slot, *slot};
        }
        return {environ, slot - 1, slot[-1], nullptr};
    }

    // Readers that see an odd number, or another one afterwards than before, have seen parts of two sightings.
    void publish(const Sighting& sighting, std::uint32_t number) {
        const std::uint32_t sequence = m_sequence.load(std::memory_order_relaxed);
        m_sequence.store(sequence + 1, std::memory_order_relaxed);
        m_environment.store(sighting.environment, std::memory_order_release);
        m_slot.store(sighting.slot, std::memory_order_release);
        m_entry.store(sighting.entry, std::memory_order_release);
        m_text.store(sighting.text, std::memory_order_release);
        m_number.store(number, std::memory_order_release);
        m_sequence.store(sequence + 2, std::memory_order_release);
    }

    static constexpr std::size_t kMostZones = 1000;

    std::mutex m_mutex;
    // The published sighting: written under m_mutex, read without.
    std::atomic<std::uint32_t> m_sequence{0};
    std::atomic<char**> m_environment{nullptr};
    std::atomic<char**> m_slot{nullptr};
    std::atomic<char*> m_entry{nullptr};
    std::atomic<const char*> m_text{nullptr};
    std::atomic<std::uint32_t> m_number{0};
};

constinit ZoneWatch g_watch;

}  // namespace

std::uint32_t localZone() {
    return g_watch.zone();
}

bool localTime(std::int64_t instant, std::tm& result) noexcept {
    const time_t seconds = instant;
    return localtime_r(&seconds, &result) != nullptr;
}

bool utcTime(std::int64_t instant, std::tm& result) noexcept {
    const time_t seconds = instant;
    return gmtime_r(&seconds, &result) != nullptr;
}

std::int64_t instantOfLocalTime(std::tm& fields) noexcept {
    return mktime(&fields);
}

}  // namespace KestSupport::platform
