// Child processes. A child inherits its three standard handles and nothing else.
#include "platform/process.h"

#include <algorithm>
#include <cwchar>
#include <new>

#include "platform/wait.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

// The child's standard handles: duplicates that can be inherited.
class StandardHandles {
  public:
    ErrorCode take(const ProcessRequest& request) {
        for (std::size_t i = 0; i < m_handles.size(); ++i) {
            if (const ErrorCode error = takeOne(i, request.standardHandles[i]); error != 0) return error;
        }
        return errorSuccess;
    }

    HANDLE operator[](std::size_t index) const noexcept { return m_handles[index].get(); }

    /// The different handles, as the list of those that are inherited has to be.
    std::vector<HANDLE> inherited() const {
        std::vector<HANDLE> handles;
        for (const SystemHandle& handle : m_handles) {
            if (handle.isOpen()) handles.push_back(handle.get());
        }
        return handles;
    }

  private:
    ErrorCode takeOne(std::size_t index, std::intptr_t asked) {
        if (asked == kNullDevice) {
            SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
            m_handles[index] =
                SystemHandle(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         &inheritable, OPEN_EXISTING, 0, nullptr));
            return m_handles[index].isOpen() ? errorSuccess : lastError();
        }
        const HANDLE source = asked == kInheritHandle ? standardHandle(index) : systemHandle(asked);
        // A program of the desktop has none to pass on.
        if (source == nullptr || source == INVALID_HANDLE_VALUE) return errorSuccess;
        const ErrorCode error = errorCall("passHandle", [&] {
            m_handles[index] = duplicateOf(source, true);
            return m_handles[index].isOpen();
        });
        // This process may have closed its own.
        return asked == kInheritHandle && error == errorInvalidHandle ? errorSuccess : error;
    }

    std::array<SystemHandle, 3> m_handles;
};

// The attribute that names the handles which the child inherits.
class InheritedHandles {
  public:
    InheritedHandles() = default;
    InheritedHandles(const InheritedHandles&) = delete;
    InheritedHandles& operator=(const InheritedHandles&) = delete;
    ~InheritedHandles() {
        if (m_isMade) DeleteProcThreadAttributeList(list());
    }

    ErrorCode take(std::vector<HANDLE> handles) {
        m_handles = std::move(handles);
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_memory.resize(size);
        return errorCall("passHandle", [&] {
            m_isMade = InitializeProcThreadAttributeList(list(), 1, 0, &size);
            return m_isMade && (m_handles.empty() || UpdateProcThreadAttribute(
                                                         list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                                         m_handles.size() * sizeof(HANDLE), nullptr, nullptr));
        });
    }

    LPPROC_THREAD_ATTRIBUTE_LIST list() noexcept {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
    }
    bool isEmpty() const noexcept { return m_handles.empty(); }

  private:
    std::vector<HANDLE> m_handles;
    std::vector<char> m_memory;
    bool m_isMade = false;
};

struct EnvironmentFreer {
    void operator()(wchar_t* environment) const noexcept { FreeEnvironmentStringsW(environment); }
};

bool isVariable(const std::wstring& entry, const std::wstring& name) {
    return entry.size() > name.size() && entry[name.size()] == L'=' &&
           CompareStringOrdinal(entry.c_str(), static_cast<int>(name.size()), name.c_str(),
                                static_cast<int>(name.size()), TRUE) == CSTR_EQUAL;
}

// This process's environment with the request's variables, in the system's order: by name, without regard to case.
std::wstring environmentBlock(const ProcessRequest& request) {
    std::vector<std::wstring> entries;
    const std::unique_ptr<wchar_t, EnvironmentFreer> own(GetEnvironmentStringsW());
    if (own == nullptr) throw std::bad_alloc();
    for (const wchar_t* entry = own.get(); *entry != L'\0'; entry += std::wcslen(entry) + 1)
        entries.emplace_back(entry);
    for (const auto& [name, value] : request.environment) {
        const std::wstring wideName = wideText(name);
        std::erase_if(entries, [&](const std::wstring& entry) { return isVariable(entry, wideName); });
        entries.push_back(wideName + L'=' + wideText(value));
    }
    std::stable_sort(entries.begin(), entries.end(), [](const std::wstring& a, const std::wstring& b) {
        const auto length = [](const std::wstring& entry) { return static_cast<int>(entry.find(L'=', 1)); };
        return CompareStringOrdinal(a.c_str(), length(a), b.c_str(), length(b), TRUE) == CSTR_LESS_THAN;
    });
    std::wstring block;
    for (const std::wstring& entry : entries)
        block.append(entry).push_back(L'\0');
    block.push_back(L'\0');
    return block;
}

ErrorCode runInJob(HANDLE job, HANDLE process, HANDLE thread) noexcept {
    if (AssignProcessToJobObject(job, process) && ResumeThread(thread) != static_cast<DWORD>(-1)) return errorSuccess;
    const ErrorCode error = lastError();
    TerminateProcess(process, 1);
    return error;
}

}  // namespace

Process::~Process() {
    for (const std::intptr_t handle : {m_handle, m_group}) {
        if (handle != kInheritHandle) CloseHandle(systemHandle(handle));
    }
}

ErrorCode Process::start(const ProcessRequest& request) {
    if (splitArguments(request.commandLine).empty()) return errorInvalidParameter;
    StandardHandles handles;
    if (const ErrorCode error = handles.take(request); error != 0) return error;
    InheritedHandles inherited;
    if (const ErrorCode error = inherited.take(handles.inherited()); error != 0) return error;

    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    startup.StartupInfo.wShowWindow = SW_SHOWNORMAL;
    startup.StartupInfo.hStdInput = handles[0];
    startup.StartupInfo.hStdOutput = handles[1];
    startup.StartupInfo.hStdError = handles[2];
    startup.lpAttributeList = inherited.list();

    // The system would take blanks before the program for an empty name.
    std::wstring commandLine = wideText(request.commandLine);
    commandLine.erase(0, commandLine.find_first_not_of(L" \t"));
    std::wstring environment = environmentBlock(request);
    const std::wstring folder = wideText(request.workingDirectory);
    DWORD flags = EXTENDED_STARTUPINFO_PRESENT | CREATE_UNICODE_ENVIRONMENT;
    if (request.noWindow) flags |= CREATE_NO_WINDOW;
    // The group is a job. A program that runs before it is in the job could start others outside it.
    SystemHandle job(request.ownGroup ? CreateJobObjectW(nullptr, nullptr) : nullptr);
    if (request.ownGroup && !job.isOpen()) return lastError();
    if (request.ownGroup) flags |= CREATE_SUSPENDED;
    if (request.usualSurroundings) flags |= NORMAL_PRIORITY_CLASS;
    PROCESS_INFORMATION started{};
    const ErrorCode error = errorCall(request.detached ? "startDetached" : "startProcess", [&] {
        return CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, !inherited.isEmpty(), flags,
                              environment.data(), folder.empty() ? nullptr : folder.c_str(), &startup.StartupInfo,
                              &started) != 0;
    });
    if (error != 0) return error;
    SystemHandle process(started.hProcess);
    const SystemHandle thread(started.hThread);
    if (request.ownGroup) {
        if (const ErrorCode refusal = runInJob(job.get(), process.get(), thread.get()); refusal != 0) return refusal;
        m_group = reinterpret_cast<std::intptr_t>(job.release());
    }
    m_id = started.dwProcessId;
    m_handle = reinterpret_cast<std::intptr_t>(process.release());
    m_detached = request.detached;
    if (request.detached && request.announce) request.announce(m_id);
    return errorSuccess;
}

bool Process::wait(std::uint32_t timeout) noexcept {
    if (m_ended) return true;
    const WaitMark mark;
    if (WaitForSingleObject(systemHandle(m_handle), timeout) != WAIT_OBJECT_0) return false;
    m_ended = true;
    DWORD code = 0;
    if (!m_detached && GetExitCodeProcess(systemHandle(m_handle), &code)) m_exitCode = static_cast<int>(code);
    return true;
}

void Process::endGroup() noexcept {
    constexpr UINT kExitCode = 1;
    TerminateJobObject(systemHandle(m_group), kExitCode);
}

std::intptr_t Process::duplicateHandle() noexcept {
    if (m_handle == kInheritHandle) return kInheritHandle;
    SystemHandle duplicate;
    const ErrorCode error = errorCall("duplicateHandle", [&] {
        duplicate = duplicateOf(systemHandle(m_handle));
        return duplicate.isOpen();
    });
    return error == 0 ? reinterpret_cast<std::intptr_t>(duplicate.release()) : kInheritHandle;
}

// Some openers are components, which need a thread that components may run on. The thread may end soon, and a service
// has no user who could answer a question.
ErrorCode openDocument(const std::string& path) {
    const std::wstring file = wideText(path);
    SHELLEXECUTEINFOW request{};
    request.cbSize = sizeof request;
    request.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
    request.lpVerb = L"open";
    request.lpFile = file.c_str();
    request.nShow = SW_SHOWNORMAL;
    const HRESULT initialised = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    const ErrorCode error = errorCall("startProcess", [&] { return ShellExecuteExW(&request) != 0; });
    if (SUCCEEDED(initialised)) CoUninitialize();
    return error;
}

}  // namespace KestSupport::platform
