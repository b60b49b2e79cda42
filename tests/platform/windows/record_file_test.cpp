// Records in streams of the C runtime.

#include <cstdio>

#include "kit/temporary_folder.h"
#include "platform/record_file.h"

TEST(RecordOutput, HasTheLineEndsOfTheStream) {
    const kit::TemporaryFolder folder;
    for (const auto& [mode, expected] : {std::pair("w", "a\r\nb\r\nc\r\n"), {"wb", "a\nb\nc\n"}}) {
        std::FILE* const stream = std::fopen(folder.pathOf("f").c_str(), mode);
        std::fputs("a\n", stream);
        EXPECT_EQ(KestSupport::platform::writeAfter(stream, "b\n"), 2u);
        std::fputs("c\n", stream);
        std::fclose(stream);
        EXPECT_EQ(folder.read("f"), expected) << mode;
    }
}
