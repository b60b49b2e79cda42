// Hexadecimal text of 64 KiB of bytes, both ways.
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

}  // namespace

void KestBench::registerBenches() {
    Comparison encode("text utilities/bytes to hex 64 KiB");
    encode.ours([](benchmark::State& state) {
        const std::string bytes = allBytes();
        for (auto _ : state)
            benchmark::DoNotOptimize(KestSupport::KestBytesToHex(bytes.data(), kBytes));
    });
    Comparison decode("text utilities/hex to bytes 64 KiB");
    decode.ours([](benchmark::State& state) {
        const std::string hex = KestSupport::KestBytesToHex(allBytes().data(), kBytes);
        std::vector<char> bytes(kBytes);
        for (auto _ : state) {
            benchmark::DoNotOptimize(KestSupport::KestHexToBytes(bytes.data(), hex));
            benchmark::ClobberMemory();
        }
    });
#ifdef KEST_HAVE_BOTAN
    encode.peer("Botan", 1.0, [](benchmark::State& state) {
        const std::string text = allBytes();
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        for (auto _ : state)
            benchmark::DoNotOptimize(Botan::hex_encode(bytes.data(), bytes.size()));
    });
    decode.peer("Botan", 1.0, [](benchmark::State& state) {
        const std::string hex = KestSupport::KestBytesToHex(allBytes().data(), kBytes);
        std::vector<std::uint8_t> bytes(kBytes);
        for (auto _ : state) {
            benchmark::DoNotOptimize(Botan::hex_decode(bytes.data(), hex.data(), hex.size()));
            benchmark::ClobberMemory();
        }
    });
#endif
}
