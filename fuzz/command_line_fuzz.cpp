// Command lines of any bytes, with and without specifications. The first two lines of the input are the specifications.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "input.h"
#include "support/exceptions.h"
#include "support/program_options.h"

using namespace KestSupport;

namespace {

// Every argument must be reachable in each of the three ways.
void walk(KestProgramOptions options) {
    unsigned index = 0;
    for (auto it = options.reset(); it != options.end(); ++it, ++options, ++index) {
        if (options.getArgument(index) != *it || *options != *it || options.getArgument(it) != *it) std::abort();
    }
    if (index != options.getArgumentCount()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string commandLine(reinterpret_cast<const char*>(data), size);
    const std::string shortSpec = fuzz::takeLine(commandLine);
    const std::string longSpec = fuzz::takeLine(commandLine);
    walk(KestProgramOptions(commandLine, size % 2 == 0));
    try {
        walk(KestProgramOptions(commandLine, shortSpec, longSpec, true));
    } catch (const KestException& e) {
        if (!e.getText().starts_with("KestProgramOptions::parse: ")) std::abort();
    }
    return 0;
}
