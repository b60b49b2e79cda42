// Record files, and streams that signals interrupt.
#include "platform/record_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kit/temporary_folder.h"
#include "platform/file_stream.h"

using namespace KestSupport::platform;

TEST(RecordFile, RefusesLinksAndPipesWithoutReader) {
    const kit::TemporaryFolder folder;
    const std::string link = folder.pathOf("link"), pipe = folder.pathOf("pipe");
    std::filesystem::create_symlink(folder.write("target", "kept"), link);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& [name, error] : {std::pair(link, ELOOP), {pipe, ENXIO}}) {
        RecordFile file;
        EXPECT_FALSE(file.open(name.c_str()));
        EXPECT_EQ(errno, error);
    }
    EXPECT_EQ(folder.read("target"), "kept");
}

TEST(RecordFile, WritesWholeTextDespiteSignals) {
    struct sigaction interrupts {};
    interrupts.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &interrupts, nullptr), 0);
    constexpr int kTexts = 20;
    const std::string text(300'000, 'x');  // more than a pipe holds
    const pthread_t reader = pthread_self();
    for (const int mode : {0, O_NONBLOCK, -1}) {
        const bool asRecord = mode >= 0;
        int ends[2];
        ASSERT_TRUE(pipe(ends) == 0 && fcntl(ends[1], F_SETFL, asRecord ? mode : 0) == 0);
        const Stream input(fdopen(ends[0], "rb"));
        std::setvbuf(input.get(), nullptr, _IONBF, 0);
        std::thread writer([&] {
            const Stream output(fdopen(ends[1], "wb"));
            std::setvbuf(output.get(), nullptr, asRecord ? _IOFBF : _IONBF, BUFSIZ);
            std::fputs(asRecord ? "ab" : "", output.get());  // still in its buffer
            for (int i = 0; i < kTexts; ++i) {
                const bool whole = asRecord ? writeAfter(output.get(), text) == text.size()
                                            : writeStream(output.get(), text.data(), text.size());
                EXPECT_TRUE(whole);
            }
        });
        std::atomic<bool> over{false};
        std::thread signals([&, native = writer.native_handle()] {
            for (; !over; usleep(50)) {
                pthread_kill(native, SIGUSR1);
                pthread_kill(reader, SIGUSR1);
            }
        });
        std::vector<char> block(kTexts * text.size() + 3);
        bool failed = false;
        EXPECT_EQ(readStream(input.get(), block.data(), block.size(), failed), block.size() - (asRecord ? 1 : 3));
        EXPECT_FALSE(failed);
        EXPECT_EQ(block[0], asRecord ? 'a' : 'x');
        over = true;
        signals.join();
        writer.join();
    }
}
