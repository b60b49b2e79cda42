// Programs: start one and wait for its end.
#include <spawn.h>
#include <support/utilities.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench_kit.h"

namespace {

void run(benchmark::State& state) {
    int exitCode = 0;
    for (auto _ : state) {
        if (!KestSupport::KestExecuteProgram("/bin/true", true, nullptr, &exitCode) || exitCode != 0) {
            state.SkipWithError("not run");
        }
    }
}

void runByTheSystem(benchmark::State& state) {
    char name[] = "/bin/true";
    char* const arguments[] = {name, nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = -1;
        if (posix_spawn(&child, name, nullptr, nullptr, arguments, environ) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("not run");
        }
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("processes/run and wait").realTime().ours(run).peer("posix_spawn and waitpid", 1.2, runByTheSystem);
}
