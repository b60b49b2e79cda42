#include "platform/windows/windows_thread_place.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kStubSize = 32;  // bytes of the function of a system call

template <typename T>
const T* at(std::uintptr_t address) noexcept {
    return reinterpret_cast<const T*>(address);
}

// Whether the thread is inside the system call before its next instruction, which returns from the stub of the call.
// The second form is that of Wine.
bool isSystemCall(std::uintptr_t next) noexcept {
    constexpr unsigned char kReturn = 0xC3;
    constexpr unsigned char kSystemCall[]{0x0F, 0x05};
    constexpr unsigned char kIndirectCall[]{0xFF, 0x14, 0x25};
    constexpr std::size_t kIndirectSize = 7;
    return *at<unsigned char>(next) == kReturn &&
           (std::memcmp(at<void>(next - sizeof kSystemCall), kSystemCall, sizeof kSystemCall) == 0 ||
            std::memcmp(at<void>(next - kIndirectSize), kIndirectCall, sizeof kIndirectCall) == 0);
}

// How the function at the address leaves its frame; null for a function without one. The system's own search would take
// the lock of the loader.
RUNTIME_FUNCTION* functionAt(std::uintptr_t module, std::uintptr_t address) noexcept {
    const auto& dos = *at<IMAGE_DOS_HEADER>(module);
    const auto& headers = *at<IMAGE_NT_HEADERS64>(module + static_cast<std::uintptr_t>(dos.e_lfanew));
    const auto& table = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
    auto* const begin = reinterpret_cast<RUNTIME_FUNCTION*>(module + table.VirtualAddress);
    auto* const end = begin + table.Size / sizeof(RUNTIME_FUNCTION);
    const auto offset = static_cast<DWORD>(address - module);
    auto* const found = std::partition_point(
        begin, end, [offset](const RUNTIME_FUNCTION& function) { return function.EndAddress <= offset; });
    return found != end && found->BeginAddress <= offset ? found : nullptr;
}

// Changes the context to that of the calling function.
void leaveFrame(std::uintptr_t module, CONTEXT& context) noexcept {
    if (RUNTIME_FUNCTION* const function = functionAt(module, context.Rip)) {
        void* handlerData = nullptr;
        DWORD64 frame = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, module, context.Rip, function, &context, &handlerData, &frame, nullptr);
    } else {
        context.Rip = *at<DWORD64>(context.Rsp);
        context.Rsp += sizeof(DWORD64);
    }
}

}  // namespace

RuntimeLocks::RuntimeLocks() noexcept {
    constexpr struct {
        const wchar_t* name;
        Code code;
    } kLibraries[]{
        {L"ntdll.dll", Code::locking},          {L"msvcrt.dll", Code::locking},
        {L"ucrtbase.dll", Code::locking},       {L"libgcc_s_seh-1.dll", Code::locking},
        {L"kernel32.dll", Code::helper},        {L"kernelbase.dll", Code::helper},
        {L"libwinpthread-1.dll", Code::helper}, {L"libstdc++-6.dll", Code::helper},
        {L"msvcp140.dll", Code::helper},        {L"vcruntime140.dll", Code::helper},
        {L"vcruntime140_1.dll", Code::helper},
    };
    static_assert(std::size(kLibraries) == kModules);
    for (std::size_t i = 0; i < kModules; ++i) {
        m_modules[i] = {reinterpret_cast<std::uintptr_t>(GetModuleHandleW(kLibraries[i].name)), kLibraries[i].code};
    }
    constexpr const char* kWaitNames[]{"NtWaitForSingleObject", "NtWaitForMultipleObjects",
                                       "NtSignalAndWaitForSingleObject", "NtDelayExecution", "NtRemoveIoCompletion"};
    static_assert(std::size(kWaitNames) == kWaits);
    for (std::size_t i = 0; i < kWaits; ++i) {
        m_waits[i] = reinterpret_cast<std::uintptr_t>(systemFunction(kWaitNames[i]));
    }
    m_lockLoader = reinterpret_cast<LockLoader>(systemFunction("LdrLockLoaderLock"));
    m_unlockLoader = reinterpret_cast<UnlockLoader>(systemFunction("LdrUnlockLoaderLock"));
}

// Code of no module was made by the program. Code that the system does not know belongs to the system: under Wine, a
// thread that enters a system call may stand there.
RuntimeLocks::Place RuntimeLocks::placeOf(std::uintptr_t address) const noexcept {
    MEMORY_BASIC_INFORMATION region;
    if (VirtualQuery(at<void>(address), &region, sizeof region) == 0 || region.State != MEM_COMMIT) return {};
    if (region.Type != MEM_IMAGE) return {0, Code::program};
    const auto base = reinterpret_cast<std::uintptr_t>(region.AllocationBase);
    const auto* const known = std::find_if(std::begin(m_modules), std::end(m_modules),
                                           [=](const Place& each) { return each.module == base; });
    return known == std::end(m_modules) ? Place{base, Code::program} : *known;
}

RuntimeLocks::Use RuntimeLocks::useBy(CONTEXT context) const noexcept {
    const std::uintptr_t next = context.Rip;
    const Place place = placeOf(next);
    const bool isInProgram = place.code == Code::program;
    if (!isInProgram && !isCallOfProgram(place, context)) return Use::possible;
    if (!isLoaderFree()) return Use::possible;
    return isInProgram || isWait(next) ? Use::none : Use::noneIfCallLasts;
}

// The locks of the heap and of the loader wait by a system call of ntdll itself. Leaves the frames of the call.
bool RuntimeLocks::isCallOfProgram(Place place, CONTEXT& context) const noexcept {
    if (place.module == 0 || place.module != m_modules[0].module || !isSystemCall(context.Rip)) return false;
    do {
        const DWORD64 before = context.Rsp;
        leaveFrame(place.module, context);
        if (context.Rsp <= before) return false;
        place = placeOf(context.Rip);
    } while (place.code == Code::helper);
    return place.code == Code::program && place.module != 0;
}

bool RuntimeLocks::isWait(std::uintptr_t next) const noexcept {
    return std::any_of(std::begin(m_waits), std::end(m_waits),
                       [=](std::uintptr_t wait) { return next - wait < kStubSize; });
}

// A thread that does not hold the lock does not wait here.
bool RuntimeLocks::isLoaderFree() const noexcept {
    constexpr ULONG kOnlyTry = 2;
    constexpr ULONG kTaken = 1;
    ULONG result = 0;
    ULONG_PTR cookie = 0;
    if (m_lockLoader == nullptr || m_unlockLoader == nullptr) return true;
    m_lockLoader(kOnlyTry, &result, &cookie);
    if (result != kTaken) return false;
    m_unlockLoader(0, cookie);
    return true;
}

}  // namespace KestSupport::platform
