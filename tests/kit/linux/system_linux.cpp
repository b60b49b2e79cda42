#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "kit/system.h"

namespace kit {
namespace {

std::ptrdiff_t entriesIn(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

}  // namespace

void takeUsualSurroundings() {
    int unused = 0;  // after the standard streams, which may be closed
    while ((unused = open("/dev/null", O_RDWR)) <= 2 && unused >= 0) {
    }
    close(unused);
    for (const int number :
         {SIGHUP, SIGINT, SIGTERM, SIGPIPE, SIGCHLD})  // nohup, background jobs and supervisors ignore some
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    umask(022);
    for (const char* const setting : {"KEST_SERVICE_TIMEOUT", "NOTIFY_SOCKET"})
        unsetenv(setting);
    setenv("LC_ALL", "C", 1);
    setenv("PATH", "/usr/local/bin:/usr/bin:/bin", 1);
}

std::string systemText(std::uint32_t, int errnoValue) {
    return std::strerror(errnoValue);
}

const char* const kSystemLibrary = "libc.so.6";

std::string loadFailure(const std::string& path) {
    if (path.empty()) return "The library was not found.";
    if (access(path.c_str(), F_OK) == 0) return path + ": file too short";
    return path + ": cannot open shared object file: No such file or directory";
}

const char* const kLocaleWithLetters = "C.UTF-8";

std::locale namedLocale() {
    return std::locale("C.UTF-8");
}

bool hangUpThisProgram() {
    return raise(SIGHUP) == 0;
}

const char* const kUmlaut = "\u00fc";
const char* const kLongNameFails = "File name too long";
const bool kHasLoadAverage = true;

void interruptThisProgram() {
    raise(SIGINT);
}
bool isEndByInterrupt(int exitCode) {
    return exitCode == -SIGINT;
}
const int kConsoleSteps = 2;

bool servicesAreOfTheTest() {
    return true;
}
void ownFixedServiceNames() {}

int (*const kThreadExit)() = +[]() -> int { pthread_exit(nullptr); };

bool threadIsCalled(const std::string& name) {
    std::string shown;
    std::ifstream file("/proc/thread-self/comm");
    return !std::getline(file, shown) || (shown.size() >= 14 && name.starts_with(shown));
}

const char* const kStopOfStartingServiceFails = "1/1003";

std::intptr_t handleOf(std::FILE* stream) {
    return fileno(stream);
}
std::pair<std::intptr_t, std::intptr_t> inheritablePipe() {
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) std::perror("pipe");
    return {ends[0], ends[1]};
}
std::vector<std::string> shellCommand(const std::string& command) {
    return {"/bin/sh", "-c", command};
}
std::ptrdiff_t threadCount() {
    return entriesIn("/proc/self/task");
}
std::ptrdiff_t handleCount() {
    return entriesIn("/proc/self/fd");
}
void closeHandle(void* handle) {
    close(static_cast<int>(reinterpret_cast<std::intptr_t>(handle)));
}

void lockErrorStream() {
    flockfile(stderr);
}
void unlockErrorStream() {
    funlockfile(stderr);
}
bool errorStreamIsFree() {
    if (ftrylockfile(stderr) != 0) return false;
    funlockfile(stderr);
    return true;
}

AllSignalsBlocked::AllSignalsBlocked() : m_before(std::make_shared<sigset_t>()) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, static_cast<sigset_t*>(m_before.get()));
}
AllSignalsBlocked::~AllSignalsBlocked() {
    pthread_sigmask(SIG_SETMASK, static_cast<sigset_t*>(m_before.get()), nullptr);
}

}  // namespace kit
