#include "os/find_file.h"

#include "support/utilities.h"

namespace KestSupport {

FindFileBase::FindFileBase(const std::string& pattern) : m_pattern(pattern) {
    const std::size_t separator = pattern.find_last_of("\\/");
    if (separator != std::string::npos) m_directory = pattern.substr(0, separator);
}

FindFileBase::~FindFileBase() = default;

FindFileImplementation::FindFileImplementation(const std::string& pattern) : FindFileBase(pattern) {
    m_exhausted = !m_findHandle.start(m_pattern) || !m_findHandle.next(m_findData);
}

std::string FindFileImplementation::next() {
    if (m_exhausted) return {};
    std::string result;
    result.reserve(m_directory.size() + 1 + m_findData.size());
    if (!m_directory.empty()) result.append(m_directory).append(1, '/');
    result.append(m_findData);
    m_exhausted = !m_findHandle.next(m_findData);
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
