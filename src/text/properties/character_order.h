// The order of characters under the traits of a string type, as numbers.
#pragma once

#include <cstdint>
#include <type_traits>

#include "support/strings.h"

namespace KestSupport::internal {

/// Characters that compare as equal have one rank; a lesser character has a lesser rank.
template <typename Traits>
struct CharacterOrder {
    using CharType = typename Traits::char_type;
    static constexpr bool kIsPlain = std::is_same_v<Traits, text_traits<CharType>>;
    static constexpr int kBits = kIsPlain && sizeof(CharType) == 1 ? 8 : 16;

    static std::uint16_t rankOf(CharType c) {
        if constexpr (!kIsPlain) {
            constexpr int kLeast = -128;
            return static_cast<std::uint16_t>(Traits::fold(c) - (sizeof(CharType) == 1 ? kLeast : 0));
        } else {
            return static_cast<std::make_unsigned_t<CharType>>(c);
        }
    }
};

}  // namespace KestSupport::internal
