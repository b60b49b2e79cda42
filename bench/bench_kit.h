// What the benches share: a measurement of ours is registered together with its peers, and scripts/bench pairs them.
//
// A bench is one file bench/FAMILY_bench.cpp that defines registerBenches(); the kit holds main(). For example
//
//     #include "bench_kit.h"
//
//     void KestBench::registerBenches() {
//         Comparison("locks/free")
//             .ours([](benchmark::State& state) { for (auto _ : state) { ... } })
//             .peer("std::recursive_mutex", 0.7, [](benchmark::State& state) { ... });
//     }
//
// Names have the form FAMILY/WHAT/ours and FAMILY/WHAT/PEER; the script makes one row of the table for each peer: what,
// ours, the peer, ours divided by the peer, and the target, which is the most that this ratio shall be.
//
// CPU time is compared, of all threads together; call realTime() where a thread sleeps, waits for another, or does its
// work in a thread of its own. What is not a time at all (memory) is put into state.counters["value"] by every body of
// a comparison, with its unit as the label: then the script compares these.
//
// The kit keeps a second thread alive and asleep, since the C library drops locked instructions in a program that has
// only one. A peer that needs a library which may be absent stands within the condition that the build defines when it
// was found: KEST_HAVE_POCO and the others that bench/CMakeLists.txt names.
#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <functional>
#include <string>

namespace KestBench {

using Body = std::function<void(benchmark::State&)>;

/// One thing that is measured, ours and its peers. A builder: a setting applies to the bodies that are added after it.
class Comparison {
  public:
    /// The name is FAMILY/WHAT. WHAT may have blanks, but no slash and no comma.
    explicit Comparison(std::string name);

    /// Compares elapsed time instead of the CPU time of the measured threads.
    Comparison& realTime();

    /// Runs the bodies in `count` threads at once; state.thread_index() distinguishes them.
    Comparison& threads(int count);

    /// Runs the body so often in each repetition, for work that cannot be run as often as the clock would like.
    Comparison& iterations(benchmark::IterationCount count);

    Comparison& ours(Body body);

    /// The ratio of ours to this peer shall be at most the target; 0 for a peer that is only shown.
    Comparison& peer(const std::string& name, double target, Body body);

  private:
    void add(const std::string& side, double target, Body body);

    std::string m_name;
    bool m_realTime = false;
    int m_threads = 1;
    benchmark::IterationCount m_iterations = 0;
};

/// Two processes that take all the processor time that they get, for as long as the object lives: what a wait costs on
/// a machine that has other work.
class BusyProcesses {
  public:
    BusyProcesses();
    BusyProcesses(const BusyProcesses&) = delete;
    BusyProcesses& operator=(const BusyProcesses&) = delete;
    ~BusyProcesses();

  private:
    std::array<int, 2> m_ids{};
};

/// What the bench's program does instead when it is started with that one argument, for benches that start programs.
/// Declared at namespace scope.
class ChildProgram {
  public:
    ChildProgram(const std::string& argument, int (*main)());
};

/// Every bench defines it; main() calls it once.
void registerBenches();

}  // namespace KestBench
