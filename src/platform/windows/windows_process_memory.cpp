// Static objects of a library are destroyed at its unload and at the end of the process; the system tells the two
// apart.
#include "platform/process_memory.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

void deleteProcessMemory() noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(reinterpret_cast<const void*>(&deleteProcessMemory)), &module);
    const bool isProgram = module == GetModuleHandleW(nullptr);
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
