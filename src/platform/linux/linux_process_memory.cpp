// How an unload of the library is distinguished from the end of the process.
//
// The dynamic loader runs the functions that are marked as destructors. At an unload, one of them destroys the static
// objects of the library, after those without a priority and before those with one. At the end of the process, the C
// runtime first destroys the static objects of the whole process, and then the loader runs.
#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

constinit bool g_loaderHasBegun = false;
constinit bool g_isUnload = false;

[[gnu::destructor]] void beginUnload() noexcept {
    g_loaderHasBegun = true;
}

struct StaticObject {
    ~StaticObject() { g_isUnload = g_loaderHasBegun; }
};
constinit StaticObject g_object;

}  // namespace

void deleteProcessMemory() noexcept {
    if (g_isUnload) ProcessMemory::deleteAll();
}

}  // namespace KestSupport::platform
