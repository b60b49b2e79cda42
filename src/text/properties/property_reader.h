// Reads a property file line by line. The first two bytes determine its encoding.
//
//   LineBlocks          the bytes of each line with its end, read in large blocks
//   PropertyLineReader  the text of each line without its end, in the wanted character type
//
// A line is a view that is valid until the next call. The buffer grows to the longest line.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "support/strings.h"
#include "text/properties/file_text.h"

namespace KestSupport::internal {

/// The end of a line in a file.
enum class LineEnd {
    kByte,              ///< the byte 0x0A
    kLowByteOfUnit,     ///< any unit of two bytes whose first is 0x0A
    kLittleEndianUnit,  ///< the unit 0x000A, low byte first
};

class LineBlocks {
  public:
    /// Reads from the current position of the stream, which outlives the object.
    explicit LineBlocks(std::FILE* stream) : m_stream(stream) {}

    /// Skips the bytes if the rest of the file begins with them. Returns whether it did.
    bool skip(std::string_view bytes);
    /// Sets `line` to the next line with its end; the last line may have none. Returns false after the last line.
    /// `lineEnd` is the same in all calls.
    bool next(LineEnd lineEnd, std::string_view& line);
    /// Whether the reading ended because the medium failed, instead of at the end of the file.
    bool failed() const { return m_failed; }

  private:
    std::string_view rest() const { return {m_buffer.get() + m_begin, m_end - m_begin}; }
    bool fill();
    void makeRoom();

    std::FILE* const m_stream;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;  // of the bytes that were read and not returned yet
    std::size_t m_end = 0;    // of these bytes
    bool m_failed = false;
};

/// CharType is char or unsigned short. Narrow text has the bytes of an 8-bit file, and the low bytes of UTF-16 units.
/// Wide text has the bytes of an 8-bit file as converted by the global locale.
template <typename CharType>
class PropertyLineReader {
  public:
    PropertyLineReader(std::FILE* stream, bool skipsUtf8Mark);

    bool next(basic_text_view<CharType>& line);
    bool failed() const { return m_blocks.failed(); }

  private:
    void decodeUtf16(std::string_view bytes);

    LineBlocks m_blocks;
    const LineEnd m_lineEnd;
    const FileText m_fileText;
    basic_text<CharType> m_line;  // the current line, if it was converted
};

extern template class PropertyLineReader<char>;
extern template class PropertyLineReader<unsigned short>;

}  // namespace KestSupport::internal
