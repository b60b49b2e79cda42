#include <windows.h>
// After windows.h.
#include <io.h>
#include <tlhelp32.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "kit/system.h"

namespace kit {

void takeUsualSurroundings() {}

std::string systemText(std::uint32_t code, int) {
    std::array<char, 512> text{};
    constexpr DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD length = FormatMessageA(flags, nullptr, code, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    const std::string all(text.data(), length);
    return all.substr(0, all.find_last_not_of("\r\n ") + 1);
}

const char* const kSystemLibrary = "kernel32.dll";

std::string loadFailure(const std::string& path) {
    return systemText(!path.empty() && std::filesystem::exists(path) ? ERROR_BAD_EXE_FORMAT : ERROR_MOD_NOT_FOUND, 0);
}

const char* const kLocaleWithLetters = "English_United States.1252";

// The C++ runtime of this compiler has no named locales.
std::locale namedLocale() {
    return std::locale::classic();
}

bool hangUpThisProgram() {
    return false;
}

const char* const kUmlaut = "\xfc";
const char* const kLongNameFails = "No such file or directory";
const bool kHasLoadAverage = false;

void interruptThisProgram() {
    GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
}
// Wine ends such a program with 0.
bool isEndByInterrupt(int exitCode) {
    return exitCode == 0 || exitCode == static_cast<int>(STATUS_CONTROL_C_EXIT);
}
const int kConsoleSteps = 1;

bool servicesAreOfTheTest() {
    return false;
}

void ownFixedServiceNames() {
    WaitForSingleObject(CreateMutexW(nullptr, FALSE, L"kest-test-services"), INFINITE);
}

int (*const kThreadExit)() = nullptr;

bool threadIsCalled(const std::string& name) {
    using GetDescription = HRESULT(WINAPI*)(HANDLE, wchar_t**);
    const FARPROC found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetThreadDescription");
    wchar_t* shown = nullptr;
    if (found == nullptr ||
        FAILED(reinterpret_cast<GetDescription>(reinterpret_cast<void*>(found))(GetCurrentThread(), &shown)))
        return true;
    std::array<char, 128> text{};
    WideCharToMultiByte(CP_UTF8, 0, shown, -1, text.data(), static_cast<int>(text.size()) - 1, nullptr, nullptr);
    LocalFree(shown);
    return text.data() == name;
}

// That of Wine. On Windows the state of the service counts, as on Linux.
const char* const kStopOfStartingServiceFails = "1/1052";

std::intptr_t handleOf(std::FILE* stream) {
    return _get_osfhandle(_fileno(stream));
}
std::pair<std::intptr_t, std::intptr_t> inheritablePipe() {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE ends[2] = {};
    CreatePipe(&ends[0], &ends[1], &inheritable, 0);
    return {reinterpret_cast<std::intptr_t>(ends[0]), reinterpret_cast<std::intptr_t>(ends[1])};
}
std::vector<std::string> shellCommand(const std::string& command) {
    return {"cmd.exe", "/c", command};
}
std::ptrdiff_t threadCount() {
    const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    std::ptrdiff_t count = 0;
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL found = Thread32First(all, &thread); found; found = Thread32Next(all, &thread))
        count += thread.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(all);
    return count;
}
std::ptrdiff_t handleCount() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return static_cast<std::ptrdiff_t>(count);
}
void closeHandle(void* handle) {
    CloseHandle(handle);
}

// Both inside one call: a lock that the program itself keeps would stay locked.
void lockErrorStream() {
    std::fflush(stderr);
}
void unlockErrorStream() {}
// The runtime cannot try the lock. If an ended thread has it, this call waits until the time limit of the test ends it.
bool errorStreamIsFree() {
    std::thread(&lockErrorStream).join();
    return true;
}

AllSignalsBlocked::AllSignalsBlocked() = default;
AllSignalsBlocked::~AllSignalsBlocked() = default;

}  // namespace kit
