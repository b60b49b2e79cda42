// The life of a service with each failing call and allocation of the embedded service manager.
#include "kit/fault_sweep.h"
#include "kit/service_fixture.h"
#include "platform/service_roles.h"

namespace {

using namespace KestSupport;
using Services = kit::ServiceFixture;

struct Handle {
    ~Handle() { platform::serviceManager().closeHandle(value); }
    platform::ServiceManager::Handle value = nullptr;
};

// The platform's service manager reports its failures by error codes.
void liveAsService() {
    const Folder folder;
    const struct Killer {
        ~Killer() {
            withoutFaults([] { Services::run("end swept"); });
        }
    } killer;  // before its folder is removed
    const std::string command = withoutFaults([] { return kit::ChildProcess::commandOfRole("plain"); });
    platform::ServiceManager& manager = platform::serviceManager();
    Handle all, service;
    accept(manager.openManager(0xF003F, all.value) == 0);
    accept(manager.createService(all.value, {"swept", "", 16, 2, 1, command, ""}, 0xF01FF, service.value) == 0);
    accept(manager.startService(service.value, {"argument"}) == 0);
    platform::ServiceStatus status;
    accept(manager.queryStatus(service.value, status) == 0);
    confirm("started", [&] { return status.processId != 0; });
    accept(manager.control(service.value, platform::kServiceControlStop, status) == 0);
    confirm("stopped", [] { return Services::run("await swept 1; tell swept") == "1/0/7"; });
    accept(manager.deleteService(service.value) == 0);
    confirm("deleted", [] { return Services::list().empty(); });
}

INSTANTIATE_TEST_SUITE_P(Services, FaultSweep, inEachMode({{"service", liveAsService}}), nameOf);

}  // namespace
