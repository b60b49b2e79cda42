#include "values/date/local_zone.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

#include "platform/local_time.h"
#include "values/date/civil_time.h"

namespace KestSupport::internal {
namespace {

constexpr std::int64_t kEndOfRange = 32535216000;  // 3001-01-01 00:00:00 UTC
// TZ can express offsets from UTC up to 24:59:59, so no two offsets differ by more than 50 hours.
constexpr std::int64_t kWidestOffset = std::int64_t{25} * 3600;
constexpr std::int64_t kWidestChange = std::int64_t{50} * 3600;

/// How far local clocks are ahead of UTC in a block of time.
struct Offset {
    std::int32_t seconds = 0;
    bool daylightSaving = false;
    bool settled = false;  ///< the whole block has this offset

    bool operator==(const Offset&) const = default;
};

/// Remembers the offset of each block of time; blocks have equal lengths and are numbered from 0. A slot is one word,
/// so a reader never sees half of an entry. Blocks that share a slot replace each other.
template <std::size_t slotCount>
class OffsetTable {
  public:
    using Measure = Offset (*)(std::int64_t block);

    Offset get(std::int64_t block, Measure measure) {
        const std::uint32_t zone = platform::localZone();
        std::atomic<std::uint64_t>& slot = m_slots[static_cast<std::size_t>(block) % slotCount];
        const std::uint64_t tag = tagOf(block, zone);
        const std::uint64_t remembered = slot.load(std::memory_order_relaxed);
        if ((remembered ^ tag) >> kZoneShift == 0 && zone != 0) return unpack(remembered);
        return fill(slot, block, measure);
    }

  private:
    // From the lowest bit: settled, daylight saving, 18 bits of offset, 12 of the zone's number, the block's number.
    static constexpr int kOffsetShift = 2;
    static constexpr int kZoneShift = 20;
    static constexpr int kBlockShift = 32;
    static constexpr std::int32_t kBias = 1 << 17;  // makes every offset positive

    // Repeats a measurement during which the zone changed: it may mix the offsets of two zones.
    [[gnu::noinline]] static Offset fill(std::atomic<std::uint64_t>& slot, std::int64_t block, Measure measure) {
        for (std::uint32_t zone = platform::localZoneOfNow();;) {
            const Offset offset = measure(block);
            if (const std::uint32_t before = std::exchange(zone, platform::localZoneOfNow()); before != zone) continue;
            slot.store(tagOf(block, zone) | pack(offset), std::memory_order_relaxed);
            return offset;
        }
    }

    static std::uint64_t tagOf(std::int64_t block, std::uint32_t zone) {
        return static_cast<std::uint64_t>(block) << kBlockShift | std::uint64_t{zone} << kZoneShift;
    }
    static std::uint64_t pack(const Offset& offset) {
        return static_cast<std::uint64_t>(offset.seconds + kBias) << kOffsetShift |
               static_cast<std::uint64_t>(offset.daylightSaving) << 1 | static_cast<std::uint64_t>(offset.settled);
    }
    static Offset unpack(std::uint64_t word) {
        const auto biased = static_cast<std::int32_t>(word >> kOffsetShift & 0x3FFFF);
        return {biased - kBias, (word & 2) != 0, (word & 1) != 0};
    }

    std::array<std::atomic<std::uint64_t>, slotCount> m_slots{};
};

constexpr std::int64_t kQuarterHour = 900;
// A block is shorter than the shortest known time between two changes of the clocks, which is a week.
constexpr std::int64_t kCivilBlock = 4 * kSecondsPerDay;

constinit OffsetTable<64> g_quarters;
constinit OffsetTable<4096> g_civilBlocks;

constinit std::atomic<std::int64_t> g_lastCheck{-1};  // the second in which momentOfNow last checked the zone

Offset offsetAt(std::int64_t instant) {
    std::tm fields{};
    if (!platform::localTime(instant, fields)) return {};
    const std::int64_t seconds = civilSeconds(fields) - instant;
    if (seconds < -kWidestOffset || seconds > kWidestOffset) return {};
    return {static_cast<std::int32_t>(seconds), fields.tm_isdst > 0, true};
}

// The slow paths are not inlined, to keep the look-up in a table short.
[[gnu::noinline]] Offset measureQuarter(std::int64_t block) {
    const std::int64_t first = block * kQuarterHour;
    Offset offset = offsetAt(first);
    // Some zones changed their clocks a minute past midnight, within a quarter of an hour.
    if (offset != offsetAt(first + kQuarterHour - 1)) offset.settled = false;
    return offset;
}

// One offset holds for every local time of the block if it holds kWidestChange before and after the block too: no other
// instant with such a local time is farther away.
[[gnu::noinline]] Offset measureCivilBlock(std::int64_t block) {
    const std::int64_t first = (block - 1) * kCivilBlock;  // see offsetOfCivil
    Offset offset = offsetAt(first);
    const Offset expected = offset;
    const std::int64_t begin = first - offset.seconds;
    const std::int64_t end = begin + kCivilBlock;
    for (const std::int64_t instant : {begin - kWidestChange, begin, end, end + kWidestChange}) {
        if (offsetAt(instant) != expected) offset.settled = false;
    }
    return offset;
}

Offset offsetOfCivil(std::int64_t civil) {
    const std::int64_t block = (civil + kCivilBlock) / kCivilBlock;  // the range begins a little before 1970
    return g_civilBlocks.get(block, measureCivilBlock);
}

bool isRepresentable(const LocalMoment& moment) {
    return moment.instant >= 0 && moment.instant < kEndOfRange && moment.civil < kEndOfRange;
}

// When clocks are set back, a local time occurs twice, and the runtime returns one or the other, depending on earlier
// calls. Returns the one with the wanted daylight saving; if that does not decide, the later one.
std::int64_t chosenOf(std::int64_t instant, std::int64_t civil, bool wantsDaylightSaving) {
    Offset chosen = offsetAt(instant);
    if (instant + chosen.seconds != civil) return instant;
    for (const std::int64_t around : {instant - kWidestChange, instant + kWidestChange}) {
        const std::int64_t other = civil - offsetAt(around).seconds;
        const Offset offset = offsetAt(other);
        if (other == instant || other + offset.seconds != civil) continue;
        const bool decides = offset.daylightSaving != chosen.daylightSaving;
        if (decides ? offset.daylightSaving != wantsDaylightSaving : other < instant) continue;
        instant = other;
        chosen = offset;
    }
    return instant;
}

[[gnu::noinline]] bool askRuntime(const std::tm& fields, LocalMoment& moment) {
    platform::localZoneOfNow();
    std::tm normalised = fields;
    normalised.tm_sec = std::clamp(fields.tm_sec, 0, 59);
    const int extraSeconds = fields.tm_sec - normalised.tm_sec;
    const std::int64_t civil = civilSeconds(normalised);
    const std::int64_t instant = platform::instantOfLocalTime(normalised);
    moment.instant = chosenOf(instant, civil, fields.tm_isdst > 0) + extraSeconds;
    if (!platform::localTime(moment.instant, normalised)) return false;
    moment.civil = civilSeconds(normalised);
    moment.daylightSaving = normalised.tm_isdst;
    return isRepresentable(moment);
}

bool find(const std::tm& fields, std::int64_t civil, LocalMoment& moment) {
    if (civil < -kWidestOffset || civil >= kEndOfRange + kWidestOffset) return false;
    // The runtime counts seconds outside 0 to 59 in real time, across a change of the clocks, and the rest in local
    // time.
    if (0 <= fields.tm_sec && fields.tm_sec <= 59) {
        const Offset offset = offsetOfCivil(civil);
        if (offset.settled && (fields.tm_isdst < 0 || (fields.tm_isdst > 0) == offset.daylightSaving)) {
            moment = {civil - offset.seconds, civil, offset.daylightSaving ? 1 : 0};
            return isRepresentable(moment);
        }
    }
    return askRuntime(fields, moment);
}

}  // namespace

std::optional<LocalMoment> momentOfInstant(std::int64_t instant) {
    if (instant < 0 || instant >= kEndOfRange) return std::nullopt;
    const std::int64_t block = instant / kQuarterHour;
    const Offset offset = g_quarters.get(block, measureQuarter);
    LocalMoment moment{instant, instant + offset.seconds, offset.daylightSaving ? 1 : 0};
    if (!offset.settled) {
        platform::localZoneOfNow();
        std::tm fields{};
        if (!platform::localTime(instant, fields)) return std::nullopt;
        moment = {instant, civilSeconds(fields), fields.tm_isdst};
    }
    return isRepresentable(moment) ? std::optional(moment) : std::nullopt;
}

std::optional<LocalMoment> momentOfNow() {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    if (g_lastCheck.load(std::memory_order_relaxed) != now) {
        g_lastCheck.store(now, std::memory_order_relaxed);
        platform::localZoneOfNow();
    }
    return momentOfInstant(now);
}

std::optional<LocalMoment> momentOfFields(const std::tm& fields) {
    LocalMoment moment{};
    return find(fields, civilSeconds(fields), moment) ? std::optional(moment) : std::nullopt;
}

bool isLocalTime(const std::tm& fields) {
    if (!isCalendarTime(fields)) return false;
    const std::int64_t civil = civilSeconds(fields);
    LocalMoment moment{};
    return find(fields, civil, moment) && moment.civil == civil;
}

}  // namespace KestSupport::internal
