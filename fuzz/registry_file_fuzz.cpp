// Registry files of any bytes. The last value must be found whatever bytes come before it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/common/registry_file.h"

using KestSupport::platform::RegistryFile;

namespace {

const std::string kSignature = "Windows Registry Editor Version 5.00\n";
const std::string kLast = "\n\n[HKEY_LOCAL_MACHINE\\fuzz\\key]\n\"last\"=dword:7\n";

bool findsLast(const std::string& text) {
    const RegistryFile file(kSignature + text + kLast);
    const auto* const last = file.find("FUZZ\\KEY", "LAST");
    return last != nullptr && last->type == 4 && last->data == std::string("\7\0\0\0", 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    RegistryFile(bytes).find(bytes, bytes);
    // A quote that is open at the end would take the last value for a part of its text.
    if (!findsLast(bytes) && !findsLast(bytes + "\n\"")) std::abort();
    return 0;
}
