#include "text/properties/property_writer.h"

#include <type_traits>
#include <utility>

namespace KestSupport::internal {
namespace {

constexpr std::size_t kFlushSize = std::size_t{64} * 1024;

}  // namespace

template <typename CharType>
PropertyFileWriter<CharType>::PropertyFileWriter(platform::Stream stream, FileEncoding encoding)
    : m_stream(std::move(stream)), m_encoding(encoding) {
    if (encoding == FileEncoding::kUtf16) m_block = kUtf16Mark;
}

template <typename CharType>
void PropertyFileWriter<CharType>::writeLine(View name, View value) {
    append(name);
    appendAscii('=');
    append(value);
    appendAscii('\n');
    if (m_block.size() >= kFlushSize) flush();
}

template <typename CharType>
bool PropertyFileWriter<CharType>::finish() {
    flush();
    const bool closed = platform::closeStream(std::move(m_stream));
    return closed && !m_lost;
}

template <typename CharType>
void PropertyFileWriter<CharType>::append(View text) {
    if constexpr (std::is_same_v<CharType, char>) {
        m_block.append(text);
    } else if (m_encoding == FileEncoding::kBytes) {
        m_fileText.narrow(text, m_block);
    } else {
        for (const CharType unit : text) {
            m_block.push_back(static_cast<char>(unit & 0xFF));
            m_block.push_back(static_cast<char>(unit >> 8));
        }
    }
}

template <typename CharType>
void PropertyFileWriter<CharType>::appendAscii(char c) {
    m_block.push_back(c);
    if (m_encoding == FileEncoding::kUtf16) m_block.push_back('\0');
}

template <typename CharType>
void PropertyFileWriter<CharType>::flush() {
    // After a failure, further blocks would leave a gap in the file.
    if (!m_lost) m_lost = !platform::writeStream(m_stream.get(), m_block.data(), m_block.size());
    m_block.clear();
}

template class PropertyFileWriter<char>;
template class PropertyFileWriter<unsigned short>;

}  // namespace KestSupport::internal
