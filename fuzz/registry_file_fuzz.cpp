// Registry files of any bytes. The last value of the file must be found after any content before it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/emulated/registry_file.h"

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
    // After a quote that is still open, the last value is a part of the quoted text.
    if (!findsLast(bytes) && !findsLast(bytes + "\n\"")) std::abort();
    return 0;
}
