// There is no service control manager here: every call of the client side says so, and no process was started by one.
#include "platform/service_manager.h"

namespace KestSupport::platform {
namespace {

class NoServiceManager final : public ServiceManager {
  public:
    ErrorCode runDispatcher(const std::string&, ServiceMain) override { return errorFailedServiceControllerConnect; }
    Handle registerControlHandler(const std::string&, ControlHandler) override { return nullptr; }
    ErrorCode setStatus(Handle, const ServiceStatus&) override { return errorCallNotImplemented; }

    ErrorCode openManager(std::uint32_t, Handle& manager) override { return none(manager); }
    ErrorCode createService(Handle, const ServiceConfiguration&, std::uint32_t, Handle& service) override {
        return none(service);
    }
    ErrorCode openService(Handle, const std::string&, std::uint32_t, Handle& service) override { return none(service); }
    ErrorCode setDescription(Handle, const wstring16&) override { return errorCallNotImplemented; }
    ErrorCode control(Handle, std::uint32_t, ServiceStatus&) override { return errorCallNotImplemented; }
    ErrorCode queryStatus(Handle, ServiceStatus&) override { return errorCallNotImplemented; }
    ErrorCode deleteService(Handle) override { return errorCallNotImplemented; }
    void closeHandle(Handle) override {}

  private:
    static ErrorCode none(Handle& handle) {
        handle = nullptr;
        return errorCallNotImplemented;
    }
};

}  // namespace

ServiceManager& platformServiceManager() noexcept {
    static NoServiceManager none;
    return none;
}

}  // namespace KestSupport::platform
