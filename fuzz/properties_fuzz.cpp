// Property files of any bytes: read with every string type, checked, saved and read again. The first byte is the
// separator.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "support/properties.h"

using namespace KestSupport;

namespace {

// The input as a file, removed at the end.
struct InputFile {
    const std::string name =
        (std::filesystem::temp_directory_path() / ("kest_properties_fuzz_" + std::to_string(std::random_device{}())))
            .string();
    ~InputFile() { std::filesystem::remove(name); }
};

const std::string& fileName() {
    static const InputFile file;
    return file.name;
}

template <typename StringType>
void loadAndSave(char separator) {
    KestProperties<StringType> properties;
    properties.loadProperties(fileName(), static_cast<typename StringType::value_type>(separator));
    const auto loaded = properties.getProperties();
    for (const auto& [name, values] : loaded) {
        if (name.empty() || values.empty() || properties.getPropertyValues(name) != values) std::abort();
    }
    properties.saveProperties(fileName() + ".saved");
    KestProperties<StringType> again;
    again.loadProperties(fileName() + ".saved");
    if (loaded.empty() && !again.getProperties().empty()) std::abort();
    std::filesystem::remove(fileName() + ".saved");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::ofstream(fileName(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
    const char separator = static_cast<char>(data[0]);
    loadAndSave<std::string>(separator);
    loadAndSave<string_ci>(separator);
    loadAndSave<wstring16>(separator);
    loadAndSave<wstring16_ci>(separator);
    return 0;
}
