// One pass over the text. Keys and values are found by folded names: names that differ only in case fold to the same
// text. A map with ordered keys serves the reading, because "[-KEY]" removes a range of keys; hash tables serve find.
#include "platform/emulated/registry_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cwctype>
#include <map>
#include <optional>
#include <utility>

#include "platform/common/ascii_words.h"
#include "platform/common/wide_units.h"

namespace KestSupport::platform {
namespace {

constexpr std::string_view kSignature = "Windows Registry Editor Version 5.00";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kRoots[] = {"hkey_local_machine", "hklm"};
constexpr std::uint32_t kBinary = 3;

// Little-endian units; an odd byte at the end is dropped.
WideUnits unitsOf(std::string_view bytes) {
    WideUnits units(bytes.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto low = static_cast<unsigned char>(bytes[2 * i]);
        const auto high = static_cast<unsigned char>(bytes[2 * i + 1]);
        units[i] = static_cast<unsigned short>(low | high << 8);
    }
    return units;
}

// The file's text in UTF-8, without its byte-order mark.
std::string textOf(std::string_view bytes) {
    if (bytes.starts_with("\xFF\xFE")) return fromUnits(kCodePageUtf8, unitsOf(bytes.substr(2)));
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    return std::string(bytes);
}

// Has no branch, so the compiler folds many bytes at a time.
char* foldAscii(std::string_view name, char* folded) noexcept {
    return std::transform(name.begin(), name.end(), folded, [](char c) {
        const bool isUpper = static_cast<unsigned char>(c - 'A') <= 'Z' - 'A';
        return static_cast<char>(c | (isUpper ? 0x20 : 0));
    });
}

std::string folded(std::string_view name) {
    if (isAscii(name)) {
        std::string text(name.size(), '\0');
        foldAscii(name, text.data());
        return text;
    }
    WideUnits units = toUnits(kCodePageUtf8, name);
    for (unsigned short& unit : units)
        unit = static_cast<unsigned short>(std::towlower(unit));
    return fromUnits(kCodePageUtf8, units);
}

// A folded name. A short one takes no memory from the heap.
class Folded {
  public:
    explicit Folded(std::string_view name) {
        if (name.size() > m_short.size() || !isAscii(name)) {
            m_long = folded(name);
            m_text = m_long;
        } else {
            const char* const end = foldAscii(name, m_short.data());
            m_text = {m_short.data(), static_cast<std::size_t>(end - m_short.data())};
        }
    }
    Folded(const Folded&) = delete;
    Folded& operator=(const Folded&) = delete;
    std::string_view text() const noexcept { return m_text; }

  private:
    std::array<char, 256> m_short;
    std::string m_long;
    std::string_view m_text;
};

// Each function reads from the current position and moves it past the part that is valid.
class FileReader {
  public:
    explicit FileReader(std::string_view text) noexcept : m_rest(text) {}

    void readAll() {
        skipBlanks();
        if (!take(kSignature)) return;
        skipLine();
        while (!m_rest.empty()) {
            skipBlanks();
            if (take("[")) {
                readKey();
            } else if (m_values != nullptr && take("@")) {
                readValue({});
            } else if (m_values != nullptr && take("\"")) {
                const std::optional<std::string> name = quotedText();
                if (name) readValue(*name);
            }
            skipLine();
        }
    }

    using Values = std::map<std::string, RegistryValue>;
    std::map<std::string, Values> keys;  // nested: a long name of a key with many values is stored once

  private:
    void skipBlanks() noexcept { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size())); }
    void skipLine() noexcept { m_rest.remove_prefix(std::min(m_rest.find('\n'), m_rest.size() - 1) + 1); }

    bool take(std::string_view expected) noexcept {
        if (!m_rest.starts_with(expected)) return false;
        m_rest.remove_prefix(expected.size());
        return true;
    }

    void readKey() {
        m_values = nullptr;
        const bool removed = take("-");
        const std::string_view line = m_rest.substr(0, m_rest.find('\n'));
        const std::size_t end = line.rfind(']');
        if (end == std::string_view::npos) return;
        const std::string path = folded(line.substr(0, end));
        for (const std::string_view root : kRoots) {
            if (!path.starts_with(root)) continue;
            const std::string_view below = std::string_view(path).substr(root.size());
            if (!below.empty() && below.front() != '\\') continue;
            const std::string key(below.substr(below.empty() ? 0 : 1));
            removed ? removeKey(key) : static_cast<void>(m_values = &keys[key]);
        }
    }

    // Removes the key and all keys below it. '\\' + 1 follows the separator, so it ends their range.
    void removeKey(const std::string& key) {
        keys.erase(key);
        keys.erase(keys.lower_bound(key + '\\'), keys.lower_bound(key + static_cast<char>('\\' + 1)));
        if (key.empty()) keys.clear();
    }

    // Reads the text after an opening quote, with the line ends in it. Returns nothing when no quote closes it.
    std::optional<std::string> quotedText() {
        std::string text;
        for (std::size_t i = 0; i < m_rest.size(); ++i) {
            if (m_rest[i] == '"') {
                m_rest.remove_prefix(i + 1);
                return text;
            }
            if (const std::string_view two = m_rest.substr(i, 2); two == "\\\\" || two == "\\\"") ++i;
            text += m_rest[i];
        }
        // No quote follows, so no other text can be closed either.
        m_rest = {};
        return std::nullopt;
    }

    void readValue(std::string_view name) {
        skipBlanks();
        if (!take("=")) return;
        skipBlanks();
        const std::string key = folded(name);
        if (take("-")) {
            m_values->erase(key);
        } else if (std::optional<RegistryValue> value = readData()) {
            (*m_values)[key] = *std::move(value);
        }
    }

    std::optional<RegistryValue> readData() {
        if (take("\"")) {
            std::optional<std::string> text = quotedText();
            if (!text) return std::nullopt;
            return RegistryValue{kRegistryString, *std::move(text)};
        }
        if (take("dword:")) return readNumber();
        if (!take("hex")) return std::nullopt;
        std::uint32_t type = kBinary;
        if (take("(") && (!takeHexadecimal(type) || !take(")"))) return std::nullopt;
        if (!take(":")) return std::nullopt;
        std::string bytes = readBytes();
        if (type == kRegistryString) bytes = fromUnits(kCodePageUtf8, unitsOf(bytes));
        return RegistryValue{type, std::move(bytes)};
    }

    bool takeHexadecimal(std::uint32_t& number) noexcept {
        const auto [end, error] = std::from_chars(m_rest.data(), m_rest.data() + m_rest.size(), number, 16);
        m_rest.remove_prefix(static_cast<std::size_t>(end - m_rest.data()));
        return error == std::errc();
    }

    std::optional<RegistryValue> readNumber() {
        std::uint32_t number = 0;
        if (!takeHexadecimal(number)) return std::nullopt;
        RegistryValue value{kRegistryDword, {}};
        for (int shift = 0; shift < 32; shift += 8)
            value.data += static_cast<char>(number >> shift & 0xFF);
        return value;
    }

    // Reads bytes of one or two digits between commas. A backslash at the end of a line continues them on the next one.
    std::string readBytes() {
        std::string bytes;
        for (;;) {
            skipBlanks();
            if (take("\\")) {
                if (m_rest.find_first_not_of(" \t\r") != m_rest.find('\n')) return bytes;
                skipLine();
                continue;
            }
            std::uint32_t byte = 0;
            const std::string_view before = m_rest;
            if (!takeHexadecimal(byte) || byte > 0xFF) {
                m_rest = before;
                return bytes;
            }
            bytes += static_cast<char>(byte);
            skipBlanks();
            if (!take(",")) return bytes;
        }
    }

    std::string_view m_rest;
    Values* m_values = nullptr;  // of the current key; null below another root
};

}  // namespace

RegistryFile::RegistryFile(std::string_view bytes) {
    const std::string text = textOf(bytes);
    FileReader reader(text);
    reader.readAll();
    m_keys.reserve(reader.keys.size());
    while (!reader.keys.empty()) {
        auto key = reader.keys.extract(reader.keys.begin());
        if (key.mapped().empty()) continue;
        ByName<RegistryValue>& values = m_keys[std::move(key.key())];
        values.reserve(key.mapped().size());
        while (!key.mapped().empty()) {
            auto value = key.mapped().extract(key.mapped().begin());
            values.emplace(std::move(value.key()), std::move(value.mapped()));
        }
    }
}

const RegistryValue* RegistryFile::find(std::string_view subkey, std::string_view name) const {
    const Folded key(subkey);
    const auto values = m_keys.find(key.text());
    if (values == m_keys.end()) return nullptr;
    const Folded folded(name);
    const auto found = values->second.find(folded.text());
    return found == values->second.end() ? nullptr : &found->second;
}

}  // namespace KestSupport::platform
