// Reading a property file: its encoding is told by the first two bytes, its lines come one by one, without their ends.
//
//   LineBlocks          lines as they stand in the file, read in large blocks
//   PropertyLineReader  the same lines as text of the wanted character type
//
// A line is handed out as a view that is good until the next call. The buffer grows to the longest line.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "support/strings.h"
#include "text/properties/file_text.h"

namespace KestSupport::internal {

/// What ends a line of a file.
enum class LineEnd {
    kByte,              ///< the byte 0x0A
    kLowByteOfUnit,     ///< any unit of two bytes whose first is 0x0A
    kLittleEndianUnit,  ///< the unit 0x000A, low byte first
};

class LineBlocks {
  public:
    /// Reads from the stream's position on; the stream outlives the object.
    explicit LineBlocks(std::FILE* stream) : m_stream(stream) {}

    /// Passes over the bytes if the rest of the file begins with them, and tells whether it did.
    bool skip(std::string_view bytes);
    /// The next line with its end, which the last one may lack; false when there is none. `lineEnd` is the same each
    /// time.
    bool next(LineEnd lineEnd, std::string_view& line);
    /// Whether the medium, rather than the file's end, ended the reading.
    bool failed() const { return m_failed; }

  private:
    std::string_view rest() const { return {m_buffer.get() + m_begin, m_end - m_begin}; }
    bool fill();
    void makeRoom();

    std::FILE* const m_stream;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;  // what has been read and not handed out: from here
    std::size_t m_end = 0;    // to here
    bool m_failed = false;
};

/// CharType is char or unsigned short. Narrow text keeps the bytes of 8-bit files and the low byte of UTF-16 units;
/// wide text has 8-bit files converted by the global locale.
template <typename CharType>
class PropertyLineReader {
  public:
    explicit PropertyLineReader(std::FILE* stream);

    bool next(basic_text_view<CharType>& line);
    bool failed() const { return m_blocks.failed(); }

  private:
    void decodeUtf16(std::string_view bytes);

    LineBlocks m_blocks;
    const LineEnd m_lineEnd;
    const FileText m_fileText;
    basic_text<CharType> m_line;  // the current line, where it is not the file's own bytes
};

extern template class PropertyLineReader<char>;
extern template class PropertyLineReader<unsigned short>;

}  // namespace KestSupport::internal
