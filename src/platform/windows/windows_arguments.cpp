// Command lines by the rules that the system's programs follow: blanks and tabs separate, double quotes keep them, and
// backslashes count as escapes only before a double quote.

#include "platform/process.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

// The system reads the first word, the program's, by simpler rules than the others. With a program before the line,
// all its words follow the same rules.
std::vector<std::string> splitArguments(std::string_view commandLine) {
    const std::wstring line = L"program " + wideText(commandLine);
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(line.c_str(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(ansiText(words[i]));
    LocalFree(words);
    return arguments;
}

std::string quoteArgument(std::string_view argument) {
    if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string_view::npos)
        return std::string(argument);
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') quoted.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, '\\') + '"';
}

std::string quoteProgram(const std::string& commandLine) {
    const bool isAbsolute = commandLine.size() > 2 && commandLine[1] == ':';
    if (!isAbsolute && !commandLine.starts_with("\\\\")) return commandLine;
    for (std::size_t end = commandLine.size(); end != std::string::npos && end != 0;) {
        const std::string path = commandLine.substr(0, end);
        const DWORD attributes = GetFileAttributesW(systemPath(path).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            return quoteArgument(path) + commandLine.substr(end);
        end = commandLine.find_last_of(" \t", end - 1);
    }
    return commandLine;
}

}  // namespace KestSupport::platform
