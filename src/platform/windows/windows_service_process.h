// The service that this process is: the dispatcher's side of the system's service control manager. The functions have
// the contracts of ServiceManager in service_manager.h.
#pragma once

#include "platform/service_manager.h"

namespace KestSupport::platform {

ErrorCode runAsService(const std::string& name, ServiceManager::ServiceMain main);
ServiceManager::Handle handleControlsBy(const std::string& name, ServiceManager::ControlHandler handler);
ErrorCode reportStatus(ServiceManager::Handle statusHandle, const ServiceStatus& status);

}  // namespace KestSupport::platform
