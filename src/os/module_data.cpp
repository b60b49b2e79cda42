#include "os/module_data.h"

#include "support/object_factory.h"
#include "threads/timer_manager.h"

namespace KestSupport {

ModuleData* ModuleData::m_pHead = nullptr;
ModuleData::~ModuleData() = default;
void ModuleData::entry() noexcept {}
void ModuleData::exit() noexcept {}
ModuleDataControl::~ModuleDataControl() = default;

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

// Nothing to create: a lock needs no other lock for its creation, and all other state is created on first use.
void Module::initialize() {}

void Module::terminate() {
    KestSupport::KestObjectFactory::deleteGlobalInstance();
    KestSupport::KestTimerManager::deleteInstance();
}

namespace {
Module g_module;
}
