// A reference taken and dropped, against an intrusive pointer with an atomic count.
#include "bench_kit.h"
#include "support/object_base.h"
#ifdef KEST_HAVE_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif

using namespace KestSupport;

namespace {

struct Ours : KestObjectBase {};
using OursPointer = KestSmartPointer<KestObjectBase>;
OursPointer makeOurs() {
    return new Ours;
}

template <typename Pointer>
void takeAndDrop(benchmark::State& state, const Pointer& target) {
    for (auto _ : state) {
        Pointer mine(target);
        benchmark::DoNotOptimize(mine);
    }
}

template <typename Pointer, Pointer (*make)()>
void ownObject(benchmark::State& state) {
    const Pointer target = make();
    takeAndDrop(state, target);
}

template <typename Pointer, Pointer (*make)()>
void sameObject(benchmark::State& state) {
    static const Pointer target = make();
    takeAndDrop(state, target);
}

#ifdef KEST_HAVE_BOOST
struct Peer : boost::intrusive_ref_counter<Peer, boost::thread_safe_counter> {
    virtual ~Peer() = default;
};
using PeerPointer = boost::intrusive_ptr<Peer>;
PeerPointer makePeer() {
    return new Peer;
}
#endif

struct Case {
    const char* name;
    int threads;
    KestBench::Body ours, peer;
};

}  // namespace

void KestBench::registerBenches() {
#ifdef KEST_HAVE_BOOST
    const Body peerOwn = ownObject<PeerPointer, makePeer>, peerSame = sameObject<PeerPointer, makePeer>;
#else
    const Body peerOwn, peerSame;
#endif
    const Case cases[] = {{"one thread", 1, ownObject<OursPointer, makeOurs>, peerOwn},
                          {"two threads own objects", 2, ownObject<OursPointer, makeOurs>, peerOwn},
                          {"two threads same object", 2, sameObject<OursPointer, makeOurs>, peerSame}};
    for (const Case& one : cases) {
        Comparison comparison(std::string("objects/reference ") + one.name);
        comparison.threads(one.threads).ours(one.ours);
        if (one.peer) comparison.peer("boost::intrusive_ptr", 1.1, one.peer);
    }
}
