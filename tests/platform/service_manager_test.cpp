// The service manager of the system, or the embedded one, with this program as the services.
#include "platform/service_manager.h"

#include "platform/service_roles.h"

namespace {

using ServiceManagerTest = kit::ServiceFixture;

TEST_F(ServiceManagerTest, KeepsWhatWasRegistered) {
    Configuration wanted{"a %b..", named("Shown as"), 0x110, 3, 2, "/bin/x \"y\" \\", ""};
    ASSERT_EQ(create(wanted), 0u);
    const Opened service(wanted.name);
    ASSERT_EQ(service.call(&Manager::changeConfiguration, ServiceChange{.displayName = named("New"), .startType = 4}),
              0u);
    Configuration read;
    ASSERT_EQ(service.call(&Manager::queryConfiguration, read), 0u);
    wanted.name = named(wanted.name);
    wanted.displayName = named("New");
    wanted.startType = 4;
    EXPECT_EQ(read, wanted);
    const std::vector<unsigned short> description = {'d', 0x20AC, 0xD83D, 0xDE00, '\n'};
    std::vector<unsigned short> described;
    EXPECT_EQ(service.call(&Manager::setDescription, description), 0u);
    EXPECT_EQ(service.call(&Manager::queryDescription, described), 0u);
    EXPECT_EQ(described, description);
    EXPECT_EQ(run("create there plain; create there plain; type there 9; start none"), "0 1073 87 1060");
    EXPECT_EQ(run("tell there; remove there; tell there; remove there"), "1/0/1077 0 1060 1060");
}

TEST_F(ServiceManagerTest, DeliversControls) {
    EXPECT_EQ(run("create s plain; start s x y=z; await s 4; tell s; start s"), "0 0 4/3/0p 1056");
    EXPECT_EQ(Opened("s", 0x4).call(&Manager::endService), 5u);
    EXPECT_EQ(Opened("s", 0x20).call(&Manager::endService), 5u);
    EXPECT_EQ(state.read("heard"), joinArguments({named("s"), "x", "y=z"}));
    EXPECT_EQ(run("control s 2; control s 4; control s 3; control s 128"), "0/7 0/7 0/4 0/4");
    EXPECT_EQ(run("control s 6; control s 127; control s 1; await s 1; tell s; control s 1"),
              "1052/4 87/0 0/1 1/0/7 1062/1");
    EXPECT_EQ(state.read("controls"), "2 4 3 128 1 ");
}

TEST_F(ServiceManagerTest, TellsHowServicesEnd) {
    ASSERT_EQ(run("create s plain"), "0");
    for (const auto& [role, told] :
         {std::pair{"failing", "1/0/42"}, {"throwing", "1/0/1064"}, {"silent", "1/0/1067"}}) {
        run(std::string("line s ") + role + "; start s; await s 1");
        EXPECT_EQ(run("tell s"), told) << role;
    }
    EXPECT_EQ(run("type s 4; start s"), "0 1058");
    EXPECT_EQ(serviceManager().runDispatcher("us", serve<4, 3>), 1063u) << "not started by the manager";
}

}  // namespace
