// Catalogues of any bytes: the general one, a line of three dashes, the more specific one. Each key must have its last
// message in the catalogues.
#include <support/exceptions.h>
#include <support/message_sets.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace {

using namespace KestSupport;

// The folder of the catalogues, removed at the end.
struct Folder {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("kest_message_sets_fuzz_" + std::to_string(std::random_device{}()));
    Folder() { std::filesystem::create_directory(path); }
    ~Folder() { std::filesystem::remove_all(path); }

    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string file = (path / name).string();
        std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return file;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string border = "---\n";
    const std::size_t end = text.find(border);
    const std::string general = folder.write("m.pro", text.substr(0, end));
    const std::string specific =
        folder.write("m_C.pro", end == std::string::npos ? "" : text.substr(end + border.size()));

    const KestMessageSet messages((folder.path / "m").string(), std::locale::classic());
    KestProperties<wstring16> expected(false);
    expected.loadProperties(general);
    expected.loadProperties(specific);
    for (const auto& [key, values] : expected.getProperties()) {
        if (messages.getString(key) != values.front()) std::abort();
    }
    const wstring16 missing{'\n'};  // which no line holds
    try {
        messages.getString(missing);
        std::abort();
    } catch (const KestMissingMessageException&) {
    }
    return 0;
}
