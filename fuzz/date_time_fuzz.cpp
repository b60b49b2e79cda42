// Reads date texts of any bytes. A text that is read must be a date; a text that is refused must not change the value.
#include <support/date_time.h>
#include <support/exceptions.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using KestSupport::KestDateTime;

void requireThat(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of exactly that size, so that a sanitizer sees a read past the end.
    const std::string text(reinterpret_cast<const char*>(data), size);
    KestDateTime value;
    value.set(1, 2, 94, 3, 4, 5);
    const std::int64_t before = value.getTime();
    try {
        value.set(text);
        requireThat(value.getTime() >= 0 && value.getYear() <= 3000 && value.getMonth() <= 12 && value.getDay() <= 31);
        char again[64];
        std::snprintf(again, sizeof again, "%02u/%02u/%u %02u:%02u:%02u", value.getDay(), value.getMonth(),
                      value.getYear(), value.getHour(), value.getMinute(), value.getSecond());
        KestDateTime rebuilt;
        rebuilt.set(std::string(again));
        requireThat(rebuilt == value && rebuilt.getWeekday() == value.getWeekday());
    } catch (const KestSupport::KestException& refusal) {
        requireThat(refusal.getCode() == 0 && value.getTime() == before && value.getHour() == 3);
    }
    return 0;
}
