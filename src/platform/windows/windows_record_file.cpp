#include "platform/record_file.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <new>

#include "platform/uninterrupted.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

bool informationOf(HANDLE file, BY_HANDLE_FILE_INFORMATION& information) noexcept {
    return GetFileInformationByHandle(file, &information) != 0;
}

// The end of a file can be set with the right to write only.
bool makeEmpty(HANDLE file) noexcept {
    const int error = errnoCall("emptyRecordFile", [&] {
        const SystemHandle writer(ReOpenFile(file, GENERIC_WRITE, kAnySharing, 0));
        return writer.isOpen() && SetEndOfFile(writer.get());
    });
    return error == 0 || failWith(error);
}

// A thread that writes records spends most of its time in the system's write of a file, which uses no lock of the
// process and leaves a whole number of bytes. The mark lets it be ended there. Under Wine, a write to a pipe allocates.
BOOL writeFile(HANDLE file, const char* bytes, DWORD size, DWORD& taken) noexcept {
    const WaitMark mark;
    return WriteFile(file, bytes, size, &taken, nullptr);
}

BOOL writeStream(HANDLE stream, const char* bytes, DWORD size, DWORD& taken) noexcept {
    return WriteFile(stream, bytes, size, &taken, nullptr);
}

using Write = decltype(&writeFile);

// Returns whether all of the bytes were taken; if not, sets errno.
bool writeBytes(Write write, HANDLE file, const char* bytes, std::size_t size) noexcept {
    while (size > 0) {
        DWORD taken = 0;
        const auto most = static_cast<DWORD>(std::min(size, kMostAtOnce));
        const int error = errnoCall("writeRecords", [&] { return write(file, bytes, most, taken) != 0; });
        if (error != 0 || taken == 0) return failWith(error);
        bytes += taken;
        size -= taken;
    }
    return true;
}

// In text mode a line feed becomes the system's line end. A record that fits into the block is one write.
std::size_t writeInMode(int mode, Write write, HANDLE file, std::string_view text) noexcept {
    std::array<char, 65536> block;
    std::size_t done = 0;
    while (done < text.size()) {
        std::size_t used = 0;
        std::size_t next = done;
        for (; next < text.size() && used + 2 <= block.size(); ++next) {
            if (text[next] == '\n' && mode != _O_BINARY) block[used++] = '\r';
            block[used++] = text[next];
        }
        if (!writeBytes(write, file, block.data(), used)) break;
        done = next;
    }
    return done;
}

// Returns the mode that the program has chosen for the stream. The runtime only tells the former mode when another one
// is set. For a stream in text mode, that changes nothing. For another one, the lock keeps other threads from writing.
int modeOf(std::FILE* stream, int descriptor) noexcept {
    const Uninterrupted whole;
    _lock_file(stream);
    const int mode = _setmode(descriptor, _O_TEXT);
    if (mode != _O_TEXT && mode != -1) _setmode(descriptor, mode);
    _unlock_file(stream);
    return mode;
}

}  // namespace

// Appending alone is asked for, so each write goes to the end of the file in one step. A link is opened itself and
// refused, and a file is emptied through its open handle: the name may lead elsewhere by then.
bool RecordFile::open(const char* name, RecordFileStart start) noexcept try {
    SystemHandle file;
    const int error = errnoCall("openRecordFile", [&] {
        file = SystemHandle(CreateFileW(systemPath(name).c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                        kAnySharing, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        return file.isOpen();
    });
    if (error != 0) return failWith(error);
    BY_HANDLE_FILE_INFORMATION information;
    if (informationOf(file.get(), information)) {
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return failWith(ELOOP);
        const bool hasText = information.nFileSizeHigh != 0 || information.nFileSizeLow != 0;
        if (start == RecordFileStart::empty && hasText && !makeEmpty(file.get())) return false;
    }
    m_handle = reinterpret_cast<std::intptr_t>(file.release());
    return true;
} catch (const std::bad_alloc&) {
    return failWith(ENOMEM);
}

void RecordFile::close() noexcept {
    if (isOpen()) CloseHandle(systemHandle(m_handle));
    m_handle = -1;
}

RecordFileState RecordFile::state() const noexcept {
    BY_HANDLE_FILE_INFORMATION information;
    if (!isOpen() || !informationOf(systemHandle(m_handle), information)) return {};
    constexpr std::int64_t kUnitsPerSecond = 10'000'000;
    return {joined(information.nFileSizeHigh, information.nFileSizeLow),
            calendarUnits(information.ftLastWriteTime) / kUnitsPerSecond};
}

bool RecordFile::hasName(const char* name) const noexcept try {
    BY_HANDLE_FILE_INFORMATION own, named;
    const SystemHandle other(CreateFileW(systemPath(name).c_str(), FILE_READ_ATTRIBUTES, kAnySharing, nullptr,
                                         OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return isOpen() && other.isOpen() && informationOf(systemHandle(m_handle), own) &&
           informationOf(other.get(), named) && own.dwVolumeSerialNumber == named.dwVolumeSerialNumber &&
           own.nFileIndexHigh == named.nFileIndexHigh && own.nFileIndexLow == named.nFileIndexLow;
} catch (const std::bad_alloc&) {
    return false;
}

std::size_t RecordFile::write(std::string_view text) noexcept {
    return writeInMode(_O_TEXT, &writeFile, systemHandle(m_handle), text);
}

std::size_t sizeInFile(std::string_view text) noexcept {
    return text.size() + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

int renameRecordFile(const char* from, const char* to) noexcept try {
    const std::wstring source = systemPath(from), target = systemPath(to);
    return errnoCall("renameRecordFile",
                     [&] { return MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING) != 0; });
} catch (const std::bad_alloc&) {
    return ENOMEM;
}

// The runtime does not tell.
bool mayHaveBufferedText(std::FILE*) noexcept {
    return true;
}

// Past the runtime's streams, whose lock a killed thread would keep.
std::optional<std::size_t> writeToFileOf(std::FILE* stream, std::string_view text) noexcept {
    const int descriptor = _fileno(stream);
    const std::intptr_t handle = descriptor < 0 ? -1 : _get_osfhandle(descriptor);
    if (handle <= 0) return std::nullopt;
    return writeInMode(modeOf(stream, descriptor), &writeStream, systemHandle(handle), text);
}

}  // namespace KestSupport::platform
