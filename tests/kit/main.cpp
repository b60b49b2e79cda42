#include <gtest/gtest.h>

#include "kit/child_process.h"
#include "kit/system.h"

// A test of processes starts this program again, in a role.
int main(int argc, char** argv) {
    int exitCode = 0;
    if (kit::ChildRole::run(argc, argv, exitCode)) return exitCode;
    kit::takeUsualSurroundings();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
