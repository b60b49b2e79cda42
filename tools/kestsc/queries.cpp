// The commands list and status, and config without a change.
#include "queries.h"

#include "command_line.h"
#include "json.h"
#include "report.h"
#include "table.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

std::string processText(const ServiceStatus& status) {
    return status.processId == 0 ? "-" : std::to_string(status.processId);
}

// The service may have been deleted or damaged after the listing.
std::string startTypeText(const Manager& manager, const std::string& name) {
    try {
        return startWord(manager.configurationOf({"list", name}).startType);
    } catch (const Failure&) {
        return "-";
    }
}

// What status shows.
struct StatusView {
    std::string name;
    std::string displayName;
    ErrorCode error = 0;  // why the display name is unknown
    ServiceStatus status;
    std::string failure;
};

std::string displayText(const std::string& displayName, ErrorCode error) {
    return error == 0 ? displayName : "damaged: " + errorText(error);
}

std::string formatJson(const StatusView& service) {
    const ServiceStatus& status = service.status;
    JsonObject json;
    json.add("name", service.name).add("displayName", service.displayName).add("error", service.error);
    json.add("state", stateWord(status.currentState)).add("processId", status.processId);
    json.addJson("accepts", jsonTexts(controlWords(status.controlsAccepted)));
    json.add("exitCode", status.exitCode).add("serviceExitCode", status.serviceExitCode);
    json.add("checkPoint", status.checkPoint).add("waitHint", status.waitHint);
    if (!service.failure.empty()) json.add("failure", service.failure);
    return json.text();
}

std::string formatText(const StatusView& service) {
    const ServiceStatus& status = service.status;
    std::vector<Row> rows{{"Service", service.name},
                          {"Display name", displayText(service.displayName, service.error)},
                          {"State", stateWord(status.currentState)}};
    if (status.currentState == platform::kServiceStopped) {
        rows.push_back({"Last end", endText(status)});
        if (!service.failure.empty()) rows.push_back({"Failure", service.failure});
        return formatTable(rows);
    }
    rows.push_back({"Process", processText(status)});
    rows.push_back({"Accepts", listed(controlWords(status.controlsAccepted))});
    if (status.checkPoint != 0) rows.push_back({"Check point", std::to_string(status.checkPoint)});
    if (status.waitHint != 0) rows.push_back({"Wait hint", std::to_string(status.waitHint) + " ms"});
    return formatTable(rows);
}

}  // namespace

void listServices(const CommandLine&, Report& report) {
    const Task task{"list", ""};
    const Manager manager(task);
    std::vector<Row> rows{{"NAME", "STATE", "START", "PROCESS", "DISPLAY NAME"}};
    std::vector<std::string> objects;
    for (const platform::ServiceEntry& entry : manager.list(task)) {
        const std::string state = stateWord(entry.status.currentState);
        const std::string start = startTypeText(manager, entry.name);
        rows.push_back(
            {entry.name, state, start, processText(entry.status), displayText(entry.displayName, entry.error)});
        JsonObject object;
        object.add("name", entry.name).add("displayName", entry.displayName).add("state", state);
        object.add("start", start).add("processId", entry.status.processId).add("error", entry.error);
        objects.push_back(object.text());
    }
    if (report.asJson()) {
        report.show(JsonObject().addJson("services", jsonArray(objects)).text());
    } else {
        report.show(objects.empty() ? "No services are installed.\n" : formatTable(rows));
    }
}

void showStatus(const CommandLine& line, Report& report) {
    const Task task{"status", line.service};
    const Manager manager(task);
    const SharedHandle service = manager.open(task, platform::kServiceQueryStatus);
    StatusView view;
    view.name = line.service;
    require(task, platform::serviceManager().queryStatus(service.get(), view.status));
    platform::serviceManager().queryFailureText(service.get(), view.failure);
    try {
        view.displayName = manager.configurationOf(task).displayName;
    } catch (const Failure& failure) {
        // The state of a damaged service is still known.
        view.error = failure.error();
    }
    report.show(report.asJson() ? formatJson(view) : formatText(view));
    if (view.status.currentState == platform::kServiceStopped) report.setExitCode(kExitNotRunning);
}

void showConfiguration(const Manager& manager, const Task& task, Report& report) {
    const SharedHandle service = manager.open(task, platform::kServiceQueryConfiguration);
    platform::ServiceConfiguration registered;
    std::vector<unsigned short> wide;
    require(task, platform::serviceManager().queryConfiguration(service.get(), registered));
    require(task, platform::serviceManager().queryDescription(service.get(), wide));
    const std::string description = narrowText({wide.begin(), wide.end()});
    const std::string start = startWord(registered.startType);
    const std::vector<std::string> needed = platform::dependencyNames(registered.dependencies);
    if (report.asJson()) {
        JsonObject json;
        json.add("name", registered.name).add("displayName", registered.displayName).add("description", description);
        json.add("start", start).addJson("depends", jsonTexts(needed)).add("command", registered.commandLine);
        report.show(json.text());
        return;
    }
    report.show(formatTable({{"Service", registered.name},
                             {"Display name", registered.displayName},
                             {"Description", description},
                             {"Start", start},
                             {"Depends on", listed(needed)},
                             {"Command", registered.commandLine}}));
}

}  // namespace kestsc
