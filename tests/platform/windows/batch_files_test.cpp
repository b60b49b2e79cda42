// Tests that arguments of a batch file are data: its shell must not take a part of one for a command.
#include <fstream>

#include "kit/failure_of.h"
#include "kit/temporary_folder.h"
#include "support/program_run.h"

namespace {

using namespace KestSupport;

TEST(BatchFiles, GetNoArgumentThatTheirShellWouldRun) {
    const kit::TemporaryFolder folder;
    const std::string path = folder.pathOf("show.bat");
    std::ofstream(path) << "@echo [%1]\r\n";
    const std::pair<const char*, const char*> rows[] = {{"plain", "plain"}, {"'$1", "'$1"}, {"a b", "\"a b\""}};
    for (const auto& [argument, shown] : rows)
        EXPECT_EQ(KestRunProgram({.arguments = {path, argument}}).output, "[" + std::string(shown) + "]\r\n");
    for (const char* ending : {"", ".", " . ", "/../SHOW.Bat"}) {
        const std::string program = path + ending;
        for (const char* argument : {"\"&echo second&\"", "a|b", "%PATH%", "a\nb", "<x", "a^", "!x!"}) {
            EXPECT_EQ(kit::failureOf([&] {
                          KestRunProgram({.arguments = {program, "plain", argument}});
                      }),
                      "KestRunProgram: Could not start " + program + ": 87");
        }
    }
}

}  // namespace
