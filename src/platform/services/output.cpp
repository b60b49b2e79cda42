#include "platform/services/output.h"

#include <algorithm>

#include "platform/services/database.h"
#include "platform/wait.h"

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kShortestInterval = 250;  // milliseconds between two looks at a file that grows
constexpr std::uint32_t kLongestInterval = 5000;

constexpr const char* kCurrent = ServiceFiles::kOutput;
constexpr const char* kOld = ServiceFiles::kOldOutput;

}  // namespace

Result<File> openServiceOutput(const Folder& folder) {
    Result<File> file = folder.openFile(kCurrent, FileUse::append);
    if (!file) return file;
    const Result<FileFacts> facts = file->facts();
    if (!facts) return facts.failure();
    if (!facts->isRegular) return Failure{errorInvalidData};
    if (facts->size < kOutputLimit || folder.renameFile(kCurrent, kOld) != 0) return file;
    return folder.openFile(kCurrent, FileUse::append);
}

void OutputKeeper::begin(const Folder& folder) {
    Result<File> file = folder.openFile(kCurrent, FileUse::append);
    if (!file || !isStandardOutput(*file)) return;
    m_file = std::move(*file);
    m_interval = kShortestInterval;
    m_next = Deadline::after(m_interval);
}

std::uint32_t OutputKeeper::look(const Folder& folder) {
    if (!m_file.isOpen()) return kInfinite;
    if (const std::uint32_t rest = m_next.rest(); rest != 0) return rest;
    const Result<FileFacts> facts = m_file.facts();
    const bool grew = facts && facts->size != m_size;
    m_interval = grew ? kShortestInterval : std::min(2 * m_interval, kLongestInterval);
    m_next = Deadline::after(m_interval);
    if (!facts) return m_interval;
    m_size = facts->size;
    if (m_size >= kOutputLimit || !facts->isNamed) replace(folder, facts->isNamed);
    return m_interval;
}

// A failure loses nothing: the service continues to write to the present file, and the next look tries again.
void OutputKeeper::replace(const Folder& folder, bool isNamed) {
    if (isNamed) {
        const ErrorCode error = folder.renameFile(kCurrent, kOld);
        // A look whose second step failed has renamed the file already.
        if (error != 0 && error != errorFileNotFound) return;
    }
    Result<File> next = folder.openFile(kCurrent, FileUse::append);
    if (!next) return;
    redirectStandardOutput(m_file, *next);
    m_file = std::move(*next);
    m_size = 0;
}

ErrorCode OutputReader::read(std::string& text, bool& mayMiss) {
    mayMiss = false;
    if (!m_file.isOpen()) {
        ErrorCode error = open(kOld);
        m_isComplete = error == 0;
        if (error == errorFileNotFound) error = open(kCurrent);
        if (error != 0) return error == errorFileNotFound ? errorSuccess : error;
    }
    const std::size_t before = text.size();
    if (const ErrorCode error = readOn(text); error != 0 || text.size() > before) return error;
    const Result<bool> isCurrent = isOurs(kCurrent);
    if (!isCurrent || *isCurrent) return isCurrent.error();
    // The service has begun another file, and may just be writing the last bytes to this one.
    if (!m_isComplete) {
        m_isComplete = true;
        return 0;
    }
    const Result<bool> isOld = isOurs(kOld);
    if (!isOld) return isOld.failure();
    const ErrorCode error = open(*isOld ? kCurrent : kOld);
    if (error != 0) return error == errorFileNotFound ? errorSuccess : error;
    m_isComplete = !*isOld;
    mayMiss = !*isOld;
    return readOn(text);
}

ErrorCode OutputReader::open(const char* name) {
    Result<File> file = m_folder.openFile(name, FileUse::read);
    if (file) m_file = std::move(*file);
    return file.error();
}

ErrorCode OutputReader::readOn(std::string& text) const {
    constexpr std::size_t kStep = std::size_t{64} * 1024;
    const Result<std::string> next = m_file.readAll(kStep);
    if (next) text += *next;
    return next.error();
}

// A name that no file has is not ours.
Result<bool> OutputReader::isOurs(const char* name) const {
    const Result<File> file = m_folder.openFile(name, FileUse::read);
    if (file.error() == errorFileNotFound) return false;
    if (!file) return file.failure();
    const Result<FileFacts> one = file->facts();
    const Result<FileFacts> other = m_file.facts();
    if (!one || !other) return one ? other.failure() : one.failure();
    return one->isSameFile(*other);
}

}  // namespace KestSupport::platform
