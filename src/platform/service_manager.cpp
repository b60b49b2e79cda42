#include "platform/service_manager.h"

#include <atomic>

namespace KestSupport::platform {
namespace {

std::atomic<ServiceManager*> g_replacement{nullptr};

}  // namespace

ServiceManager& serviceManager() noexcept {
    ServiceManager* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : platformServiceManager();
}

void setServiceManager(ServiceManager* manager) noexcept {
    g_replacement.store(manager, std::memory_order_release);
}

}  // namespace KestSupport::platform
