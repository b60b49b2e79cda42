#include "platform/output_capture.h"

#include <algorithm>

namespace KestSupport::platform {

// A program may make the file shorter concurrently.
std::string OutputCapture::text(std::size_t most) const {
    std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(size(), most)), '\0');
    std::size_t done = 0;
    for (std::size_t count = 1; count != 0 && done < text.size(); done += count)
        count = read(done, text.data() + done, text.size() - done);
    text.resize(done);
    return text;
}

}  // namespace KestSupport::platform
