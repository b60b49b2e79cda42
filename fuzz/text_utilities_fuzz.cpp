// Text of any bytes as hexadecimal digits, as tokens, as a list, as a command line and in the current locale. The first
// line has the delimiters.
#include <support/text_utilities.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace KestSupport;

void require(bool condition) {
    if (!condition) std::abort();
}

// Uses an allocation of exactly that size, so that a sanitizer finds each access beyond it.
std::vector<char> exact(const std::string& text) {
    return {text.c_str(), text.c_str() + text.size() + 1};
}

std::string without(std::string text, const char* characters) {
    std::erase_if(text, [&](char c) { return c != '\0' && std::strchr(characters, c) != nullptr; });
    return text;
}

std::string joined(const std::vector<std::string>& tokens) {
    std::string all;
    for (const std::string& token : tokens) {
        require(!token.empty() && token.find('\0') == std::string::npos);
        all += token;
    }
    return all;
}

void checkHexadecimal(const std::string& text) {
    std::vector<char> bytes(text.size() / 2);
    require(KestHexToBytes(bytes.data(), text) == static_cast<int>(bytes.size()));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char alone = 0;
        KestHexToBytes(&alone, text.substr(2 * i, 2));
        require(alone == bytes[i]);
    }
    const std::string digits = KestBytesToHex(text.data(), static_cast<int>(text.size()));
    std::vector<char> again(text.size());
    require(KestHexToBytes(again.data(), digits) == static_cast<int>(text.size()));
    require(std::equal(again.begin(), again.end(), text.begin()));
    require(digits.find_first_not_of("0123456789ABCDEF") == std::string::npos);
}

void checkTokens(const std::string& text, const std::string& delimiters) {
    std::vector<char> ours = exact(text);
    std::vector<char> theirs = ours;
    std::vector<std::string> tokens, expected, fromString;
    KestTokenizer(ours.data(), delimiters, tokens);
    for (char* token = std::strtok(theirs.data(), delimiters.c_str()); token != nullptr;
         token = std::strtok(nullptr, delimiters.c_str())) {
        expected.emplace_back(token);
    }
    KestTokenizer(text, delimiters, fromString);
    require(tokens == expected && ours == theirs && fromString == expected);
}

void checkList(const std::string& text) {
    std::vector<char> list = exact(text + '\0');
    std::vector<std::string> items;
    KestTokenizer(list.data(), items);
    std::string again;
    for (const std::string& item : items)
        again += item + '\0';
    again += '\0';
    require(std::equal(again.begin(), again.end(), list.begin()));
    KestTokenizer(text, items);
    require(joined(items) == text.c_str());
}

void checkCommandLine(const std::string& text) {
    std::vector<std::string> tokens;
    KestParseCommandLine(text, tokens);
    require(without(joined(tokens), " ") == without(text.c_str(), " \""));
}

void checkFirstString(const std::string& text) {
    std::string rest;
    const std::string first = KestExtractFirstString(text, rest);
    const bool quoted = text.starts_with('"');
    require(first.find_first_of(quoted ? "\"" : " \t") == std::string::npos);
    if (quoted) {
        require(text == '"' + first + '"' + rest || (text == '"' + first && rest == first));
    } else {
        require(text == first + ' ' + rest || text == first + '\t' + rest || (text == first && rest.empty()));
    }
}

void checkConversion(const std::string& text) {
    std::vector<unsigned short> units(text.size() + 1);
    require(KestStringToWideChar(text, units.data(), static_cast<int>(units.size())) == units.data());
    require(KestStringToWideChar(text, units.data(), static_cast<int>(text.size())) == nullptr);
    const auto length = static_cast<std::size_t>(std::find(units.begin(), units.end(), 0) - units.begin());
    const std::string back = KestStringFromWideChar(units.data());
    require(back.size() == length && text.starts_with(back));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t end = text.find('\n');
    const std::string delimiters = end == std::string::npos ? " " : text.substr(0, end);
    if (end != std::string::npos) text.erase(0, end + 1);
    checkHexadecimal(text);
    checkTokens(text, delimiters);
    checkList(text);
    checkCommandLine(text);
    checkFirstString(text);
    for (const char* locale : {"C", "C.UTF-8"}) {
        std::setlocale(LC_ALL, locale);
        checkConversion(text);
    }
    // Units of any value.
    std::vector<unsigned short> units(text.size() / 2 + 1);
    std::memcpy(units.data(), text.data(), 2 * (units.size() - 1));
    require(KestStringFromWideChar(units.data()).size() < units.size());
    return 0;
}
