// How an unload of the library differs from the end of the process.
//
// The dynamic loader runs the functions that are marked as destructors. At an unload one of those destroys the
// library's static objects, after those without a priority and before those with one. At the end of the process the C
// runtime destroys the static objects of the whole process first, and the loader comes after that.
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
