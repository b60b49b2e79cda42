// Command lines by the rules that the system's programs follow: blanks and tabs separate, double quotes keep them, and
// backslashes count as escapes only before a double quote.

#include <cstring>
#include <new>

#include "platform/process.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

// Texts are examined as 16-bit units, since the second byte of a character may be that of a backslash or of '|', as in
// the code page 932.

// The system reads the first word, the program's, by simpler rules than the others. With a program before the line,
// all its words follow the same rules.
std::vector<std::string> splitArguments(std::string_view commandLine) {
    const std::wstring line = L"program " + wideText(commandLine);
    int count = 0;
    const LocalMemory<wchar_t*> words(CommandLineToArgvW(line.c_str(), &count));
    if (words == nullptr) throw std::bad_alloc();
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(ansiText(words.get()[i]));
    return arguments;
}

std::string quoteArgument(std::string_view argument) {
    if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string_view::npos)
        return std::string(argument);
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : wideText(argument)) {
        if (c == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return ansiText(quoted.append(backslashes, L'\\') + L'"');
}

// The system calls a file with one of the endings through its shell. It ignores blanks and dots after the ending.
bool getsUnchanged(std::string_view program, std::string_view argument) {
    constexpr std::wstring_view kOfShell = L"\"%!&|<>^\r\n";
    constexpr std::size_t kEndingSize = 4;
    const std::string_view name = program.substr(0, program.find_last_not_of(" .") + 1);
    if (name.size() < kEndingSize || wideText(argument).find_first_of(kOfShell) == std::wstring::npos) return true;
    const char* const ending = name.data() + name.size() - kEndingSize;
    return _strnicmp(ending, ".bat", kEndingSize) != 0 && _strnicmp(ending, ".cmd", kEndingSize) != 0;
}

// The system tries the name with the ending of programs too. It ignores blanks and dots at the end of a path, so there
// they are arguments. A path such as "C:name" begins at the current folder of the drive.
bool isProgramFile(const std::string& path) {
    const auto isFile = [](const std::string& name) {
        const DWORD attributes = GetFileAttributesW(systemPath(name).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    };
    const bool isAbsolute = path.find(":\\") == 1 || path.find(":/") == 1 || path.starts_with("\\\\");
    return isAbsolute && !path.ends_with(' ') && !path.ends_with('.') && (isFile(path) || isFile(path + ".exe"));
}

}  // namespace KestSupport::platform
