// The characters of many names, packed in blocks. A block per name would take an allocation for each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace KestSupport::internal {

/// A released name is only counted. When most of a store is waste, its owner copies the names to a new store.
template <typename View>
class NameStore {
  public:
    using CharType = typename View::value_type;

    /// Returns a copy of the name that lives as long as the store.
    View keep(View name) {
        if (name.size() > m_left) addBlock(name.size());
        CharType* const copy = m_next;
        std::copy(name.begin(), name.end(), copy);
        m_next += name.size();
        m_left -= name.size();
        m_used += name.size();
        return {copy, name.size()};
    }
    void release(View name) { m_waste += name.size(); }
    bool isMostlyWaste() const { return m_waste > kLargestBlock && m_waste > m_used / 2; }

  private:
    static constexpr std::size_t kSmallestBlock = 64;
    static constexpr std::size_t kLargestBlock = 32768;

    // Blocks grow with the content, so that few names take little memory.
    void addBlock(std::size_t atLeast) {
        const std::size_t size = std::max(atLeast, std::clamp(m_used, kSmallestBlock, kLargestBlock));
        std::unique_ptr<CharType[]> block(new CharType[size]);
        m_blocks.push_back(std::move(block));
        m_next = m_blocks.back().get();
        m_left = size;
    }

    std::vector<std::unique_ptr<CharType[]>> m_blocks;
    CharType* m_next = nullptr;
    std::size_t m_left = 0;
    std::size_t m_used = 0;
    std::size_t m_waste = 0;
};

}  // namespace KestSupport::internal
