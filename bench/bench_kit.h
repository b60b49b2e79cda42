// The parts that benches share. A bench registers a measurement of our class together with its peers; scripts/bench
// pairs them.
//
// bench/FAMILY_bench.cpp defines registerBenches(); the kit has main(). For example
//
//     #include "bench_kit.h"
//
//     void KestBench::registerBenches() {
//         Comparison("locks/free")
//             .ours([](benchmark::State& state) { for (auto _ : state) { ... } })
//             .peer("std::recursive_mutex", 0.7, [](benchmark::State& state) { ... });
//         Growth("locks/takers", "threads").limit(1.1).at({1, 10, 100}, [](benchmark::State& state, int size) { ... });
//     }
//
// A bench links the shared library and uses only the public headers, as a user's program does. To measure internal
// classes, write bench/internal/FAMILY_bench.cpp: it links the static library, its rows are marked, and its peers have
// no target.
//
// The names have the form FAMILY/WHAT/ours and FAMILY/WHAT/PEER. The script prints one row for each peer: WHAT, our
// figure, the peer's figure, our figure divided by the peer's, and the target, which is the highest acceptable ratio.
// The program writes its rows to a file before it measures them (--rows=FILE), so a row that fails is not lost.
//
// The figure is the CPU time of all threads together. Call realTime() if threads compete or wait for each other, or if
// another thread does the work. For a figure that is no time of the bench (memory, the time of one line), each body of
// the comparison sets state.counters["value"] and, as the label, its unit.
//
// The kit has a second thread, which sleeps: in a program with one thread the C library omits locked instructions.
// Enclose a peer whose library may be absent in #ifdef KEST_HAVE_POCO or another name of bench/CMakeLists.txt, and
// register kMissing in its place otherwise. The row then says that the peer is missing.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <initializer_list>
#include <string>

namespace KestBench {

using Body = std::function<void(benchmark::State&)>;
using SizedBody = std::function<void(benchmark::State&, int size)>;

/// The body of a peer whose library is absent.
inline const Body kMissing;

/// How to run the bodies of a comparison or a growth.
struct Manner {
    bool realTime = false;
    bool busy = false;
    int threads = 1;
    benchmark::IterationCount iterations = 0;
};

/// One measurement of our class and its peers. A builder: settings apply to the calls of ours() and peer() after them.
class Comparison {
  public:
    /// The name is FAMILY/WHAT. WHAT may contain blanks, but no slash and no comma.
    explicit Comparison(std::string name);

    /// Compares elapsed time instead of the CPU time of the measured threads.
    Comparison& realTime();

    /// Compares elapsed time while two other processes use all the processor time that they get.
    Comparison& besideBusyProcesses();

    /// Runs the bodies in `count` threads concurrently. state.thread_index() is the number of the thread, from 0.
    Comparison& threads(int count);

    /// Runs the body `count` times in each repetition, for work that takes too long for the default number.
    Comparison& iterations(benchmark::IterationCount count);

    Comparison& ours(Body body);

    /// The target is the highest acceptable ratio of our figure to this peer's.
    Comparison& peer(const std::string& name, double target, Body body);
    /// A peer without a target.
    Comparison& peer(const std::string& name, Body body) { return peer(name, 0, std::move(body)); }

  private:
    std::string m_name;
    Manner m_manner;
};

/// The growth of our cost with a size. The exponent is 0 if the cost does not depend on the size, and 1 if it is
/// proportional to the size. A builder like Comparison.
class Growth {
  public:
    /// The name is FAMILY/WHAT, as for a comparison. The unit is the name of what the size counts, such as "threads".
    Growth(std::string name, std::string unit);

    Growth& realTime();
    Growth& iterations(benchmark::IterationCount count);
    /// The highest acceptable exponent.
    Growth& limit(double exponent);

    /// Measures the body with each of the sizes.
    Growth& at(std::initializer_list<int> sizes, const SizedBody& body);

  private:
    std::string m_name;
    std::string m_unit;
    double m_limit = 0;
    Manner m_manner;
};

/// For benches that start programs: when the bench runs with `argument` alone, it calls `main` instead of measuring.
/// Define the object at namespace scope.
class ChildProgram {
  public:
    ChildProgram(const std::string& argument, int (*main)());
};

/// Each bench defines this function. main() calls it once.
void registerBenches();

}  // namespace KestBench
