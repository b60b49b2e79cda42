// The bytes that processes exchange about a service. docs/formats/service_manager.md describes them.
//
//   encodeRecord, decodeRecord      the status record, which a service stores in a file
//   encodeRun, decodeRun            when the last run began and how it ended, in another file
//   encodeRequest, decodeRequest    a control, sent to a service
//   encodeReply, decodeReply        its answer
//   encodeStart, decodeStart        the name and the arguments of a started service
//
// A decoder accepts any bytes and returns nothing for bytes that are not one whole, valid encoding.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service_manager.h"

namespace KestSupport::platform {

inline constexpr std::size_t kServiceRecordSize = 40;  ///< bytes of a status record
inline constexpr std::size_t kServiceRunSize = 36;     ///< bytes of a record of the last run
inline constexpr std::size_t kServiceReplySize = 40;
inline constexpr std::size_t kServiceRequestSize = 8;
inline constexpr std::size_t kServiceStartLimit = std::size_t{64} * 1024;  ///< bytes of the start message

struct ServiceReply {
    ErrorCode error = 0;
    ServiceStatus status;
};

std::string encodeRecord(const ServiceStatus& status);
/// Returns nothing also for a record that was read while it was written.
std::optional<ServiceStatus> decodeRecord(std::string_view bytes);

std::string encodeRun(const ServiceRun& run);
/// Returns nothing also for a record that was read while it was written.
std::optional<ServiceRun> decodeRun(std::string_view bytes);

std::string encodeRequest(std::uint32_t control);
std::optional<std::uint32_t> decodeRequest(std::string_view bytes);

std::string encodeReply(const ServiceReply& reply);
std::optional<ServiceReply> decodeReply(std::string_view bytes);

/// The service's name and the arguments that follow it.
std::string encodeStart(const std::vector<std::string>& texts);
std::optional<std::vector<std::string>> decodeStart(std::string_view bytes);

}  // namespace KestSupport::platform
