// The block cipher Blowfish on whole blocks of 8 bytes: two big-endian words, left and right.
//
// A block takes 16 rounds, and each round needs the result of the one before, so one block leaves most of a processor
// idle. Where blocks do not depend on each other, the functions process several at once.
//
// Input and output may be the same memory, but must not overlap otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/encryption.h"

namespace KestSupport::internal {

inline constexpr std::size_t kBlowfishBlockSize = 8;

/// Two words. Unlike SBlock, which has a virtual destructor, it fits into registers.
struct BlowfishBlock {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
};

/// Computes the schedule of a key. The key must not be empty. It is repeated to 72 bytes; later bytes are ignored.
void expandBlowfishKey(BlowfishSchedule& schedule, const unsigned char* key, std::size_t keyLength);

/// Each block separately.
void encryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks);
void decryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks);

/// Each plain block is combined with the cipher block before it. `chain` is the initial vector; the functions replace
/// it by the last cipher block.
void encryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks);
void decryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks);

/// Overwrites memory that contained a secret. The compiler cannot remove the call.
void wipe(void* memory, std::size_t size);

}  // namespace KestSupport::internal
