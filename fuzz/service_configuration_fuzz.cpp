// Service configurations of any bytes. What is taken is written again, and read again as the same; the same bytes as
// the fields of a service come back whole.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/linux_service_configuration.h"

using namespace KestSupport::platform;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void comesBack(const StoredService& service) {
    const std::string text = formatConfiguration(service);
    const auto again = parseConfiguration(text);
    require(again.has_value() && formatConfiguration(*again) == text);
    require(again->name == service.name && again->commandLine == service.commandLine);
    require(again->dependencies == service.dependencies && again->description == service.description);
    require(again->displayName == service.displayName && again->deleted == service.deleted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto service = parseConfiguration(bytes)) comesBack(*service);

    StoredService made;
    made.name = made.displayName = made.commandLine = made.description = bytes;
    made.dependencies = std::string(bytes) + '\0';
    if (isServiceName(made.name) && isValidService(made)) comesBack(made);
    return 0;
}
