#include "os/utilities/find_file.h"

#include <cerrno>

#include "support/utilities.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

void logUnreadable(const std::string& pattern, int error) {
    internal::logRecord(internal::LogLevel::failure, "KestFindFile: Could not read the directory of ", pattern, " (",
                        error, ")");
}

}  // namespace

FindFileBase::FindFileBase(const std::string& pattern) : m_pattern(pattern) {
    for (std::size_t end = platform::findSeparator(pattern, 0); end != std::string::npos;
         end = platform::findSeparator(pattern, end + 1)) {
        m_directory = pattern.substr(0, end);
    }
}

FindFileBase::~FindFileBase() = default;

FindFileImplementation::FindFileImplementation(const std::string& pattern) : FindFileBase(pattern) {
    const int error = m_findHandle.start(m_pattern);
    // A missing folder has no names, which is not an error. An unreadable folder is logged.
    if (error == 0) {
        advance();
    } else if (error != ENOENT && error != ENOTDIR) {
        logUnreadable(m_pattern, error);
    }
}

void FindFileImplementation::advance() {
    m_exhausted = !m_findHandle.next(m_findData);
    if (m_exhausted && m_findHandle.error() != 0) logUnreadable(m_pattern, m_findHandle.error());
}

std::string FindFileImplementation::next() {
    if (m_exhausted) return {};
    std::string result;
    result.reserve(m_directory.size() + 1 + m_findData.size());
    if (!m_directory.empty()) result.append(m_directory).append(1, '/');
    result.append(m_findData);
    advance();
    return result;
}

KestFindFile::KestFindFile(const std::string& pattern) : m_search(std::make_shared<FindFileImplementation>(pattern)) {}
KestFindFile::KestFindFile(const KestFindFile&) noexcept = default;
KestFindFile& KestFindFile::operator=(const KestFindFile&) noexcept = default;
KestFindFile::~KestFindFile() = default;

bool KestFindFile::hasMore() const noexcept {
    return m_search->hasMore();
}

std::string KestFindFile::next() {
    return m_search->next();
}

}  // namespace KestSupport
