#include <sys/prctl.h>
#include <sys/wait.h>

#include "platform/linux/linux_call.h"
#include "platform/orphans.h"

namespace KestSupport::platform {

bool adoptOrphans() noexcept {
    return systemCall("adoptOrphans", [] { return ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); }) == 0;
}

std::vector<EndedProcess> reapChildren() {
    std::vector<EndedProcess> ended;
    int status = 0;
    pid_t child = 0;
    while ((child = uninterrupted([&] { return ::waitpid(-1, &status, WNOHANG); })) > 0) {
        const int exitCode = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
        ended.push_back({static_cast<std::uint32_t>(child), exitCode});
    }
    return ended;
}

}  // namespace KestSupport::platform
