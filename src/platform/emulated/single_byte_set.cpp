#include "platform/emulated/single_byte_set.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace KestSupport::platform {
namespace {

// Windows-1252, 0x80 to 0x9F. Each other byte is its own unit. The five bytes without a character map to the control
// characters of the same number, so that a conversion there and back keeps all bytes.
constexpr unsigned short kUnits1252[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                           0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                           0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                           0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

SingleByteSet::SingleByteSet(const Units& units) : m_units(units) {
    for (std::size_t i = 0; i < m_units.size(); ++i)
        m_bytes[i] = {m_units[i], static_cast<char>(i)};
    // The sort is stable. All bytes without a character have the unit '?', and the byte '?' has the lowest number of
    // them.
    std::stable_sort(m_bytes.begin(), m_bytes.end(),
                     [](const Mapping& a, const Mapping& b) { return a.unit < b.unit; });
}

std::unique_ptr<SingleByteSet> SingleByteSet::windows1252() {
    Units units;
    std::iota(units.begin(), units.end(), static_cast<unsigned short>(0));
    std::copy(std::begin(kUnits1252), std::end(kUnits1252), units.begin() + 0x80);
    return std::make_unique<SingleByteSet>(units);
}

char SingleByteSet::byteOf(unsigned short unit) const {
    const auto found = std::lower_bound(m_bytes.begin(), m_bytes.end(), unit,
                                        [](const Mapping& row, unsigned short u) { return row.unit < u; });
    return found == m_bytes.end() || found->unit != unit ? '?' : found->byte;
}

std::size_t SingleByteSet::widen(const char* text, std::size_t length, unsigned short* dest,
                                 std::size_t capacity) const {
    if (length > capacity) return 0;
    std::transform(text, text + length, dest, [&](char c) { return m_units[static_cast<unsigned char>(c)]; });
    return length;
}

std::size_t SingleByteSet::narrow(const unsigned short* text, std::size_t length, char* dest,
                                  std::size_t capacity) const {
    if (length > capacity) return 0;
    std::transform(text, text + length, dest, [&](unsigned short unit) {
        return unit < m_units.size() && m_units[unit] == unit ? static_cast<char>(unit) : byteOf(unit);
    });
    return length;
}

}  // namespace KestSupport::platform
