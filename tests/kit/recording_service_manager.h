// A service manager that records the calls and answers as a test sets it up. It is the process's manager while it
// exists.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/service_manager.h"

namespace kit {

class RecordingServiceManager : public KestSupport::platform::ServiceManager {
  public:
    using ErrorCode = KestSupport::platform::ErrorCode;
    using ServiceStatus = KestSupport::platform::ServiceStatus;

    RecordingServiceManager() { KestSupport::platform::setServiceManager(this); }
    ~RecordingServiceManager() override { KestSupport::platform::setServiceManager(nullptr); }

    std::vector<std::string> startArguments{"service"};  ///< the texts that the service's main routine receives
    std::map<std::string, ErrorCode> failures;           ///< by call, such as "createService"
    std::vector<std::uint32_t> queriedStates;            ///< the answers of queryStatus, in this order; then it fails
    std::uint32_t stateAfterControl = 3;
    KestSupport::platform::ServiceConfiguration configuration;  ///< of every service

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
        m_reports.push_back(std::to_string(status.currentState) +
                            " accepted=" + std::to_string(status.controlsAccepted) +
                            " exit=" + std::to_string(status.exitCode) + " hint=" + std::to_string(status.waitHint));
        m_checkPoints.push_back(status.checkPoint);
        if (statusHandle != &m_handler || status.serviceType != 16 || status.serviceExitCode != 0)
            m_reports.back() += " wrong";
        m_states.insert(status.currentState);
        m_reported.notify_all();
        return failures["setStatus"];
    }

    ErrorCode openManager(std::uint32_t access, Handle& manager) override {
        return open("openManager " + std::to_string(access), manager);
    }
    ErrorCode createService(Handle, const KestSupport::platform::ServiceConfiguration& given, std::uint32_t access,
                            Handle& service) override {
        std::string call = "createService";
        for (const std::string& text : {given.name, given.displayName, given.commandLine, given.dependencies})
            call += " [" + text + "]";
        for (const std::uint32_t number : {access, given.type, given.startType, given.errorControl})
            call += " " + std::to_string(number);
        return open(call, service);
    }
    ErrorCode openService(Handle, const std::string& name, std::uint32_t access, Handle& service) override {
        return open("openService " + name + " " + std::to_string(access), service);
    }
    ErrorCode setDescription(Handle, std::span<const unsigned short> description) override {
        return note("setDescription " + std::string(description.begin(), description.end()));
    }
    ErrorCode enumerateServices(Handle, std::vector<KestSupport::platform::ServiceEntry>&) override {
        return note("enumerateServices");
    }
    ErrorCode queryConfiguration(Handle, KestSupport::platform::ServiceConfiguration& answer) override {
        answer = configuration;
        return note("queryConfiguration");
    }
    ErrorCode changeConfiguration(Handle, const KestSupport::platform::ServiceChange& change) override {
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
        handle = &m_handleNames[m_nextHandle++];
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
    char m_handleNames[64] = {};
    std::size_t m_nextHandle = 0;
};

}  // namespace kit
