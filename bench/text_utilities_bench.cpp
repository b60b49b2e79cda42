// 64 KiB of bytes to hexadecimal text and back.
#include <support/text_utilities.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench_kit.h"

#ifdef KEST_HAVE_BOTAN
#include <botan/hex.h>
#endif

namespace {

constexpr int kBytes = 64 * 1024;

std::string allBytes() {
    std::string bytes(kBytes, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 2654435761u >> 8);
    return bytes;
}

[[maybe_unused]] std::vector<std::uint8_t> asBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

void encode(benchmark::State& state) {
    const std::string bytes = allBytes();
    for (auto _ : state)
        benchmark::DoNotOptimize(KestSupport::KestBytesToHex(bytes.data(), kBytes));
}

void decode(benchmark::State& state) {
    const std::string hex = KestSupport::KestBytesToHex(allBytes().data(), kBytes);
    std::vector<char> bytes(kBytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(KestSupport::KestHexToBytes(bytes.data(), hex));
        benchmark::ClobberMemory();
    }
}

#ifdef KEST_HAVE_BOTAN
void encodeBotan(benchmark::State& state) {
    const std::vector<std::uint8_t> bytes = asBytes(allBytes());
    for (auto _ : state)
        benchmark::DoNotOptimize(Botan::hex_encode(bytes.data(), bytes.size()));
}

void decodeBotan(benchmark::State& state) {
    const std::string hex = KestSupport::KestBytesToHex(allBytes().data(), kBytes);
    std::vector<std::uint8_t> bytes(kBytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Botan::hex_decode(bytes.data(), hex.data(), hex.size()));
        benchmark::ClobberMemory();
    }
}
#else
const KestBench::Body encodeBotan = KestBench::kMissing;
const KestBench::Body decodeBotan = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    Comparison("text utilities/bytes to hex 64 KiB").ours(encode).peer("Botan", 1.0, encodeBotan);
    Comparison("text utilities/hex to bytes 64 KiB").ours(decode).peer("Botan", 1.0, decodeBotan);
}
