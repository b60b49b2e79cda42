// The command logs.
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "command_line.h"
#include "json.h"
#include "platform/console.h"
#include "report.h"
#include "text.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

// What logs prints: the bytes themselves, or on a terminal, which they could control, printable lines.
class Screen {
  public:
    explicit Screen(Report& report) : m_report(report) {}

    /// Returns whether the output takes more.
    bool print(const std::string& text) {
        if (!m_isTerminal) return m_report.print(text);
        m_rest += text;
        const std::size_t end = m_rest.rfind('\n') + 1;  // 0 without a whole line
        const std::string lines = m_rest.substr(0, end);
        m_rest.erase(0, end);
        return m_report.print(printableLines(lines));
    }
    /// Prints the last line, which has no end yet.
    bool flush() {
        const std::string rest = std::exchange(m_rest, "");
        return m_report.print(printableLines(rest));
    }

  private:
    static std::string printableLines(std::string_view text) {
        std::string shown;
        while (!text.empty()) {
            const std::size_t end = std::min(text.find_first_of("\n\t"), text.size());
            shown += printable(text.substr(0, end));
            shown += text.substr(end, 1);
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        return shown;
    }

    Report& m_report;
    const bool m_isTerminal = platform::isTerminal(platform::StandardStream::output);
    std::string m_rest;
};

// Returns the end of the text that begins with the last lines.
std::string lastLines(const std::string& text, std::uint32_t count) {
    std::size_t begin = text.size();
    for (std::uint32_t i = 0; i < count && begin > 0; ++i) {
        const std::size_t before = begin < 2 ? std::string::npos : text.rfind('\n', begin - 2);
        begin = before == std::string::npos ? 0 : before + 1;
    }
    return text.substr(begin);
}

std::string readAll(const Task& task, platform::ServiceOutput& output) {
    std::string text;
    for (std::size_t before = 1; text.size() != before;) {
        before = text.size();
        bool mayMiss = false;
        require(task, output.read(text, mayMiss));
    }
    return text;
}

void follow(const Task& task, const SharedHandle& service, platform::ServiceOutput& output, Screen& screen) {
    constexpr std::chrono::milliseconds kStep{200};
    for (bool canWrite = true; canWrite;) {
        std::string text;
        bool mayMiss = false;
        require(task, output.read(text, mayMiss));
        if (mayMiss) complain(printable("logs " + task.service + ": some output may be missing here"));
        if (!text.empty()) {
            canWrite = screen.print(text);
            continue;
        }
        canWrite = screen.flush();
        ServiceStatus status;
        const ErrorCode error = platform::serviceManager().queryStatus(service.get(), status);
        if (error == platform::errorServiceDoesNotExist) return;
        std::this_thread::sleep_for(kStep);
    }
}

}  // namespace

void showLogs(const CommandLine& line, Report& report) {
    const Task task{"logs", line.service};
    const SharedHandle service = Manager(task).open(task, platform::kServiceQueryStatus);
    std::unique_ptr<platform::ServiceOutput> output;
    require(task, platform::serviceManager().openOutput(service.get(), output));
    std::string text = readAll(task, *output);
    if (line.lines) text = lastLines(text, *line.lines);
    if (report.asJson()) {
        report.show(JsonObject().add("service", line.service).add("output", text).text());
        return;
    }
    Screen screen(report);
    if (screen.print(text) && screen.flush() && line.follows) follow(task, service, *output, screen);
}

}  // namespace kestsc
