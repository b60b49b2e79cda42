#include "machine_figures.h"

#include <windows.h>
// After windows.h.
#include <tlhelp32.h>

#include <array>
#include <cmath>
#include <cstdint>

namespace agent {
namespace {

std::optional<MEMORYSTATUSEX> memory() {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (!GlobalMemoryStatusEx(&status) || status.ullTotalPhys == 0) return std::nullopt;
    return status;
}

// The text of a value below the key of the system's version.
std::string versionText(const char* name) {
    std::array<char, 256> text{};
    auto size = static_cast<DWORD>(text.size());
    const LSTATUS status = RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", name,
                                        RRF_RT_REG_SZ, nullptr, text.data(), &size);
    return status == ERROR_SUCCESS ? text.data() : std::string();
}

}  // namespace

bool MachineFigures::hasLoadAverage() {
    return false;
}

std::optional<double> MachineFigures::loadAverage() {
    return std::nullopt;
}

std::optional<double> MachineFigures::memoryUsedPercent() {
    const std::optional<MEMORYSTATUSEX> status = memory();
    if (!status) return std::nullopt;
    const auto total = static_cast<double>(status->ullTotalPhys);
    return 100 * (total - static_cast<double>(status->ullAvailPhys)) / total;
}

std::optional<double> MachineFigures::processCount() {
    const HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (processes == INVALID_HANDLE_VALUE) return std::nullopt;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    std::uint32_t count = 0;
    for (BOOL found = Process32FirstW(processes, &entry); found; found = Process32NextW(processes, &entry))
        ++count;
    CloseHandle(processes);
    if (count == 0) return std::nullopt;
    return count;
}

std::optional<double> MachineFigures::memoryMebibytes() {
    const std::optional<MEMORYSTATUSEX> status = memory();
    if (!status) return std::nullopt;
    return std::floor(static_cast<double>(status->ullTotalPhys) / (1024 * 1024));
}

std::string MachineFigures::hostName() {
    std::array<char, 256> name{};
    auto size = static_cast<DWORD>(name.size());
    return GetComputerNameExA(ComputerNameDnsHostname, name.data(), &size) ? name.data() : std::string();
}

std::string MachineFigures::kernel() {
    return versionText("CurrentBuild");
}

}  // namespace agent
