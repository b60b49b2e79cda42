// Versions and ranges of any bytes. A version must be the same when it is read again from its text, have one order to
// any other version, and be in the ranges of that order. A refusal must have its reason.
#include <support/exceptions.h>
#include <support/version.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

using KestSupport::KestVersion;

void requireThat(bool condition) {
    if (!condition) std::abort();
}

void compareBothWays(const KestVersion& a, const KestVersion& b) {
    requireThat((a < b) + (b < a) + (a == b) == 1);
    requireThat((a == b) == (b == a) && (a <= b) == !(b < a));
}

void checkRange(const std::pair<KestVersion, KestVersion>& range) {
    const auto& [low, high] = range;
    compareBothWays(low, high);
    requireThat(KestVersion::inRange(range, low) == (!high.isInit() || low < high));
    requireThat(!KestVersion::inRange(range, high) || !high.isInit());
    for (const KestVersion& version : {low, high}) {
        // The text of a suffix without numbers begins with a dot, and cannot be read.
        const std::string text = version.toString();
        if (!text.starts_with('.')) requireThat(KestVersion(text) == version);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const auto ranges = KestVersion::createRangeVector(text);
        for (std::size_t i = 0; i < ranges.size(); ++i) {
            checkRange(ranges[i]);
            compareBothWays(ranges[i].first, ranges[i / 2].first);
        }
    } catch (const KestSupport::KestException& refusal) {
        requireThat(refusal.getCode() == 0 && refusal.getText().starts_with("KestVersion::"));
    }
    return 0;
}
