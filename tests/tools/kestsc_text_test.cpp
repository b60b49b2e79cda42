// Tests the texts of kestsc: what it refuses, how it shows any text, its failures.
#include <cctype>
#include <cerrno>

#include "kestsc/failure.h"
#include "kestsc/json.h"
#include "kestsc/table.h"
#include "kestsc/text.h"
#include "kit/child_process.h"
#include "kit/system.h"
#include "platform/error.h"

namespace {

using namespace KestSupport::platform;
using Texts = std::vector<std::string>;

TEST(Kestsc, RefusesBadCommandLines) {
    const std::pair<Texts, std::string> refused[] = {
        {{}, "no command is given"},
        {{"fr\nob"}, "there is no command fr\\x0Aob"},
        {{""}, "there is no command \"\""},
        {{"reload", "a"}, "there is no command reload; did you mean control NAME reload?"},
        {{"strat"}, "there is no command strat; did you mean start?"},
        {{"stat"}, "there is no command stat; did you mean status or start?"},
        {{"--frob", "list"}, "unknown option --frob"},
        {{"install", "a", "b", "--restart", "1"}, "install: --restart: 1 is not never, on-failure or always"},
        {{"logs", "a", "-f", "--json"}, "logs: --follow and --json exclude each other"},
        {{"control", "a", "127"},
         "control: 127 is not reload, pause, continue, interrogate or a number from 128 to 255"},
        {{"wait", "a"}, "wait: STATE is missing"},
        {{"list", "x"}, "list: unexpected argument x"},
        {{"list", "--timeout", "3"}, "list: there is no option --timeout here"},
        {{"start"}, "start: NAME is missing"},
        {{"status", "-v"}, "status: unknown option -v"},
        {{"start", "a", "-v"}, "start: unknown option -v; put arguments of the service after --"},
        {{"start", "a", "--timeout"}, "start: --timeout needs a value: SECONDS"},
        {{"start", "a", "--timeout=1.5"}, "start: --timeout: 1.5 is not a whole number from 1 to 86400"},
        {{"start", "a", "--timeout=5", "--no-wait"}, "start: --timeout and --no-wait exclude each other"},
        {{"stop", "a", "--force", "--no-wait"}, "stop: --force and --no-wait exclude each other"},
        {{"start", "a", "--no-wait=1"}, "start: --no-wait takes no value"},
        {{"start", "a", "--json", "--json"}, "start: --json is given twice"},
        {{"install", "a"}, "install: COMMAND is missing"},
        {{"install", "a", ""}, "install: the command names no program"},
        {{"install", "a", "b", "--start", "now"}, "install: --start: now is not auto, demand or disabled"},
        {{"config", "a", "--depends=a,"}, "config: --depends: a name is empty"},
    };
    for (const auto& [arguments, message] : refused) {
        const std::size_t colon = message.find(": ");
        const std::string command = colon == std::string::npos ? "" : message.substr(0, colon) + " ";
        kit::ChildProcess child(KESTSC, arguments);
        EXPECT_EQ(child.wait(), 2) << message;
        EXPECT_EQ(child.output() + child.errors(), "kestsc: " + message + " (kestsc " + command + "--help explains)\n");
    }
    for (const Texts& arguments : {Texts{"start", "-h"}, {"--help"}, {"frob", "--version"}, {"install", "--version"}}) {
        kit::ChildProcess child(KESTSC, arguments);
        EXPECT_EQ(child.wait(), arguments[0] == "frob" ? 2 : 0);
        EXPECT_EQ(child.output().empty(), arguments[0] == "frob") << child.output();
    }
}

TEST(KestscText, EscapesWhatTerminalsObey) {
    const std::tuple<std::string, std::string, std::string, std::size_t> texts[] = {
        {"", "", "", 0},
        {"a\"\\\t\x7f", "a\"\\\\x09\\x7F", "a\\\"\\\\\\u0009\\u007F", 11},
        {"\u00e4\u20ac\U0001F600", "\u00e4\u20ac\U0001F600", "\u00e4\u20ac\U0001F600", 3},
        {"\u009b31m\u202e", "\\u009B31m\\u202E", "\\u009B31m\\u202E", 15},
        {"\xc0\x80\xed\xa0\x80", "\\xC0\\x80\\xED\\xA0\\x80", "\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFD", 20},
        {"\xf4\x90\x80\x80 \xe2\x82", "\\xF4\\x90\\x80\\x80 \\xE2\\x82", "\\uFFFD\\uFFFD\\uFFFD\\uFFFD \\uFFFD\\uFFFD",
         25},
        {std::string("\0x", 2), "\\x00x", "\\u0000x", 5},
    };
    for (const auto& [text, shown, json, width] : texts) {
        EXPECT_EQ(kestsc::printable(text), shown);
        EXPECT_EQ(kestsc::jsonText(text), '"' + json + '"');
        EXPECT_EQ(kestsc::displayWidth(shown), width) << shown;
    }
    EXPECT_EQ(kestsc::shortened("\u20ac\u20ac\u20ac", 2), "\u20ac\u20ac...");
    EXPECT_EQ(kestsc::formatTable({{"\u00e4\n", "b"}, {"abcdefg", ""}, {}}), "\u00e4\\x0A    b\nabcdefg\n\n");
}

TEST(KestscFailure, HasItsCodes) {
    // The system's text without its capital and its full stop.
    const auto said = [](ErrorCode code, std::string text) {
        if (text.empty()) return "error " + std::to_string(code);
        text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
        if (text.ends_with('.')) text.pop_back();
        return text + " (" + std::to_string(code) + ")";
    };
    const std::tuple<ErrorCode, int, int, std::string> failures[] = {
        {5, 5, 270, kit::systemText(5, EACCES)},
        {120, 8, 1, "not available on this platform"},
        {258, 6, 3, kit::systemText(258, ETIMEDOUT)},
        {1051, 7, 305, errorMessage(1051)},
        {1060, 4, -1, errorMessage(1060)},
        {47110, 1, -1, ""},
    };
    for (const auto& [error, code, status, text] : failures) {
        const kestsc::Failure failure({"stop", "a\tb"}, error);
        EXPECT_EQ(failure.exitCode(), code) << error;
        EXPECT_EQ(failure.statusCode(), status) << error;
        EXPECT_EQ(failure.what(), "stop a\\x09b: " + said(error, text));
    }
}

}  // namespace
