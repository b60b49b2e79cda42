#include "platform/process.h"

namespace KestSupport::platform {

std::string joinArguments(const std::vector<std::string>& arguments) {
    std::string commandLine;
    for (const std::string& argument : arguments) {
        if (!commandLine.empty()) commandLine += ' ';
        commandLine += quoteArgument(argument);
    }
    return commandLine;
}

std::string quoteProgram(const std::string& commandLine) {
    for (std::size_t end = commandLine.size(); end != 0 && end != std::string::npos;) {
        const std::string path = commandLine.substr(0, end);
        if (isProgramFile(path)) return quoteArgument(path) + commandLine.substr(end);
        end = commandLine.find_last_of(" \t\n", end - 1);
    }
    return commandLine;
}

}  // namespace KestSupport::platform
