#include "values/cipher/blowfish.h"

#include <bit>
#include <cstring>
#include <iterator>

namespace KestSupport::internal {
namespace {

constexpr std::size_t kRounds = 16;

/// The halves of this number of blocks fill the registers of a 64-bit processor.
constexpr std::size_t kManyBlocks = 6;

enum class Direction { encrypt, decrypt };

/// Converts to or from big-endian byte order.
constexpr std::uint32_t bigEndian(std::uint32_t word) {
    if constexpr (std::endian::native == std::endian::big) return word;
    return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
}

std::uint32_t loadWord(const unsigned char* bytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return bigEndian(word);
}

void storeWord(std::uint32_t word, unsigned char* bytes) {
    word = bigEndian(word);
    std::memcpy(bytes, &word, sizeof word);
}

BlowfishBlock loadBlock(const unsigned char* bytes) {
    return {loadWord(bytes), loadWord(bytes + 4)};
}

void storeBlock(BlowfishBlock block, unsigned char* bytes) {
    storeWord(block.left, bytes);
    storeWord(block.right, bytes + 4);
}

BlowfishBlock operator^(BlowfishBlock a, BlowfishBlock b) {
    return {a.left ^ b.left, a.right ^ b.right};
}

/// Every round waits for this. The two inner bytes are taken from a rotated copy: a processor extracts the lowest byte
/// of a register at no cost, but the second byte in several cycles.
inline std::uint32_t roundFunction(const BlowfishSchedule& schedule, std::uint32_t x) {
    const auto& s = schedule.s;
    const std::uint32_t rotated = std::rotr(x, 16);
    return ((s[0][x >> 24] + s[1][rotated & 0xFF]) ^ s[2][rotated >> 24]) + s[3][x & 0xFF];
}

/// Does two rounds at a time, so that the halves are not swapped. A half is combined with its subkey before the result
/// of the round function is ready.
template <Direction direction, std::size_t count>
inline void transform(const BlowfishSchedule& schedule, BlowfishBlock (&blocks)[count]) {
    const auto subkey = [&](std::size_t step) {
        return schedule.p[direction == Direction::encrypt ? step : kRounds + 1 - step];
    };
    for (BlowfishBlock& block : blocks)
        block.left ^= subkey(0);
    for (std::size_t round = 0; round < kRounds; round += 2) {
        for (BlowfishBlock& block : blocks)
            block.right = block.right ^ subkey(round + 1) ^ roundFunction(schedule, block.left);
        for (BlowfishBlock& block : blocks)
            block.left = block.left ^ subkey(round + 2) ^ roundFunction(schedule, block.right);
    }
    for (BlowfishBlock& block : blocks)
        block = {block.right ^ subkey(kRounds + 1), block.left};
}

/// The blocks that are left to process.
struct BlockWork {
    const unsigned char* in;
    unsigned char* out;
    std::size_t blocks;
};

/// Processes groups of `count` blocks as long as there are enough blocks.
template <Direction direction, std::size_t count>
void transformEcb(const BlowfishSchedule& schedule, BlockWork& work) {
    for (; work.blocks >= count; work.blocks -= count) {
        BlowfishBlock blocks[count];
        for (BlowfishBlock& block : blocks) {
            block = loadBlock(work.in);
            work.in += kBlowfishBlockSize;
        }
        transform<direction>(schedule, blocks);
        for (const BlowfishBlock& block : blocks) {
            storeBlock(block, work.out);
            work.out += kBlowfishBlockSize;
        }
    }
}

template <std::size_t count>
void decryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, BlockWork& work) {
    for (; work.blocks >= count; work.blocks -= count) {
        BlowfishBlock blocks[count];
        for (std::size_t i = 0; i < count; ++i)
            blocks[i] = loadBlock(work.in + i * kBlowfishBlockSize);
        transform<Direction::decrypt>(schedule, blocks);
        for (const BlowfishBlock& block : blocks) {
            const BlowfishBlock cipher = loadBlock(work.in);
            storeBlock(block ^ chain, work.out);
            chain = cipher;
            work.in += kBlowfishBlockSize;
            work.out += kBlowfishBlockSize;
        }
    }
}

/// Encrypts a block of zeros again and again, and replaces two words of the tables by each result. Each encryption uses
/// the tables as changed so far.
void stirTables(BlowfishSchedule& schedule) {
    BlowfishBlock block[1];
    const auto replace = [&](auto& words) {
        for (std::size_t i = 0; i < std::size(words); i += 2) {
            transform<Direction::encrypt>(schedule, block);
            words[i] = block[0].left;
            words[i + 1] = block[0].right;
        }
    };
    replace(schedule.p);
    for (auto& box : schedule.s)
        replace(box);
}

}  // namespace

void expandBlowfishKey(BlowfishSchedule& schedule, const unsigned char* key, std::size_t keyLength) {
    static_assert(sizeof schedule.p == sizeof KestEncryption::arrwPBoxInit &&
                  sizeof schedule.s == sizeof KestEncryption::arrwSBoxInit);
    std::memcpy(schedule.p, KestEncryption::arrwPBoxInit, sizeof schedule.p);
    std::memcpy(schedule.s, KestEncryption::arrwSBoxInit, sizeof schedule.s);
    std::size_t next = 0;
    for (std::uint32_t& word : schedule.p) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            word ^= std::uint32_t{key[next]} << shift;
            next = next + 1 == keyLength ? 0 : next + 1;
        }
    }
    stirTables(schedule);
}

void encryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks) {
    BlockWork work{in, out, blocks};
    transformEcb<Direction::encrypt, kManyBlocks>(schedule, work);
    transformEcb<Direction::encrypt, 2>(schedule, work);
    transformEcb<Direction::encrypt, 1>(schedule, work);
}

void decryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks) {
    BlockWork work{in, out, blocks};
    transformEcb<Direction::decrypt, kManyBlocks>(schedule, work);
    transformEcb<Direction::decrypt, 2>(schedule, work);
    transformEcb<Direction::decrypt, 1>(schedule, work);
}

void encryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks) {
    BlowfishBlock block[1] = {chain};
    for (; blocks > 0; --blocks) {
        block[0] = block[0] ^ loadBlock(in);
        transform<Direction::encrypt>(schedule, block);
        storeBlock(block[0], out);
        in += kBlowfishBlockSize;
        out += kBlowfishBlockSize;
    }
    chain = block[0];
}

void decryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks) {
    BlockWork work{in, out, blocks};
    decryptCbc<kManyBlocks>(schedule, chain, work);
    decryptCbc<2>(schedule, chain, work);
    decryptCbc<1>(schedule, chain, work);
}

void wipe(void* memory, std::size_t size) {
    // The compiler must read the volatile pointer and does not know the function, so it cannot remove the call.
    static void* (*const volatile fill)(void*, int, std::size_t) = std::memset;
    fill(memory, 0, size);
}

}  // namespace KestSupport::internal
