#include "machine_figures.h"

#include <support/utilities.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>

#include "number.h"

namespace agent {
namespace {

// Returns the number of a line of /proc/meminfo, such as 16384 of "MemTotal:       16384 kB".
std::optional<double> memoryLine(const std::string& wanted) {
    std::ifstream lines("/proc/meminfo");
    std::string name;
    std::string amount;
    std::string rest;
    while (lines >> name >> amount && std::getline(lines, rest)) {
        if (name == wanted) return numberFrom<double>(amount);
    }
    return std::nullopt;
}

std::string firstLine(const std::string& file) {
    std::ifstream lines(file);
    std::string line;
    std::getline(lines, line);
    return line;
}

bool isProcess(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](char each) { return each >= '0' && each <= '9'; });
}

}  // namespace

bool MachineFigures::hasLoadAverage() {
    return true;
}

std::optional<double> MachineFigures::loadAverage() {
    std::ifstream line("/proc/loadavg");
    std::string lastMinute;
    if (!(line >> lastMinute)) return std::nullopt;
    return numberFrom<double>(lastMinute);
}

std::optional<double> MachineFigures::memoryUsedPercent() {
    const auto total = memoryLine("MemTotal:");
    const auto available = memoryLine("MemAvailable:");
    if (!total || !available || *total <= 0) return std::nullopt;
    return 100 * (*total - *available) / *total;
}

// Uses the library's search, because std::filesystem's iterator ends the program when memory runs out. A process that
// ends during the search may be counted or not.
std::optional<double> MachineFigures::processCount() {
    std::uint32_t count = 0;
    const std::string folder = "/proc/";
    KestSupport::KestFindFile all(folder + "*");
    while (all.hasMore()) {
        if (isProcess(all.next().substr(folder.size()))) ++count;
    }
    if (count == 0) return std::nullopt;
    return count;
}

std::optional<double> MachineFigures::memoryMebibytes() {
    const auto kibibytes = memoryLine("MemTotal:");
    if (!kibibytes) return std::nullopt;
    return std::floor(*kibibytes / 1024);
}

std::string MachineFigures::hostName() {
    return firstLine("/proc/sys/kernel/hostname");
}

std::string MachineFigures::kernel() {
    return firstLine("/proc/sys/kernel/osrelease");
}

}  // namespace agent
