// Service configurations of any bytes. A configuration that is read must be the same after it is written and read
// again; so must a service whose fields are these bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/services/configuration.h"

using namespace KestSupport::platform;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void requireRoundTrip(const StoredService& service) {
    const std::string text = formatConfiguration(service);
    const auto again = parseConfiguration(text);
    require(again.has_value() && formatConfiguration(*again) == text);
    require(again->name == service.name && again->commandLine == service.commandLine);
    require(again->dependencies == service.dependencies && again->description == service.description);
    require(again->displayName == service.displayName && again->deleted == service.deleted &&
            again->restart == service.restart);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto service = parseConfiguration(bytes)) requireRoundTrip(*service);

    StoredService made;
    made.name = made.displayName = made.commandLine = made.description = bytes;
    made.dependencies = std::string(bytes) + '\0';
    if (isServiceName(made.name) && isValidService(made)) requireRoundTrip(made);
    return 0;
}
