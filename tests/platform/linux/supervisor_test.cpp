// The messages of a service in the foreground to its supervisor.
#include "platform/supervisor.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <fcntl.h>
#include <cstddef>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"
#include "platform/linux/linux_descriptor.h"
#include "support/service.h"

namespace {

using KestSupport::platform::SupervisorNews;

// The socket of an init system: a path, or a name without a file.
struct Supervisor {
    explicit Supervisor(const std::string& name) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        if (name[0] == '@') address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    }
    std::string heard() const {
        std::string all;
        char block[256];
        for (ssize_t size = 0; (size = ::recv(socket.get(), block, sizeof block, MSG_DONTWAIT)) > 0;)
            all.append(block, static_cast<std::size_t>(size)).append("|");
        return all;
    }
    const KestSupport::platform::Descriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

class Program : public KestSupport::KestService {
  public:
    bool starts = true;
    bool startIt(const std::string&) override { return starts && stop(); }
    bool stopIt() override { return false; }
};

TEST(Supervisor, ReceivesStateOfService) {
    const kit::TemporaryFolder folder;
    // The path of the folder may be longer than that of a socket.
    const KestSupport::platform::Descriptor opened(::open(folder.path().c_str(), O_PATH | O_CLOEXEC));
    const std::string path = "/proc/self/fd/" + std::to_string(opened.get()) + "/socket";
    for (const std::string& name : {path, "@" + std::filesystem::path(folder.path()).filename().string()}) {
        kit::EnvironmentGuard environment;
        const Supervisor supervisor(name);
        Program program;
        environment.set("NOTIFY_SOCKET", name);
        EXPECT_TRUE(program.start("", false));
        EXPECT_EQ(supervisor.heard(),
                  "STATUS=Starting\n|READY=1\nSTATUS=Running\n|STOPPING=1\nSTATUS=Stopping\n|STATUS=Stopped\n|");
        program.starts = false;
        EXPECT_FALSE(program.start("", false));
        EXPECT_EQ(supervisor.heard(), "STATUS=Starting\n|STATUS=The start failed\n|");
        for (const char* call : {"connectSupervisor", "tellSupervisor"}) {
            const kit::FailingCalls failing(call);
            program.starts = true;
            EXPECT_TRUE(program.start("", false)) << call;
        }
        EXPECT_EQ(supervisor.heard(), "");
        for (const std::string& wrong : {std::string(), std::string("relative"), "/" + std::string(200, 'x')}) {
            environment.set("NOTIFY_SOCKET", wrong);
            tellSupervisor(SupervisorNews::ready, "lost");
        }
        EXPECT_EQ(supervisor.heard(), "");
    }
}

}  // namespace
