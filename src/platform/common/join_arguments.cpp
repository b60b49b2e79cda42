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

}  // namespace KestSupport::platform
