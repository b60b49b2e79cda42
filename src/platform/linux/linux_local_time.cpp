#include "platform/local_time.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/common/known_zones.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

// A zone is known by the whole entry of TZ, or by the state of the system's zone file.
// The C runtime compares the same members to decide whether it must read the file again.
std::string systemZone() {
    struct stat status {};
    if (stat("/etc/localtime", &status) != 0) return "none";
    return std::to_string(status.st_dev) + ' ' + std::to_string(status.st_ino) + ' ' +
           std::to_string(status.st_mtim.tv_sec) + ' ' + std::to_string(status.st_mtim.tv_nsec);
}

// A search of 77 variables for TZ takes 36 ns. While the environment does not change, a look at one entry (0.5 ns)
// shows whether TZ has changed: at that of TZ, or without TZ at the last one, after which setenv and putenv would add
// it.
class ZoneWatch {
  public:
    // With `ofNow`, looks at TZ and the system's zone file in any case.
    std::uint32_t zone(bool ofNow) {
        const std::uint32_t before = m_sequence.load(std::memory_order_acquire);
        const Sighting sighting{m_environment.load(std::memory_order_acquire), m_slot.load(std::memory_order_acquire),
                                m_entry.load(std::memory_order_acquire), m_text.load(std::memory_order_acquire)};
        const std::uint32_t number = m_number.load(std::memory_order_acquire);
        const bool whole = before % 2 == 0 && m_sequence.load(std::memory_order_relaxed) == before;
        if (!whole || !sighting.holds()) return look(0);
        return ofNow ? look(number) : number;
    }

  private:
    /// Where TZ was found, or that it was not set.
    struct Sighting {
        char** environment = nullptr;  ///< the first entry of the environment; null: no sighting
        char** slot = nullptr;         ///< where the entry is
        char* entry = nullptr;         ///< the entry
        const char* text = nullptr;    ///< the text of TZ; null when it is not set

        bool holds() const {
            if (environment == nullptr || environment != environ || *slot != entry) return false;
            // The caller of putenv owns the memory of the entry and may have changed its text.
            return text == nullptr ? slot[1] == nullptr : std::strcmp(entry, text) == 0;
        }
    };

    // Returns the number of the present zone, and publishes it if it is not the published one. The runtime looks too:
    // the program may have let it use another zone since.
    std::uint32_t look(std::uint32_t published) {
        const RuntimeCall call;
        Sighting sighting = search();
        const KnownZone* zone = nullptr;
        if (sighting.text != nullptr) {
            zone = knownZone(sighting.text);
            tzset();
        } else {
            // Repeats until the file stays the same: it may be replaced between this look and that of the runtime.
            std::string before;
            for (std::string now = systemZone(); now != before; now = systemZone()) {
                zone = knownZone(now);
                tzset();
                before = std::move(now);
            }
        }
        if (zone == nullptr || numberOf(zone) == published) return numberOf(zone);
        if (sighting.text != nullptr) sighting.text = zone->value.c_str();
        publish(sighting, numberOf(zone));
        return numberOf(zone);
    }

    // The text is the whole entry, "TZ=" included, or null if TZ is not set.
    static Sighting search() {
        if (environ == nullptr || *environ == nullptr) return {};
        char** slot = environ;
        for (; *slot != nullptr; ++slot) {
            if (std::strncmp(*slot, "TZ=", 3) == 0) return {environ, slot, *slot, *slot};
        }
        return {environ, slot - 1, slot[-1], nullptr};
    }

    // A reader that sees an odd sequence, or different ones before and after, has read parts of two sightings. If
    // another thread is publishing, this one does not; a later call looks again.
    void publish(const Sighting& sighting, std::uint32_t number) {
        std::uint32_t sequence = m_sequence.load(std::memory_order_relaxed);
        if (sequence % 2 != 0 || !m_sequence.compare_exchange_strong(sequence, sequence + 1)) return;
        m_environment.store(sighting.environment, std::memory_order_release);
        m_slot.store(sighting.slot, std::memory_order_release);
        m_entry.store(sighting.entry, std::memory_order_release);
        m_text.store(sighting.text, std::memory_order_release);
        m_number.store(number, std::memory_order_release);
        m_sequence.store(sequence + 2, std::memory_order_release);
    }

    // The published sighting. An odd sequence is the lock of its writer.
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
    return g_watch.zone(false);
}

std::uint32_t localZoneOfNow() {
    return g_watch.zone(true);
}

bool localTime(std::int64_t instant, std::tm& result) noexcept {
    const RuntimeCall call;
    const time_t seconds = instant;
    return localtime_r(&seconds, &result) != nullptr;
}

bool utcTime(std::int64_t instant, std::tm& result) noexcept {
    const RuntimeCall call;
    const time_t seconds = instant;
    return gmtime_r(&seconds, &result) != nullptr;
}

std::int64_t instantOfLocalTime(std::tm& fields) noexcept {
    const RuntimeCall call;
    return mktime(&fields);
}

}  // namespace KestSupport::platform
