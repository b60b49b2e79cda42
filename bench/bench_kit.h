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
//         Growth("locks/takers", "threads").limit(1.1).at({1, 10, 100}, [](benchmark::State& state, int size) { ... });
//     }
//
// These programs link the shared library and use the public headers alone, as a user's program does. A bench of what
// lies inside is bench/internal/FAMILY_bench.cpp: it links the static library, its rows are marked, and its peers have
// no target.
//
// Names have the form FAMILY/WHAT/ours and FAMILY/WHAT/PEER; the script makes one row of the table for each peer: what,
// ours, the peer, ours divided by the peer, and the target, which is the most that this ratio shall be. The program
// writes down its rows before it measures them (--rows=FILE), so a row that fails is not lost.
//
// CPU time is compared, of all threads together; call realTime() where threads compete or wait for each other, or where
// the work is done in another thread. A figure that the clocks of the bench do not give (memory, the time of one line)
// is put into state.counters["value"] by every body of a comparison, with its unit as the label: then the script
// compares these.
//
// The kit keeps a second thread alive and asleep, since the C library drops locked instructions in a program that has
// only one. A peer that needs a library which may be absent stands within the condition that the build defines when it
// was found: KEST_HAVE_POCO and the others that bench/CMakeLists.txt names. Where it was not found the peer is
// registered with kMissing, and its row says so.
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

/// How the bodies of a comparison or a growth are run.
struct Manner {
    bool realTime = false;
    bool busy = false;
    int threads = 1;
    benchmark::IterationCount iterations = 0;
};

/// One thing that is measured, ours and its peers. A builder: what it is told before ours() or peer() holds for those.
class Comparison {
  public:
    /// The name is FAMILY/WHAT. WHAT may have blanks, but no slash and no comma.
    explicit Comparison(std::string name);

    /// Compares elapsed time instead of the CPU time of the measured threads.
    Comparison& realTime();

    /// Compares elapsed time, with two other processes that take all the processor time that they get.
    Comparison& besideBusyProcesses();

    /// Runs the bodies in so many threads at once; state.thread_index() tells them apart.
    Comparison& threads(int count);

    /// Runs the body so often in each repetition, for work that cannot be run as often as the clock would like.
    Comparison& iterations(benchmark::IterationCount count);

    Comparison& ours(Body body);

    /// The ratio of ours to this peer shall be at most the target.
    Comparison& peer(const std::string& name, double target, Body body);
    /// A peer that is only shown.
    Comparison& peer(const std::string& name, Body body) { return peer(name, 0, std::move(body)); }

  private:
    std::string m_name;
    Manner m_manner;
};

/// How the cost of ours grows with a size. The exponent of the growth is 0 where the cost does not depend on the size,
/// 1 where it is proportional. A builder, as Comparison.
class Growth {
  public:
    /// The name is FAMILY/WHAT, as a comparison's; the unit says what the size counts.
    Growth(std::string name, std::string unit);

    Growth& realTime();
    Growth& iterations(benchmark::IterationCount count);
    /// The exponent shall be at most this.
    Growth& limit(double exponent);

    /// Measures the body with each of the sizes.
    Growth& at(std::initializer_list<int> sizes, const SizedBody& body);

  private:
    std::string m_name;
    std::string m_unit;
    double m_limit = 0;
    Manner m_manner;
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
