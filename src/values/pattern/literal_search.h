// Finds the first or the last place of a literal in a range of a text.
//
// The search takes the two characters of the literal that are probably the rarest, and compares them at all places of
// 64 bytes at once. Where both match, it compares the whole literal. As long as the rarest one is rare in the text too,
// the C library's search for a single byte is faster still and is used first.
//
// Threads: any number of threads may search. The literal is not copied, and must exist as long as the search.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "support/strings.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KestSupport::internal {

template <typename CharT>
class LiteralSearch {
  public:
    using View = basic_text_view<CharT>;
    static constexpr std::size_t npos = View::npos;

    /// An empty literal. It must not be searched for.
    LiteralSearch() = default;
    explicit LiteralSearch(View literal) : m_literal(literal) {
        for (std::size_t i = 1; i < literal.size(); ++i) {
            if (rarity(literal[i]) > rarity(literal[m_rarest])) m_rarest = i;
        }
        m_second = m_rarest == 0 ? literal.size() - 1 : 0;
        for (std::size_t i = 0; i < literal.size(); ++i) {
            if (i != m_rarest && rarity(literal[i]) > rarity(literal[m_second])) m_second = i;
        }
    }

    /// The rarity of the rarest character, for a comparison with other literals.
    int rarity() const { return rarity(m_literal[m_rarest]); }

    bool isAt(const CharT* place) const {
        return place[m_rarest] == m_literal[m_rarest] &&
               std::memcmp(place, m_literal.data(), m_literal.size() * sizeof(CharT)) == 0;
    }

    /// Returns the first place of the literal from `low` up to, but not including, `high`; npos if there is none. The
    /// text must be long enough for the literal at each of these places.
    std::size_t first(const CharT* text, std::size_t low, std::size_t high) const {
        std::size_t place = low;
        if constexpr (sizeof(CharT) == 1) {
            // More misses than one per this number of bytes cost more than the comparison of pairs.
            constexpr std::size_t kBytesPerMiss = 256;
            for (std::size_t allowed = kBytesPerMiss; place < high; ++place, allowed += kBytesPerMiss) {
                if (place - low + 2 * kBytesPerMiss < allowed) break;
                const void* const hit = std::memchr(text + place + m_rarest, m_literal[m_rarest], high - place);
                if (hit == nullptr) return npos;
                place = static_cast<std::size_t>(static_cast<const CharT*>(hit) - text) - m_rarest;
                if (isAt(text + place)) return place;
            }
        }
        for (; place < high && high - place >= kBlock; place += kBlock) {
            for (std::uint64_t hits = pairsIn(text + place); hits != 0;) {
                const auto unit = static_cast<std::size_t>(std::countr_zero(hits)) / sizeof(CharT);
                if (isAt(text + place + unit)) return place + unit;
                hits &= ~(kUnit << (unit * sizeof(CharT)));
            }
        }
        for (; place < high; ++place) {
            if (isAt(text + place)) return place;
        }
        return npos;
    }

    /// Returns the last such place.
    std::size_t last(const CharT* text, std::size_t low, std::size_t high) const {
        for (; low < high && high - low >= kBlock; high -= kBlock) {
            const std::size_t block = high - kBlock;
            for (std::uint64_t hits = pairsIn(text + block); hits != 0;) {
                const auto unit = static_cast<std::size_t>(63 - std::countl_zero(hits)) / sizeof(CharT);
                if (isAt(text + block + unit)) return block + unit;
                hits &= ~(kUnit << (unit * sizeof(CharT)));
            }
        }
        while (low < high) {
            if (isAt(text + --high)) return high;
        }
        return npos;
    }

  private:
    static constexpr std::size_t kBlock = 64 / sizeof(CharT);
    static constexpr std::uint64_t kUnit = sizeof(CharT) == 1 ? 1 : 3;

    // The characters of text in Latin letters, the most frequent first. All others count as rarer.
    static int rarity(CharT c) {
        static constexpr char kFrequent[] = " etaoinsrlhdcumpfgybwv.k-0,1/:2_3=4\n5\"67'89jxqz()";
        static constexpr auto kTable = [] {
            struct {
                std::uint8_t rarity[128];
            } table{};
            for (std::uint8_t& entry : table.rarity)
                entry = sizeof kFrequent;
            for (std::uint8_t i = 0; kFrequent[i] != 0; ++i)
                table.rarity[static_cast<unsigned char>(kFrequent[i])] = i;
            return table;
        }();
        const auto code = static_cast<std::make_unsigned_t<CharT>>(c);
        return code < 128 ? kTable.rarity[code] : static_cast<int>(sizeof kFrequent);
    }

    // Returns the places of a block at which both characters match. A place has as many bits as a unit has bytes; the
    // first place has the lowest bits.
    std::uint64_t pairsIn(const CharT* block) const {
        const CharT a = m_literal[m_rarest];
        const CharT b = m_literal[m_second];
#if defined(__SSE2__)
        const auto all = [](CharT c) {
            if constexpr (sizeof(CharT) == 1) return _mm_set1_epi8(c);
            return _mm_set1_epi16(static_cast<short>(c));
        };
        const auto equal = [&](const CharT* text, __m128i wanted) {
            const __m128i found = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
            if constexpr (sizeof(CharT) == 1) return _mm_cmpeq_epi8(found, wanted);
            return _mm_cmpeq_epi16(found, wanted);
        };
        const __m128i allA = all(a);
        const __m128i allB = all(b);
        const auto quarter = [&](std::size_t i) {
            const CharT* const place = block + i * (kBlock / 4);
            return _mm_and_si128(equal(place + m_rarest, allA), equal(place + m_second, allB));
        };
        const __m128i q0 = quarter(0);
        const __m128i q1 = quarter(1);
        const __m128i q2 = quarter(2);
        const __m128i q3 = quarter(3);
        if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(q0, q1), _mm_or_si128(q2, q3))) == 0) return 0;
        const auto bits = [](__m128i q) { return static_cast<std::uint64_t>(_mm_movemask_epi8(q)); };
        return bits(q0) | bits(q1) << 16 | bits(q2) << 32 | bits(q3) << 48;
#else
        std::uint64_t hits = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const bool isPair = (block[i + m_rarest] == a) & (block[i + m_second] == b);
            hits |= (isPair ? kUnit : 0) << (i * sizeof(CharT));
        }
        return hits;
#endif
    }

    View m_literal;
    std::size_t m_rarest = 0;
    std::size_t m_second = 0;
};

}  // namespace KestSupport::internal
