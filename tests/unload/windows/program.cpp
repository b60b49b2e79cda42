// Loads and unloads a plug-in, which uses the support library, while timers fire and threads end. Tests that no unload
// takes code away from a thread or waits for one, and that a process with running timers and threads ends with its exit
// code. Arguments: the plug-in's path, the name of the library's file, and "exit" in the process that ends. Prints a
// failure and returns 1, or waits for what does not end.
#include <windows.h>

#include <process.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "../../kit/gate.h"

namespace {

constexpr int kExitCode = 37;

void require(bool condition, const char* what) {
    if (condition) return;
    std::printf("%s\n", what);
    std::exit(1);
}

template <typename Function>
Function functionOf(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

HMODULE load(const char* path) {
    const HMODULE library = LoadLibraryA(path);
    require(library != nullptr, "the plug-in cannot be loaded");
    return library;
}

// Optionally another thread uses the library too and ends after the unload.
void loadAndUnload(const char* path, bool withThread) {
    const HMODULE library = load(path);
    const auto use = functionOf<bool (*)()>(library, "useLibrary");
    kit::Gate used, mayEnd;
    std::thread user;
    if (withThread) {
        user = std::thread([&] {
            require(use(), "the library does not work on another thread");
            used.open();
            mayEnd.pass();
        });
    }
    require(use(), "the library does not work");
    if (withThread) used.pass();
    FreeLibrary(library);
    mayEnd.open();
    if (withThread) user.join();
}

// A thread of an unload has the lock of the loader. It must not wait for a thread that starts the first timer and waits
// for that lock.
void startFirstTimerDuringUnload(const char* path) {
    const HMODULE system = GetModuleHandleA("ntdll.dll"), library = load(path);
    const auto startTimer = functionOf<void (*)()>(library, "startTimer");
    kit::Gate begun, loaderIsLocked;
    std::thread first([&] {
        begun.open();
        loaderIsLocked.pass();
        startTimer();
    });
    begun.pass();
    ULONG_PTR cookie = 0;
    functionOf<LONG(WINAPI*)(ULONG, ULONG*, ULONG_PTR*)>(system, "LdrLockLoaderLock")(0, nullptr, &cookie);
    loaderIsLocked.open();
    Sleep(50);  // for the first thread to get there
    startTimer();
    functionOf<LONG(WINAPI*)(ULONG, ULONG_PTR)>(system, "LdrUnlockLoaderLock")(0, cookie);
    first.join();
    FreeLibrary(library);
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 3) {
        const HMODULE library = load(arguments[1]);
        require(functionOf<bool (*)()>(library, "useLibrary")(), "the library does not work");
        functionOf<void (*)()>(library, "runForEver")();
        return kExitCode;
    }
    startFirstTimerDuringUnload(arguments[1]);
    for (int round = 0; round < 1000; ++round)
        loadAndUnload(arguments[1], round % 2 != 0);
    require(GetModuleHandleA(arguments[1]) == nullptr, "the plug-in is still loaded");
    require(GetModuleHandleA(arguments[2]) != nullptr, "the library does not stay loaded");
    const std::string quote = "\"", plugin = quote + arguments[1] + quote;  // _spawnl quotes nothing
    const auto code = _spawnl(_P_WAIT, arguments[0], "program", plugin.c_str(), arguments[2], "exit", nullptr);
    require(code == kExitCode, "the process does not keep its exit code");
    return 0;
}
