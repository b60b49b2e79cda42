// How an unload of the library is distinguished from the end of the process.
//
// The dynamic loader runs the functions that are marked as destructors. At an unload, one of them destroys the static
// objects of the library, after those without a priority and before those with one. At the end of the process, the C
// runtime first destroys the static objects of a library that was loaded later than the program, and then the loader
// runs. Those of a library with which the program was started are destroyed by the loader, as at an unload. But such a
// library is never unloaded.
#include "platform/process_memory.h"

#include <link.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string_view>
#include <vector>

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

/// The program or a library of the process. The texts belong to the loader.
struct Module {
    std::string_view name;
    std::vector<std::string_view> needed;  // the names of the libraries that it was linked with
    bool isOurs = false;                   // it contains this code
    bool isNeeded = false;                 // the program was started with it
};

Module moduleOf(const dl_phdr_info& info) {
    Module module;
    module.name = info.dlpi_name;
    const ElfW(Dyn)* entry = nullptr;
    const auto here = reinterpret_cast<std::uintptr_t>(&g_object);
    for (std::size_t i = 0; i < info.dlpi_phnum; ++i) {
        const ElfW(Phdr)& part = info.dlpi_phdr[i];
        const std::uintptr_t begin = info.dlpi_addr + part.p_vaddr;
        if (part.p_type == PT_LOAD && here - begin < part.p_memsz) module.isOurs = true;
        if (part.p_type == PT_DYNAMIC) entry = reinterpret_cast<const ElfW(Dyn)*>(begin);
    }
    if (entry == nullptr) return module;
    const ElfW(Dyn)* const first = entry;
    while (entry->d_tag != DT_NULL && entry->d_tag != DT_STRTAB)
        ++entry;
    // Some loaders have replaced the offset of the texts by their address.
    const std::uintptr_t place = entry->d_un.d_ptr;
    const auto* const texts = reinterpret_cast<const char*>(place < info.dlpi_addr ? info.dlpi_addr + place : place);
    for (entry = first; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_NEEDED) module.needed.emplace_back(texts + entry->d_un.d_val);
        if (entry->d_tag == DT_SONAME) module.name = texts + entry->d_un.d_val;
    }
    return module;
}

// Ends the enumeration when there is no memory for a module.
int addModule(dl_phdr_info* info, std::size_t, void* modules) noexcept try {
    static_cast<std::vector<Module>*>(modules)->push_back(moduleOf(*info));
    return 0;
} catch (const std::bad_alloc&) {
    return 1;
}

// A library without a name of its own is needed by the name of its file.
bool needs(const Module& user, const Module& library) {
    const std::string_view file = library.name.substr(library.name.rfind('/') + 1);
    return std::any_of(user.needed.begin(), user.needed.end(),
                       [&](std::string_view name) { return name == library.name || name == file; });
}

// The first module is the program. Without memory for the search, the answer is yes.
bool isNeededByProgram() noexcept try {
    std::vector<Module> modules;
    if (dl_iterate_phdr(&addModule, &modules) != 0) return true;
    std::vector<Module*> pending{&modules.front()};
    while (!pending.empty()) {
        const Module& user = *pending.back();
        pending.pop_back();
        for (Module& each : modules) {
            if (each.isNeeded || !needs(user, each)) continue;
            each.isNeeded = true;
            pending.push_back(&each);
        }
    }
    return std::any_of(modules.begin(), modules.end(), [](const Module& each) { return each.isOurs && each.isNeeded; });
} catch (const std::bad_alloc&) {
    return true;
}

}  // namespace

void deleteProcessMemory() noexcept {
    if (g_isUnload && !isNeededByProgram()) ProcessMemory::deleteAll();
}

}  // namespace KestSupport::platform
