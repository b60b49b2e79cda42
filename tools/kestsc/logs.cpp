// The command logs.
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "command_line.h"
#include "json.h"
#include "platform/console.h"
#include "report.h"
#include "text.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

// What logs prints: the bytes themselves, or on a terminal, which they could control, printable lines. With labels, a
// line with the name of the service precedes what another service has written.
class Screen {
  public:
    Screen(Report& report, bool hasLabels) : m_report(report), m_hasLabels(hasLabels) {}

    /// Returns whether the output takes more.
    bool print(const std::string& service, const std::string& text) {
        if (text.empty()) return true;
        if (m_hasLabels && service != m_service && !printLabel(service)) return false;
        m_isLineOpen = text.back() != '\n';
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
    bool printLabel(const std::string& service) {
        const std::string end = m_isLineOpen ? "\n" : "";
        const std::string gap = m_service.empty() ? "" : "\n";
        m_service = service;
        return flush() && m_report.print(end + gap + "==> " + printable(service) + " <==\n");
    }

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
    const bool m_hasLabels;
    std::string m_rest;
    std::string m_service;  // of the last label
    bool m_isLineOpen = false;
};

struct Source {
    Task task;
    SharedHandle service;
    std::unique_ptr<platform::ServiceOutput> output;
};

Source openSource(const Manager& manager, const Task& task) {
    Source source{task, manager.open(task, platform::kServiceQueryStatus), nullptr};
    require(task, platform::serviceManager().openOutput(source.service.get(), source.output));
    return source;
}

// Returns the end of the text that begins with the last lines.
std::string lastLines(const std::string& text, std::uint32_t count) {
    std::size_t begin = text.size();
    for (std::uint32_t i = 0; i < count && begin > 0; ++i) {
        const std::size_t before = begin < 2 ? std::string::npos : text.rfind('\n', begin - 2);
        begin = before == std::string::npos ? 0 : before + 1;
    }
    return text.substr(begin);
}

std::string readAll(const Source& source) {
    std::string text;
    for (std::size_t before = 1; text.size() != before;) {
        before = text.size();
        bool mayMiss = false;
        require(source.task, source.output->read(text, mayMiss));
    }
    return text;
}

std::string readNew(const Source& source) {
    std::string text;
    bool mayMiss = false;
    require(source.task, source.output->read(text, mayMiss));
    if (mayMiss) complain(printable("logs " + source.task.service + ": some output may be missing here"));
    return text;
}

// An open handle does not tell: a service that is marked for deletion and then killed leaves its files.
bool isDeleted(const Manager& manager, const Source& source) {
    try {
        manager.open(source.task, platform::kServiceQueryStatus);
        return false;
    } catch (const Failure& failure) {
        return failure.error() == platform::errorServiceDoesNotExist;
    }
}

void follow(const Manager& manager, std::vector<Source> sources, Screen& screen) {
    constexpr std::chrono::milliseconds kStep{200};
    for (bool canWrite = true; canWrite && !sources.empty();) {
        bool isIdle = true;
        for (const Source& source : sources) {
            const std::string text = readNew(source);
            if (text.empty()) continue;
            isIdle = false;
            canWrite = canWrite && screen.print(source.task.service, text);
        }
        if (!isIdle) continue;
        canWrite = canWrite && screen.flush();
        std::erase_if(sources, [&](const Source& each) { return isDeleted(manager, each); });
        std::this_thread::sleep_for(kStep);
    }
}

}  // namespace

void showLogs(const CommandLine& line, Report& report) {
    const Manager manager({"logs", line.service});
    const std::vector<std::string> names = servicesOf(line);
    Screen screen(report, names.size() > 1);
    std::vector<Source> sources;
    std::vector<std::string> objects;
    bool canWrite = true;
    for (const std::string& name : names) {
        attempt(report, [&] {
            sources.push_back(openSource(manager, {"logs", name}));
            std::string text = readAll(sources.back());
            if (line.lines) text = lastLines(text, *line.lines);
            objects.push_back(JsonObject().add("service", name).add("output", text).text());
            if (!report.asJson()) canWrite = canWrite && screen.print(name, text) && screen.flush();
        });
    }
    if (report.asJson() && !objects.empty()) {
        const std::string all = JsonObject().addJson("services", jsonArray(objects)).text();
        report.show(names.size() == 1 ? objects.front() : all);
    } else if (line.follows && canWrite) {
        follow(manager, std::move(sources), screen);
    }
}

}  // namespace kestsc
