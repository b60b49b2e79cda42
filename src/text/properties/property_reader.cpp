#include "text/properties/property_reader.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "platform/file_stream.h"

namespace KestSupport::internal {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kBlock = std::size_t{64} * 1024;

// Returns the offset after the first line end that begins at `from` or later; npos if there is none. Units begin at the
// even offsets, and `from` is one of them.
std::size_t afterLineEnd(std::string_view text, std::size_t from, LineEnd lineEnd) {
    for (std::size_t at = text.find('\n', from); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        if (lineEnd == LineEnd::kByte) return at + 1;
        if (at % 2 != 0 || at + 1 == text.size()) continue;
        if (lineEnd == LineEnd::kLowByteOfUnit || text[at + 1] == '\0') return at + 2;
    }
    return std::string_view::npos;
}

template <typename CharType>
constexpr LineEnd kUtf16LineEnd = std::is_same_v<CharType, char> ? LineEnd::kLowByteOfUnit : LineEnd::kLittleEndianUnit;

}  // namespace

bool LineBlocks::skip(std::string_view bytes) {
    while (rest().size() < bytes.size()) {
        if (!fill()) return false;
    }
    if (!rest().starts_with(bytes)) return false;
    m_begin += bytes.size();
    return true;
}

bool LineBlocks::next(LineEnd lineEnd, std::string_view& line) {
    std::size_t searched = 0;
    std::size_t end = afterLineEnd(rest(), searched, lineEnd);
    while (end == std::string_view::npos) {
        searched = rest().size() & ~std::size_t{1};
        if (!fill()) {
            line = rest();
            m_begin = m_end;
            return !line.empty();
        }
        end = afterLineEnd(rest(), searched, lineEnd);
    }
    line = rest().substr(0, end);
    m_begin += end;
    return true;
}

// Appends another block to the bytes that are left. Returns false at the end of the file.
bool LineBlocks::fill() {
    makeRoom();
    const std::size_t count = platform::readStream(m_stream, m_buffer.get() + m_end, m_capacity - m_end, m_failed);
    m_end += count;
    return count != 0;
}

void LineBlocks::makeRoom() {
    const std::size_t kept = m_end - m_begin;
    if (kept == m_capacity) {
        const std::size_t capacity = std::max(kBlock, 2 * m_capacity);
        std::unique_ptr<char[]> larger(new char[capacity]);
        if (kept != 0) std::memcpy(larger.get(), m_buffer.get() + m_begin, kept);
        m_buffer = std::move(larger);
        m_capacity = capacity;
    } else if (kept != 0) {
        std::memmove(m_buffer.get(), m_buffer.get() + m_begin, kept);
    }
    m_begin = 0;
    m_end = kept;
}

template <typename CharType>
PropertyLineReader<CharType>::PropertyLineReader(std::FILE* stream, bool skipsUtf8Mark)
    : m_blocks(stream), m_lineEnd(m_blocks.skip(kUtf16Mark) ? kUtf16LineEnd<CharType> : LineEnd::kByte) {
    if (skipsUtf8Mark && m_lineEnd == LineEnd::kByte) m_blocks.skip(kUtf8Mark);
}

template <typename CharType>
bool PropertyLineReader<CharType>::next(basic_text_view<CharType>& line) {
    std::string_view bytes;
    if (!m_blocks.next(m_lineEnd, bytes)) return false;
    if (m_lineEnd != LineEnd::kByte) {
        decodeUtf16(bytes);
        line = m_line;
        return true;
    }
    if (bytes.ends_with('\n')) bytes.remove_suffix(1);
    if constexpr (std::is_same_v<CharType, char>) {
        line = bytes;
    } else {
        m_fileText.widen(bytes, m_line);
        line = m_line;
    }
    return true;
}

// Decodes the line and removes its end, here with its carriage return. A single byte at the end of the file is no unit.
template <typename CharType>
void PropertyLineReader<CharType>::decodeUtf16(std::string_view bytes) {
    m_line.resize(bytes.size() / 2);
    for (std::size_t i = 0; i < m_line.size(); ++i) {
        const unsigned low = static_cast<unsigned char>(bytes[2 * i]);
        const unsigned high = static_cast<unsigned char>(bytes[2 * i + 1]);
        m_line[i] = static_cast<CharType>(low | high << 8);
    }
    if (m_line.empty() || m_line.back() != CharType{'\n'}) return;
    m_line.pop_back();
    if (!m_line.empty() && m_line.back() == CharType{'\r'}) m_line.pop_back();
}

template class PropertyLineReader<char>;
template class PropertyLineReader<unsigned short>;

}  // namespace KestSupport::internal
