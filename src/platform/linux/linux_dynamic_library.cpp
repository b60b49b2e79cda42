#include <dlfcn.h>
#include <link.h>

#include "platform/dynamic_library.h"
#include "platform/error.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

LibraryHandle open(const char* name, int flags, std::string& message) {
    if (const int error = injectedFault("loadLibrary"); error != 0) {
        message = errorMessage(errorFromErrno(error));
        return nullptr;
    }
    void* const handle = ::dlopen(name, flags | RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) message = ::dlerror();
    return handle;
}

}  // namespace

LibraryHandle loadLibrary(const std::string& name, std::string& message) {
    return open(name.c_str(), 0, message);
}

// The loader finds a loaded library by the name of its first load.
LibraryHandle loadAgain(LibraryHandle library, std::string& message) {
    link_map* map = nullptr;
    if (::dlinfo(library, RTLD_DI_LINKMAP, &map) == 0) return open(map->l_name, RTLD_NOLOAD, message);
    message = ::dlerror();
    return nullptr;
}

void* findSymbol(LibraryHandle library, const std::string& name) noexcept {
    return ::dlsym(library, name.c_str());
}

void unloadLibrary(LibraryHandle library) noexcept {
    ::dlclose(library);
}

}  // namespace KestSupport::platform
