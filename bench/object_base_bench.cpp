// Adds and releases a reference, compared with an intrusive pointer with an atomic count.
#include "bench_kit.h"
#include "support/object_base.h"
#ifdef KEST_HAVE_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif

using namespace KestSupport;
using KestBench::Body;

namespace {

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

struct Ours : KestObjectBase {};
using OursPointer = KestSmartPointer<KestObjectBase>;
OursPointer makeOurs() {
    return new Ours;
}

#ifdef KEST_HAVE_BOOST
struct Peer : boost::intrusive_ref_counter<Peer, boost::thread_safe_counter> {
    virtual ~Peer() = default;
};
using PeerPointer = boost::intrusive_ptr<Peer>;
PeerPointer makePeer() {
    return new Peer;
}
const Body peerOwn = ownObject<PeerPointer, makePeer>;
const Body peerSame = sameObject<PeerPointer, makePeer>;
#else
const Body peerOwn = KestBench::kMissing;
const Body peerSame = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    const std::string peer = "boost::intrusive_ptr";
    const Body own = ownObject<OursPointer, makeOurs>;
    const Body same = sameObject<OursPointer, makeOurs>;
    Comparison("objects/reference one thread").ours(own).peer(peer, 1.1, peerOwn);
    Comparison("objects/reference two threads own objects").threads(2).realTime().ours(own).peer(peer, 1.1, peerOwn);
    Comparison("objects/reference two threads same object").threads(2).realTime().ours(same).peer(peer, 1.1, peerSame);
}
