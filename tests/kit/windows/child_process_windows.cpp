#include <windows.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "kit/child_process.h"
#include "platform/process.h"
#include "platform/wait.h"

namespace kit {

namespace platform = KestSupport::platform;

namespace {

// Runs a program in a console of its own, which no user sees, with the standard handles of this process.
int runInConsole(const std::vector<std::string>& words) {
    using Create = HRESULT(WINAPI*)(COORD, HANDLE, HANDLE, DWORD, void**);
    const auto create = reinterpret_cast<Create>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CreatePseudoConsole")));
    HANDLE typed[2]{}, shown[2]{};
    void* console = nullptr;
    if (create == nullptr || !CreatePipe(&typed[0], &typed[1], nullptr, 0) ||
        !CreatePipe(&shown[0], &shown[1], nullptr, 0) || FAILED(create({80, 25}, typed[0], shown[1], 0, &console)))
        throw std::runtime_error("no console");
    std::thread([pipe = shown[0]] {
        char buffer[4096];
        for (DWORD count = 0; ReadFile(pipe, buffer, sizeof buffer, &count, nullptr);) {
        }
    }).detach();
    constexpr DWORD_PTR kPseudoConsole = 0x00020016;
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 2, 0, &size);
    std::vector<char> memory(size);
    STARTUPINFOEXA startup{};
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    InitializeProcThreadAttributeList(startup.lpAttributeList, 2, 0, &size);
    HANDLE handles[] = {GetStdHandle(STD_OUTPUT_HANDLE), GetStdHandle(STD_ERROR_HANDLE)};
    UpdateProcThreadAttribute(startup.lpAttributeList, 0, kPseudoConsole, console, sizeof console, nullptr, nullptr);
    UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles, sizeof handles,
                              nullptr, nullptr);
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdOutput = handles[0];
    startup.StartupInfo.hStdError = handles[1];
    PROCESS_INFORMATION started{};
    std::string line = platform::joinArguments(words);
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                        &startup.StartupInfo, &started))
        throw std::runtime_error("no process in a console");
    DWORD code = 0;
    WaitForSingleObject(started.hProcess, INFINITE);
    GetExitCodeProcess(started.hProcess, &code);
    return static_cast<int>(code);
}
const ChildRole g_inConsole("in console", runInConsole);

}  // namespace

struct ChildProcess::State {
    platform::Process process;
    bool ended = false;
    std::mutex lock;
    std::condition_variable changed;
    std::array<std::string, 2> collected;  // standard output, standard error
    std::array<bool, 2> isComplete{};
    std::array<std::thread, 2> readers;
    std::array<std::string, 2> seen;  // of the collected text, what the test may read without the lock
    std::size_t searchFrom = 0;

    ~State() {
        if (process.id() != 0 && !process.wait(0)) {
            ChildProcess::kill(process.id());
            process.wait(platform::kInfinite);
        }
        for (std::thread& reader : readers) {
            if (reader.joinable()) reader.join();
        }
    }

    // Makes a line feed of each of the system's line ends. One may be cut in two by the piece that begins at a
    // position.
    static void readLineEnds(std::string& text, std::size_t from) {
        for (std::size_t at = from == 0 ? 0 : from - 1; (at = text.find("\r\n", at)) != std::string::npos;)
            text.erase(at, 1);
    }

    void read(std::size_t stream, HANDLE pipe) {
        char buffer[4096];
        for (DWORD count = 0; ReadFile(pipe, buffer, sizeof buffer, &count, nullptr) && count > 0;) {
            const std::lock_guard guard(lock);
            collected[stream].append(buffer, count);
            readLineEnds(collected[stream], collected[stream].size() - count);
            changed.notify_all();
        }
        CloseHandle(pipe);
        const std::lock_guard guard(lock);
        isComplete[stream] = true;
        changed.notify_all();
    }
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const Options& options)
    : m_state(std::make_unique<State>()) {
    if (!options.command.empty()) throw std::runtime_error("no shell here");
    std::vector<std::string> words{program};
    if (options.terminal) words = {program, "--child-role=in console", program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    platform::ProcessRequest request;
    request.commandLine = platform::joinArguments(words);
    request.workingDirectory = options.directory;
    std::array<HANDLE, 2> readEnds{};
    std::array<HANDLE, 2> writeEnds{};
    for (std::size_t i = 0; i < 2; ++i) {
        if (!CreatePipe(&readEnds[i], &writeEnds[i], nullptr, 0)) throw std::runtime_error("no pipe");
        request.standardHandles[i + 1] = reinterpret_cast<std::intptr_t>(writeEnds[i]);
    }
    const HANDLE input = CreateFileA(options.input.empty() ? "NUL" : options.input.c_str(), GENERIC_READ,
                                     FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    request.standardHandles[0] = reinterpret_cast<std::intptr_t>(input);
    const platform::ErrorCode error = m_state->process.start(request);
    CloseHandle(input);
    for (std::size_t i = 0; i < 2; ++i) {
        CloseHandle(writeEnds[i]);
        m_state->readers[i] = std::thread([state = m_state.get(), i, pipe = readEnds[i]] { state->read(i, pipe); });
    }
    if (error != 0) throw std::runtime_error("no process for " + program + ": error " + std::to_string(error));
}

// An ended child that was not waited for is nothing here.
bool ChildProcess::anyLeft() {
    return false;
}

void ChildProcess::kill(std::uint32_t processId) {
    const HANDLE process = processId == 0 ? nullptr : OpenProcess(PROCESS_TERMINATE, FALSE, processId);
    if (process == nullptr) return;
    TerminateProcess(process, 1);
    CloseHandle(process);
}
void ChildProcess::requestEnd(std::uint32_t processId) {
    GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, processId);
}
bool ChildProcess::isRoot() {
    return false;
}

ChildProcess::~ChildProcess() = default;
ChildProcess::ChildProcess(ChildProcess&&) noexcept = default;

bool ChildProcess::waitForOutput(const std::string& text) {
    std::unique_lock guard(m_state->lock);
    for (;;) {
        const std::size_t found = m_state->collected[0].find(text, m_state->searchFrom);
        m_state->seen = m_state->collected;
        if (found != std::string::npos) {
            m_state->searchFrom = found + text.size();
            return true;
        }
        if (m_state->isComplete[0]) return false;
        m_state->changed.wait(guard);
    }
}

void ChildProcess::interrupt() {
    GenerateConsoleCtrlEvent(CTRL_C_EVENT, m_state->process.id());
}
void ChildProcess::requestEnd() {
    requestEnd(m_state->process.id());
}
void ChildProcess::kill() {
    kill(m_state->process.id());
}
void ChildProcess::hangUp() {}

int ChildProcess::wait() {
    m_state->process.wait(platform::kInfinite);
    for (std::thread& reader : m_state->readers) {
        if (reader.joinable()) reader.join();
    }
    m_state->seen = m_state->collected;
    return m_state->process.exitCode();
}

const std::string& ChildProcess::output() const {
    return m_state->seen[0];
}
const std::string& ChildProcess::errors() const {
    return m_state->seen[1];
}

}  // namespace kit
