#include "platform/record_file.h"

namespace KestSupport::platform {

std::size_t writeAfter(std::FILE* stream, std::string_view text) noexcept {
    if (mayHaveBufferedText(stream) && std::fflush(stream) != 0) std::clearerr(stream);
    if (const std::optional<std::size_t> taken = writeToFileOf(stream, text)) return *taken;
    const std::size_t taken = std::fwrite(text.data(), 1, text.size(), stream);
    return std::fflush(stream) == 0 ? taken : 0;
}

}  // namespace KestSupport::platform
