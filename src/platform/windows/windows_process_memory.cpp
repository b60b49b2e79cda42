// Static objects of a library are destroyed at its unload and at the end of the process; the system tells the two
// apart.
#include "platform/process_memory.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

void deleteProcessMemory() noexcept {
    const bool isProgram = thisModule(ModuleReference::none) == GetModuleHandleW(nullptr);
    if (!isProgram && !isProcessEnding()) ProcessMemory::deleteAll();
}

namespace {

// Made before the other static objects of the library, and destroyed after them.
struct DeleteAtUnload {
    ~DeleteAtUnload() { deleteProcessMemory(); }
};
#ifdef _MSC_VER
#pragma init_seg(lib)
constinit DeleteAtUnload g_deleteAtUnload;
#else
[[gnu::init_priority(101)]] constinit DeleteAtUnload g_deleteAtUnload;
#endif

}  // namespace
}  // namespace KestSupport::platform
