// A service manager that records the calls and answers as a test sets it up. It is the process's manager while it
// exists.
#pragma once

#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/service_manager.h"

namespace kit {

namespace platform = KestSupport::platform;

class RecordingServiceManager : public platform::ServiceManager {
  public:
    using ErrorCode = platform::ErrorCode;
    using Configuration = platform::ServiceConfiguration;
    using ServiceStatus = platform::ServiceStatus;

    RecordingServiceManager() { platform::setServiceManager(this); }
    ~RecordingServiceManager() override { platform::setServiceManager(nullptr); }

    std::vector<std::string> startArguments{"service"};  ///< the texts that the service's main routine receives
    std::map<std::string, ErrorCode> failures;           ///< by call, such as "createService"
    std::vector<std::uint32_t> queriedStates;            ///< the answers of queryStatus, in this order; then it fails
    std::uint32_t stateAfterControl = 3;
    Configuration configuration;  ///< of every service

    // The recorded calls. A report reads "STATE accepted=A exit=E hint=H", with numbers.
    std::vector<std::string> reports() { return copyOf(m_reports); }
    std::vector<std::uint32_t> checkPoints() { return copyOf(m_checkPoints); }
    std::vector<std::string> calls() { return copyOf(m_calls); }
    std::size_t openHandles() { return copyOf(m_open).size(); }

    /// Waits for a report of the state.
    void awaitReport(std::uint32_t state) {
        std::unique_lock guard(m_lock);
        m_reported.wait(guard, [&] { return m_states.count(state) > 0; });
    }
    /// Sends a control to the service that runs.
    void send(std::uint32_t code) { m_handler(code); }

    ErrorCode runDispatcher(const std::string& service, ServiceMain main) override {
        if (note("runDispatcher " + service) != 0) return failures["runDispatcher"];
        std::thread([&] { main(startArguments); }).join();
        if (m_handler != nullptr) awaitReport(1);
        return 0;
    }
    Handle registerControlHandler(const std::string& service, ControlHandler handler) override {
        if (note("registerControlHandler " + service) != 0) return nullptr;
        m_handler = handler;
        return &m_handler;
    }
    ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) override {
        const std::lock_guard guard(m_lock);
        std::ostringstream report;
        report << status.currentState << " accepted=" << status.controlsAccepted << " exit=" << status.exitCode
               << " hint=" << status.waitHint;
        if (statusHandle != &m_handler || status.serviceType != 16 || status.serviceExitCode != 0) report << " wrong";
        m_reports.push_back(report.str());
        m_checkPoints.push_back(status.checkPoint);
        m_states.insert(status.currentState);
        m_reported.notify_all();
        return failures["setStatus"];
    }

    ErrorCode openManager(std::uint32_t access, Handle& manager) override {
        return open("openManager " + std::to_string(access), manager);
    }
    ErrorCode createService(Handle, const Configuration& given, std::uint32_t access, Handle& service) override {
        std::ostringstream call;
        call << "createService [" << given.name << "] [" << given.displayName << "] [" << given.commandLine << "] ["
             << given.dependencies << "] " << access << " " << given.type << " " << given.startType << " "
             << given.errorControl;
        return open(call.str(), service);
    }
    ErrorCode openService(Handle, const std::string& name, std::uint32_t access, Handle& service) override {
        return open("openService " + name + " " + std::to_string(access), service);
    }
    ErrorCode setDescription(Handle, std::span<const unsigned short> description) override {
        return note("setDescription " + std::string(description.begin(), description.end()));
    }
    ErrorCode enumerateServices(Handle, std::vector<platform::ServiceEntry>&) override { return note("enumerate"); }
    ErrorCode queryConfiguration(Handle, Configuration& answer) override {
        answer = configuration;
        return note("queryConfiguration");
    }
    ErrorCode changeConfiguration(Handle, const platform::ServiceChange& change) override {
        const bool more = change.displayName || change.commandLine || change.dependencies;
        return note("changeConfiguration " + std::to_string(change.startType.value_or(0)) + (more ? " more" : ""));
    }
    ErrorCode queryDescription(Handle, std::vector<unsigned short>&) override { return note("queryDescription"); }
    ErrorCode startService(Handle, const std::vector<std::string>& arguments) override {
        return note("startService " + std::to_string(arguments.size()));
    }
    ErrorCode control(Handle, std::uint32_t code, ServiceStatus& answer) override {
        answer.currentState = stateAfterControl;
        return note("control " + std::to_string(code));
    }
    ErrorCode queryStatus(Handle, ServiceStatus& status) override {
        note("queryStatus");
        if (queriedStates.empty()) return 6;
        status.currentState = queriedStates.front();
        queriedStates.erase(queriedStates.begin());
        return 0;
    }
    ErrorCode deleteService(Handle) override { return note("deleteService"); }
    void closeHandle(Handle handle) override {
        const std::lock_guard guard(m_lock);
        m_open.erase(handle);
    }

  private:
    template <typename Value>
    Value copyOf(const Value& value) {
        const std::lock_guard guard(m_lock);
        return value;
    }
    ErrorCode note(const std::string& call) {
        const std::lock_guard guard(m_lock);
        m_calls.push_back(call);
        return failures[call.substr(0, call.find(' '))];
    }
    ErrorCode open(const std::string& call, Handle& handle) {
        const ErrorCode error = note(call);
        if (error != 0) return error;
        const std::lock_guard guard(m_lock);
        handle = &*m_names.emplace(m_names.end());
        m_open.insert(handle);
        return 0;
    }

    std::mutex m_lock;  // guards what follows
    std::condition_variable m_reported;
    std::vector<std::string> m_reports;
    std::vector<std::uint32_t> m_checkPoints;
    std::vector<std::string> m_calls;
    std::set<std::uint32_t> m_states;
    std::set<Handle> m_open;
    ControlHandler m_handler = nullptr;
    std::list<char> m_names;  // a handle is the address of its element
};

}  // namespace kit
