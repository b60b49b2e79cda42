// Texts at the limit of their lengths. The same small memory is mapped again and again, so they take little of it.
#include <sys/mman.h>
#include <unistd.h>

#include "support/strings.h"

using namespace KestSupport;

TEST(Strings, RefuseTextsTooLongForABstr) {
    constexpr std::size_t kPart = std::size_t{1} << 21, kParts = 2049;  // a part more than 4 GiB
    const int file = memfd_create("text", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(file, kPart), 0);
    const auto map = [&](void* at, std::size_t size, int sharing) {
        return mmap(at, size, at == nullptr ? PROT_NONE : PROT_READ | PROT_WRITE, sharing,
                    (sharing & MAP_ANONYMOUS) != 0 ? -1 : file, 0);
    };
    auto* const text = static_cast<char*>(map(nullptr, kParts * kPart, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE));
    ASSERT_NE(text, MAP_FAILED);
    for (std::size_t part = 0; part < kParts; ++part)
        ASSERT_NE(map(text + part * kPart, kPart, MAP_SHARED | MAP_FIXED), MAP_FAILED);
    std::memset(text, 'a', kPart);
    map(text + (kParts - 1) * kPart, kPart, MAP_PRIVATE | MAP_FIXED);
    std::memset(text + kParts * kPart - 2, 0, 2);
    EXPECT_EQ(SysAllocString(reinterpret_cast<const unsigned short*>(text)), nullptr);
    munmap(text, kParts * kPart);
    close(file);
}
