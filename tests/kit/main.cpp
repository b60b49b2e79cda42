#include <gtest/gtest.h>

#include <csignal>

#include "kit/child_process.h"

// A test of processes starts this program once more, in a role of its own.
int main(int argc, char** argv) {
    int exitCode = 0;
    if (kit::ChildRole::run(argc, argv, exitCode)) return exitCode;
    // The tests send SIGHUP, which a run under nohup would ignore, as would the programs that it starts.
    std::signal(SIGHUP, SIG_DFL);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
