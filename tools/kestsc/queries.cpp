// The commands list and status, and config without a change.
#include "queries.h"

#include "command_line.h"
#include "json.h"
#include "report.h"
#include "table.h"
#include "text.h"
#include "times.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

std::string processText(const ServiceStatus& status) {
    return status.processId == 0 ? "-" : std::to_string(status.processId);
}

// Returns the part of the run that belongs to the status. A service that is starting may not have begun its run yet.
ServiceRun fittingRun(const Manager& manager, const std::string& name, const ServiceStatus& status) {
    const ServiceRun run = manager.runOf(name);
    const bool isStopped = status.currentState == platform::kServiceStopped;
    const bool fits =
        isStopped ? status.exitCode != platform::errorServiceNeverStarted : run.processId == status.processId;
    return fits ? run : ServiceRun();
}

JsonObject& addRun(JsonObject& json, const ServiceRun& run) {
    json.addJson("started", jsonTime(run.started)).addJson("ended", jsonTime(run.ended));
    return json.addJson("processExitCode", run.exitCode ? std::to_string(*run.exitCode) : "null");
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
    ServiceRun run;
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
    addRun(json, service.run);
    if (!service.failure.empty()) json.add("failure", service.failure);
    return json.text();
}

std::string formatText(const StatusView& service) {
    const ServiceStatus& status = service.status;
    std::vector<Row> rows{{"Service", service.name},
                          {"Display name", displayText(service.displayName, service.error)},
                          {"State", stateWord(status.currentState)}};
    const bool isStopped = status.currentState == platform::kServiceStopped;
    if (service.run.started != 0) rows.push_back({"Started", localTimeText(service.run.started)});
    const TableStyle style{0, outputStyle().colours};
    if (isStopped) {
        if (service.run.started != 0) rows.push_back({"Ended", localTimeText(service.run.ended)});
        rows.push_back({"Last end", endText(status, service.run)});
        if (!service.failure.empty()) rows.push_back({"Failure", service.failure});
        return formatTable(rows, style);
    }
    rows.push_back({"Process", processText(status)});
    rows.push_back({"Accepts", listed(controlWords(status.controlsAccepted))});
    if (status.checkPoint != 0) rows.push_back({"Check point", std::to_string(status.checkPoint)});
    if (status.waitHint != 0) rows.push_back({"Wait hint", std::to_string(status.waitHint) + " ms"});
    return formatTable(rows, style);
}

}  // namespace

void listServices(const CommandLine&, Report& report) {
    const Task task{"list", ""};
    const Manager manager(task);
    std::vector<Row> rows{{"NAME", "STATE", "START", "PROCESS", "SINCE", "LAST END", "DISPLAY NAME"}};
    std::vector<std::string> objects;
    for (const platform::ServiceEntry& entry : manager.list(task)) {
        const std::string state = stateWord(entry.status.currentState);
        const std::string start = startTypeText(manager, entry.name);
        const bool isStopped = entry.status.currentState == platform::kServiceStopped;
        const ServiceRun run = fittingRun(manager, entry.name, entry.status);
        rows.push_back(
            {entry.name, state, start, processText(entry.status), timeSince(isStopped ? run.ended : run.started),
             isStopped ? shortEndText(entry.status, run) : "-", displayText(entry.displayName, entry.error)});
        JsonObject object;
        object.add("name", entry.name).add("displayName", entry.displayName).add("state", state);
        object.add("start", start).add("processId", entry.status.processId).add("error", entry.error);
        objects.push_back(addRun(object, run).text());
    }
    if (report.asJson()) {
        report.show(JsonObject().addJson("services", jsonArray(objects)).text());
    } else {
        const std::string place = manager.location();
        const std::string none = "No services are installed" + (place.empty() ? "" : " in " + printable(place)) + ".\n";
        report.show(objects.empty() ? none : formatTable(rows, outputStyle()));
    }
}

namespace {

StatusView viewOf(const Manager& manager, const Task& task) {
    const SharedHandle service = manager.open(task, platform::kServiceQueryStatus);
    StatusView view;
    view.name = task.service;
    require(task, platform::serviceManager().queryStatus(service.get(), view.status));
    platform::serviceManager().queryFailureText(service.get(), view.failure);
    view.run = fittingRun(manager, task.service, view.status);
    try {
        view.displayName = manager.configurationOf(task).displayName;
    } catch (const Failure& failure) {
        // The state of a damaged service is still known.
        view.error = failure.error();
    }
    return view;
}

}  // namespace

void showStatus(const CommandLine& line, Report& report) {
    if (line.service.empty() && line.words.empty()) return listServices(line, report);
    const Manager manager({"status", line.service});
    const std::vector<std::string> names = servicesOf(line);
    std::vector<std::string> objects;
    std::string separator;
    for (const std::string& name : names) {
        attempt(report, [&] {
            const StatusView view = viewOf(manager, {"status", name});
            objects.push_back(formatJson(view));
            report.print(separator + formatText(view));
            separator = "\n";
            if (view.status.currentState == platform::kServiceStopped) report.setStopped();
        });
    }
    if (!report.asJson() || objects.empty()) return;
    const std::string all = JsonObject().addJson("services", jsonArray(objects)).text();
    report.show(names.size() == 1 ? objects.front() : all);
}

void showConfiguration(const Manager& manager, const Task& task, Report& report) {
    const SharedHandle service = manager.open(task, platform::kServiceQueryConfiguration);
    platform::ServiceConfiguration registered;
    std::vector<unsigned short> wide;
    require(task, platform::serviceManager().queryConfiguration(service.get(), registered));
    require(task, platform::serviceManager().queryDescription(service.get(), wide));
    const std::string description = narrowText({wide.begin(), wide.end()});
    const std::string start = startWord(registered.startType);
    const std::string restart = restartWord(registered.restart);
    const std::vector<std::string> needed = platform::dependencyNames(registered.dependencies);
    if (report.asJson()) {
        JsonObject json;
        json.add("name", registered.name).add("displayName", registered.displayName).add("description", description);
        json.add("start", start)
            .add("restart", restart)
            .addJson("depends", jsonTexts(needed))
            .add("command", registered.commandLine);
        report.show(json.text());
        return;
    }
    report.show(formatTable({{"Service", registered.name},
                             {"Display name", registered.displayName},
                             {"Description", description},
                             {"Start", start},
                             {"Restart", restart},
                             {"Depends on", listed(needed)},
                             {"Command", registered.commandLine}}));
}

}  // namespace kestsc
