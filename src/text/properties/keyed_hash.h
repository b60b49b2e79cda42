// A hash for names from outside: SipHash, with a key that only this process knows. A sender without the key cannot
// choose names that collide, so no input makes a table slow. Not for signatures or passwords.
//
//   HashKey    the key; processHashKey returns the key of this process
//   SipHash    the hash of a sequence of words
//   hashBytes  the hash of bytes in memory
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KestSupport::internal {

struct HashKey {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
};

/// The halves of the key of this process: 0 until the first caller publishes them.
inline constinit std::atomic<std::uint64_t> firstHalfOfKey{0};
inline constinit std::atomic<std::uint64_t> secondHalfOfKey{0};
void publishHashKey();

/// Random, and the same during the life of the process. Takes no lock, so a thread may be killed in it.
inline HashKey processHashKey() {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    if (firstHalfOfKey.load(kRelaxed) == 0 || secondHalfOfKey.load(kRelaxed) == 0) [[unlikely]]
        publishHashKey();
    return {firstHalfOfKey.load(kRelaxed), secondHalfOfKey.load(kRelaxed)};
}

/// SipHash with its numbers of rounds, for each word and at the end. Its authors recommend <2, 4> for messages and <1,
/// 3> for hash tables.
template <int kWordRounds, int kFinalRounds>
class SipHash {
  public:
    explicit SipHash(HashKey key) noexcept
        : m_v0(key.first ^ 0x736f6d6570736575),
          m_v1(key.second ^ 0x646f72616e646f6d),
          m_v2(key.first ^ 0x6c7967656e657261),
          m_v3(key.second ^ 0x7465646279746573) {}

    void add(std::uint64_t word) noexcept {
        m_v3 ^= word;
        mix(kWordRounds);
        m_v0 ^= word;
    }

    std::uint64_t finish() noexcept {
        constexpr std::uint64_t kEndMark = 0xFF;
        m_v2 ^= kEndMark;
        mix(kFinalRounds);
        return m_v0 ^ m_v1 ^ m_v2 ^ m_v3;
    }

  private:
    void mix(int rounds) noexcept {
        for (; rounds > 0; --rounds) {
            m_v0 += m_v1;
            m_v2 += m_v3;
            m_v1 = std::rotl(m_v1, 13) ^ m_v0;
            m_v3 = std::rotl(m_v3, 16) ^ m_v2;
            m_v0 = std::rotl(m_v0, 32) + m_v3;
            m_v2 += m_v1;
            m_v3 = std::rotl(m_v3, 21) ^ m_v0;
            m_v1 = std::rotl(m_v1, 17) ^ m_v2;
            m_v2 = std::rotl(m_v2, 32);
        }
    }

    std::uint64_t m_v0, m_v1, m_v2, m_v3;
};

/// The last word of a message of `size` bytes: the bytes after the last whole word, with the size in the highest byte.
constexpr std::uint64_t lastHashWord(std::uint64_t rest, std::size_t size) noexcept {
    return rest | static_cast<std::uint64_t>(size) << 56;
}

template <typename Word>
Word loadWord(const unsigned char* from) noexcept {
    Word word = 0;
    std::memcpy(&word, from, sizeof word);
    return word;
}

/// Up to seven bytes as a word; the first byte is the lowest.
inline std::uint64_t loadFew(const unsigned char* bytes, std::size_t size) noexcept {
    if (size >= sizeof(std::uint32_t)) {
        const std::size_t rest = size - sizeof(std::uint32_t);
        return loadWord<std::uint32_t>(bytes) | std::uint64_t{loadWord<std::uint32_t>(bytes + rest)} << (8 * rest);
    }
    if (size == 0) return 0;
    const std::size_t middle = size / 2, last = size - 1;
    return bytes[0] | std::uint64_t{bytes[middle]} << (8 * middle) | std::uint64_t{bytes[last]} << (8 * last);
}

template <typename Hash>
std::uint64_t hashBytes(HashKey key, const void* data, std::size_t size) noexcept {
    using Word = std::uint64_t;
    const auto* const bytes = static_cast<const unsigned char*>(data);
    Hash hash(key);
    std::size_t done = 0;
    for (; size - done >= sizeof(Word); done += sizeof(Word))
        hash.add(loadWord<Word>(bytes + done));
    Word rest = 0;
    if (done == 0) {
        rest = loadFew(bytes, size);
    } else if (done != size) {
        // The last eight bytes overlap the word before them. The shift removes that part.
        rest = loadWord<Word>(bytes + size - sizeof(Word)) >> (8 * (done + sizeof(Word) - size));
    }
    hash.add(lastHashWord(rest, size));
    return hash.finish();
}

}  // namespace KestSupport::internal
