// The figures that every system reports alike. The folder of the system has the others.
#include "machine_figures.h"

#include <filesystem>
#include <system_error>
#include <thread>

#include "system.h"

namespace agent {

// Counts as df does: the blocks reserved for root are not usable.
std::optional<double> MachineFigures::diskUsedPercent(const std::string& path) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(pathOf(path), error);
    if (error) return std::nullopt;
    const double used = static_cast<double>(space.capacity - space.free);
    const double usable = used + static_cast<double>(space.available);
    return usable > 0 ? 100 * used / usable : 0;
}

unsigned int MachineFigures::processors() {
    return std::thread::hardware_concurrency();
}

}  // namespace agent
