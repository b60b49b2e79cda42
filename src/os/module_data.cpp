#include "os/module_data.h"

#include <atomic>

#include "support/object_factory.h"
#include "sync/reference_count_lock.h"
#include "threads/timer_manager.h"

namespace KestSupport {

ModuleData* ModuleData::m_pHead = nullptr;
ModuleData::~ModuleData() = default;
void ModuleData::entry() noexcept {}
void ModuleData::exit() noexcept {}
ModuleDataControl::~ModuleDataControl() = default;

namespace internal {
namespace {
constinit std::atomic<KestCriticalSectionObject*> g_referenceCountLock{nullptr};
}

KestCriticalSectionObject* referenceCountLock() noexcept {
    return g_referenceCountLock.load(std::memory_order_acquire);
}

void createReferenceCountLock() {
    if (referenceCountLock() == nullptr) g_referenceCountLock.store(new KestCriticalSectionObject);
}

void deleteReferenceCountLock() noexcept {
    delete g_referenceCountLock.exchange(nullptr);
}

}  // namespace internal
}  // namespace KestSupport

Module::Module() : ModuleData(true) {
    if (!m_enabled) return;
    if (m_initCount == 0) Module::initialize();
    ++m_initCount;
}

Module::~Module() {
    if (!m_enabled || m_initCount < 1) return;
    if (--m_initCount == 0) Module::terminate();
}

void Module::initialize() {
    KestSupport::internal::createReferenceCountLock();
}

void Module::terminate() {
    KestSupport::KestObjectFactory::deleteGlobalInstance();
    KestSupport::KestTimerManager::deleteInstance();
    KestSupport::internal::deleteReferenceCountLock();
}

namespace {
Module g_module;
}
