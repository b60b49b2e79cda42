// The table of the commands.
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

namespace kestsc {

struct CommandLine;
class Report;

struct CommandEntry {
    const char* name;
    const char* arguments;    ///< as the help shows them
    const char* summary;      ///< one line
    const char* explanation;  ///< lines of the command's help
    const char* example;
    std::size_t fewest;  ///< arguments
    std::size_t most;
    unsigned options;  ///< bits of command_line.h
    /// Adds its results to the report. Throws a Failure.
    void (*run)(const CommandLine&, Report&);
};

inline constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

extern const std::vector<CommandEntry> kCommands;

void listServices(const CommandLine& line, Report& report);
void showStatus(const CommandLine& line, Report& report);
void startEach(const CommandLine& line, Report& report);
void stopEach(const CommandLine& line, Report& report);
void restartEach(const CommandLine& line, Report& report);
void installOne(const CommandLine& line, Report& report);
void deleteEach(const CommandLine& line, Report& report);
void configureOne(const CommandLine& line, Report& report);
void controlEach(const CommandLine& line, Report& report);
void waitForEach(const CommandLine& line, Report& report);
void showLogs(const CommandLine& line, Report& report);
void runAll(const CommandLine& line, Report& report);
void startAll(const CommandLine& line, Report& report);
void stopAll(const CommandLine& line, Report& report);

}  // namespace kestsc
