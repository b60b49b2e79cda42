// A command line of 20 options (eight flags and twelve with data, in short and in long form) and two plain arguments;
// and command lines with many options.
#include <getopt.h>

#include <map>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "support/program_options.h"

using KestBench::Comparison;
using KestSupport::KestProgramOptions;

namespace {

const char* const kCommand[] = {
    "agent",    "-a",    "-b",         "one",     "-cdata",   "--verbose", "--config",    "file.pro",    "--log",
    "base.log", "-d",    "--interval", "60",      "--daemon", "-f",        "value",       "--threshold", "90",
    "--user",   "agent", "--quiet",    "--group", "services", "-g",        "--state-dir", "/var/lib/it", "--once",
    "-h",       "file",  "--port",     "4711",    "--ipv6",   "input",     "more input"};

const std::string kShort = "ab:c:def:gh:";
const std::string kLong =
    ":verbose:config.:log.:interval.:daemon:threshold.:user.:quiet:group.:state-dir.:once:port.:ipv6:";

const option kLongOptions[] = {
    {"verbose", no_argument, nullptr, 0},     {"config", required_argument, nullptr, 0},
    {"log", required_argument, nullptr, 0},   {"interval", required_argument, nullptr, 0},
    {"daemon", no_argument, nullptr, 0},      {"threshold", required_argument, nullptr, 0},
    {"user", required_argument, nullptr, 0},  {"quiet", no_argument, nullptr, 0},
    {"group", required_argument, nullptr, 0}, {"state-dir", required_argument, nullptr, 0},
    {"once", no_argument, nullptr, 0},        {"port", required_argument, nullptr, 0},
    {"ipv6", no_argument, nullptr, 0},        {nullptr, 0, nullptr, 0},
};

// A fresh copy of the command line, since getopt_long reorders its argv.
std::vector<char*> command() {
    std::vector<char*> argv;
    for (const char* const argument : kCommand)
        argv.push_back(const_cast<char*>(argument));
    argv.push_back(nullptr);
    return argv;
}

void parseByGetopt(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<char*> argv = command();
        const int argc = static_cast<int>(argv.size()) - 1;
        std::map<std::string, std::string> options;
        std::vector<std::string> arguments;
        optind = 0;
        int index = 0;
        for (int c; (c = getopt_long(argc, argv.data(), kShort.c_str(), kLongOptions, &index)) != -1;) {
            const std::string name = c == 0 ? kLongOptions[index].name : std::string(1, static_cast<char>(c));
            options[name] = optarg == nullptr ? "" : optarg;
        }
        for (int i = optind; i < argc; ++i)
            arguments.emplace_back(argv[static_cast<std::size_t>(i)]);
        if (options.size() != 20 || arguments.size() != 2) state.SkipWithError("not what was expected");
        benchmark::DoNotOptimize(options);
    }
}

void parseByOurs(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<char*> argv = command();
        const int argc = static_cast<int>(argv.size()) - 1;
        const KestProgramOptions options(argc, argv.data(), kShort, kLong, false);
        if (options.getArgumentCount() != 2) state.SkipWithError("not what was expected");
    }
}

// A command line of `count` options, all of which the program knows.
void parseMany(benchmark::State& state, int count) {
    std::string specification = ":";
    std::vector<std::string> texts{"agent"};
    for (int i = 0; i < count; ++i) {
        const std::string name = "option" + std::to_string(i);
        specification += name + ".:";
        texts.push_back("--" + name);
        texts.push_back(std::to_string(i));
    }
    for (auto _ : state) {
        std::vector<char*> argv;
        for (std::string& text : texts)
            argv.push_back(text.data());
        argv.push_back(nullptr);
        const int argc = static_cast<int>(argv.size()) - 1;
        const KestProgramOptions options(argc, argv.data(), "", specification, false);
        if (options.getArgumentCount() != 0) state.SkipWithError("not what was expected");
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("program options/20 options").ours(parseByOurs).peer("getopt_long with a map", 1.0, parseByGetopt);
    Growth("program options/parse", "options").limit(1.15).at({10, 100, 1000, 10000}, parseMany);
}
