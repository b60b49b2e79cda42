// Writes a property file: lines of name, "=" and value, in large blocks.
#pragma once

#include <cstddef>
#include <string>

#include "platform/file_stream.h"
#include "support/strings.h"
#include "text/properties/file_text.h"

namespace KestSupport::internal {

/// The encoding of a file.
enum class FileEncoding {
    kBytes,  ///< 8-bit text; wide text is converted by the global locale
    kUtf16,  ///< UTF-16 little-endian with byte-order mark
};

/// The mode in which to open the file: only 8-bit text has its line feeds translated.
inline platform::StreamMode streamMode(FileEncoding encoding) {
    return encoding == FileEncoding::kBytes ? platform::StreamMode::writeText : platform::StreamMode::writeBinary;
}

/// CharType is char or unsigned short. Wide text for kBytes has an 8-bit form.
template <typename CharType>
class PropertyFileWriter {
  public:
    using View = basic_text_view<CharType>;

    PropertyFileWriter(platform::Stream stream, FileEncoding encoding);

    void writeLine(View name, View value);
    /// Writes the last block and closes the file. Returns false if anything was lost.
    bool finish();

  private:
    void append(View text);
    void appendAscii(char c);
    void flush();

    platform::Stream m_stream;
    const FileEncoding m_encoding;
    const FileText m_fileText;
    std::string m_block;
    bool m_lost = false;
};

extern template class PropertyFileWriter<char>;
extern template class PropertyFileWriter<unsigned short>;

}  // namespace KestSupport::internal
