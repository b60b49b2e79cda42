// Command lines of any bytes: the arguments of a line, joined and split again, are the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/process.h"

using namespace KestSupport::platform;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string commandLine(reinterpret_cast<const char*>(data), size);
    const auto arguments = splitArguments(commandLine);
    if (splitArguments(joinArguments(arguments)) != arguments) std::abort();
    return 0;
}
