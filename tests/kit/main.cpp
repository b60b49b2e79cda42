#include <gtest/gtest.h>

#include <csignal>

#include "kit/child_process.h"

// A test of processes starts this program again, in a role.
int main(int argc, char** argv) {
    int exitCode = 0;
    if (kit::ChildRole::run(argc, argv, exitCode)) return exitCode;
#ifdef SIGHUP
    // The tests send SIGHUP. A program under nohup ignores it, and so do its children.
    std::signal(SIGHUP, SIG_DFL);
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
