#include "report.h"

#include <cerrno>
#include <cstdio>

#include "json.h"
#include "text.h"

namespace kestsc {
namespace {

std::string resultOf(const Task& task, int status, ErrorCode error, const std::string& message) {
    JsonObject result;
    result.add("operation", task.operation).add("service", task.service);
    return result.add("status", status).add("error", error).add("message", message).text();
}

}  // namespace

void complain(const std::string& line) {
    std::fprintf(stderr, "kestsc: %s\n", line.c_str());
}

// Written at once, because the next operation may take long.
void Report::succeed(const Task& task, const std::string& outcome) {
    if (!m_asJson) write(printable(task.service) + ": " + printable(outcome) + '\n');
    m_results.push_back(resultOf(task, 0, 0, outcome));
}

void Report::fail(const Failure& failure) {
    complain(failure.what());
    m_results.push_back(resultOf(failure.task(), failure.statusCode(), failure.error(), failure.reason()));
    if (!m_hasFailed) m_exitCode = failure.exitCode();
    m_hasFailed = true;
}

ExitCode Report::finish() {
    if (m_asJson && (!m_shown || m_hasFailed)) {
        write(JsonObject().addJson("results", jsonArray(m_results)).text() + '\n');
    } else if (m_shown && !m_hasFailed) {
        write(m_asJson ? *m_shown + '\n' : *m_shown);
    }
    if (m_writeError == 0) return m_exitCode;
    complain("standard output: " + errorText(m_writeError));
    return m_hasFailed ? m_exitCode : kExitFailed;
}

bool Report::print(const std::string& text) {
    if (!m_asJson) write(text);
    return m_writeError == 0;
}

void Report::write(const std::string& text) {
    errno = 0;
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!isWritten && m_writeError == 0) m_writeError = KestSupport::platform::errorFromErrno(errno);
}

}  // namespace kestsc
