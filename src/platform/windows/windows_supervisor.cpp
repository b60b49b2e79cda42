// The service manager is the only supervisor here, and services report to it themselves.
#include "platform/supervisor.h"

namespace KestSupport::platform {

void tellSupervisor(SupervisorNews, std::string_view) {}

}  // namespace KestSupport::platform
