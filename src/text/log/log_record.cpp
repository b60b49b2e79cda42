#include "support/log_record.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <exception>
#include <ios>
#include <limits>
#include <locale>
#include <optional>
#include <streambuf>
#include <utility>

#include "platform/thread.h"
#include "platform/uninterrupted.h"
#include "support/locales.h"
#include "support/locks.h"
#include "text/log/log_format.h"
#include "text/log/logging_state.h"

namespace KestSupport {

KestLogging* KestLogRecord::begin(int level, std::string_view module) {
    KestLogging* const logging = KestLogging::m_pInstance.load(std::memory_order_acquire);
    if (logging == nullptr) return nullptr;  // its end has begun since the test of the level
    if (!module.empty() && level != 0 && logging->m_pState->moduleLevel(module, level) < level) return nullptr;
    m_level = level;
    m_exceptions = std::uncaught_exceptions();
    m_size = 0;
    m_capacity = kSmall;
    m_text = m_small;
    append(module);
    m_moduleSize = m_size;
    return logging;
}

void KestLogRecord::finish() noexcept {
    if (std::uncaught_exceptions() <= m_exceptions) write();
    freeLarge();
}

// A record that no memory is left for is lost: a destructor reports nothing.
void KestLogRecord::write() noexcept {
    const std::string_view whole(m_text, m_size);
    const internal::RecordParts record{m_level, whole.substr(0, m_moduleSize), platform::currentThreadId(),
                                       whole.substr(m_moduleSize)};
    if (record.text.empty()) return;
    try {
        internal::LoggingState& state = *m_pLogging->m_pState;
        internal::RecordLock lock(state);
        m_pLogging->writeAbandonedRecord();
        const internal::LineQueue::Turn turn = state.addLine(record);
        if (turn.isShared()) lock.unlock();
        state.finishLine(turn);
    } catch (...) {
    }
}

void KestLogRecord::drop() noexcept {
    m_pLogging = nullptr;
    freeLarge();
}

void KestLogRecord::freeLarge() noexcept {
    if (m_text != m_small) delete[] m_text;
}

// Returns where to put the next characters. Doubles the memory, so a long text takes linear time.
char* KestLogRecord::room(std::size_t more) {
    if (more > m_capacity - m_size) {
        const std::size_t capacity = std::max(m_size + more, 2 * m_capacity);
        char* const larger = new char[capacity];
        std::memcpy(larger, m_text, m_size);
        freeLarge();
        m_text = larger;
        m_capacity = capacity;
    }
    return m_text + m_size;
}

void KestLogRecord::append(std::string_view text) {
    if (text.empty()) return;
    std::memcpy(room(text.size()), text.data(), text.size());
    m_size += text.size();
}

void KestLogRecord::appendNumber(long long value) {
    char* const begin = room(internal::kMostDecimal);
    m_size += static_cast<std::size_t>(std::to_chars(begin, begin + internal::kMostDecimal, value).ptr - begin);
}

void KestLogRecord::appendNumber(unsigned long long value) {
    char* const begin = room(internal::kMostDecimal);
    m_size += static_cast<std::size_t>(std::to_chars(begin, begin + internal::kMostDecimal, value).ptr - begin);
}

void KestLogRecord::appendNumber(double value) {
    std::string text;
    internal::appendFixed(text, value);
    append(text);
}

void KestLogRecord::appendPointer(const void* value) {
    std::string text;
    internal::appendPointer(text, value);
    append(text);
}

void KestLogRecord::appendWide(const wstring16& value) {
    append(KestStringUtilities::narrow(value, KestLocaleFactory::getDefaultLocale(true)));
}

void KestLogRecord::appendStreamed(void (*insert)(std::ostream&, const void*), const void* value) {
    struct Buffer : std::streambuf {
        explicit Buffer(KestLogRecord& owner) : record(owner) {}
        std::streamsize xsputn(const char* text, std::streamsize size) override {
            record.append({text, static_cast<std::size_t>(size)});
            return size;
        }
        int_type overflow(int_type next) override {
            const char character = traits_type::to_char_type(next);
            if (!traits_type::eq_int_type(next, traits_type::eof())) record.append({&character, 1});
            return traits_type::not_eof(next);
        }
        KestLogRecord& record;
    };
    std::optional<platform::RuntimeCall> construction(std::in_place);  // locks the global locale of the program
    Buffer buffer(*this);
    std::ostream stream(&buffer);
    construction.reset();
    stream.imbue(std::locale::classic());
    stream.exceptions(std::ios_base::badbit);  // otherwise the stream would swallow the exception of the buffer
    insert(stream, value);
}

}  // namespace KestSupport
