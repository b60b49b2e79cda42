// The status record, the record of the last run and the messages of services, of any bytes: bytes that are decoded must
// be the encoding of the result.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/services/messages.h"

using namespace KestSupport::platform;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto status = decodeRecord(bytes)) require(encodeRecord(*status) == bytes);
    if (const auto run = decodeRun(bytes)) require(encodeRun(*run) == bytes);
    if (const auto control = decodeRequest(bytes)) require(encodeRequest(*control) == bytes);
    if (const auto reply = decodeReply(bytes)) require(encodeReply(*reply) == bytes);
    if (const auto texts = decodeStart(bytes)) require(encodeStart(*texts) == bytes);
    return 0;
}
