// The Blowfish block cipher on whole blocks of 8 bytes, which are two big-endian words, left and right.
//
// A block is 16 rounds, each of which needs the one before; so work on one block leaves most of a processor idle. Where
// blocks do not depend on each other, several are worked on at once.
//
// Input and output may be the same memory, but must not overlap in any other way.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/encryption.h"

namespace KestSupport::internal {

inline constexpr std::size_t kBlowfishBlockSize = 8;

/// Two words in registers, unlike SBlock.
struct BlowfishBlock {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
};

/// Fills the schedule for a key, of which the first 72 bytes count. The key must not be empty; a shorter one is
/// repeated.
void expandBlowfishKey(BlowfishSchedule& schedule, const unsigned char* key, std::size_t keyLength);

/// Each block on its own.
void encryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks);
void decryptEcb(const BlowfishSchedule& schedule, const unsigned char* in, unsigned char* out, std::size_t blocks);

/// Each plain block is combined with the cipher block before it. `chain` is the initial vector, and afterwards the last
/// cipher block.
void encryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks);
void decryptCbc(const BlowfishSchedule& schedule, BlowfishBlock& chain, const unsigned char* in, unsigned char* out,
                std::size_t blocks);

/// Overwrites memory that held a secret, even if it is not used again.
void wipe(void* memory, std::size_t size);

}  // namespace KestSupport::internal
