// The text format of the registry.
#include "platform/emulated/registry_file.h"

#include <sys/resource.h>

namespace {

using namespace KestSupport::platform;

const std::string kHead = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\k]\r\n";

// "TYPE:DATA" of the value "v" of the key "k"; "none" when there is none.
std::string valueIn(const std::string& file) {
    const RegistryFile registry(file);
    const RegistryFile::Value* const value = registry.find("K", "V");
    return value == nullptr ? "none" : std::to_string(value->type) + ":" + std::string(value->data);
}

std::string utf16(const std::string& ascii) {
    std::string units = "\xFF\xFE";
    for (const char c : ascii)
        units.append(1, c).append(1, '\0');
    return units;
}

TEST(RegistryFile, ReadsEachForm) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> rows[] = {
        {"\"v\"=\"text\"\r\n", "1:text"},
        {" \"v\" = \"C:\\\\dir \\\"x\\\" \\n\" ; remark\r\n", "1:C:\\dir \"x\" \\n"},
        {"\"v\"=\"two\r\nlines\"\r\n", "1:two\r\nlines"},
        {"\"v\"=dword:0000002A\r\n", "4:\x2a\0\0\0"s},
        {"\"v\"=hex:01,ff, 0\r\n", "3:\x01\xff\0"s},
        {"\"v\"=hex(b):01,\\\r\n  02,\\  \r\n\t03\r\n", "11:\x01\x02\x03"},
        {"\"v\"=hex(1):e4,00,00,00\r\n", "1:\xC3\xA4\0"s},
        {"\"v\"=\"1\"\n\"V\"=\"2\"\n", "1:2"},
        {"\"v\"=\"1\"\n\"v\"=-\n", "none"},
        {"; \"v\"=\"1\"\n\"x\"=\"\"\n\"v\"=\"2\"", "1:2"},
        {"\"v\"=\"1\"\n[-HKEY_LOCAL_MACHINE\\K]\n", "none"},
        {"\"v\"=\"1\"\n[-HKEY_LOCAL_MACHINE\\K\\below]\n[-HKEY_LOCAL_MACHINE\\kk]", "1:1"},
        {"\"v\"=\"1\"\n[-hklm]\n", "none"},
        {"[HKEY_CURRENT_USER\\k]\n\"v\"=\"1\"\n", "none"},
        {"[HKEY_LOCAL_MACHINE_X\\k]\n\"v\"=\"1\"\n", "none"},
        {"[HKEY_LOCAL_MACHINE\\k\n\"v\"=\"1\"\n", "none"},
    };
    for (const auto& [text, value] : rows)
        EXPECT_EQ(valueIn(kHead + text), value) << text;
    EXPECT_EQ(valueIn(utf16(kHead + "\"v\"=\"1\"\r\n")), "1:1");
    EXPECT_EQ(valueIn("\xEF\xBB\xBF" + kHead + "\"v\"=\"1\"\r\n"), "1:1");
    const RegistryFile accented(kHead + "\"\xC3\x84\xC3\xB6\"=\"1\"\n@=\"2\"\n");
    EXPECT_NE(accented.find("k", "\xC3\x84\xC3\xB6"), nullptr);
    EXPECT_NE(accented.find("k", ""), nullptr);
    const RegistryFile signs(kHead + "\"[@Names of \xC3\x84 ~{`\"=\"1\"\n\"[@Names ~{`\"=\"2\"\n");
    EXPECT_NE(signs.find("k", "[@nAMES OF \xC3\x84 ~{`"), nullptr);
    for (const auto& [name, exists] : {std::pair("[@nAMES ~{`", true), {"{@names ~{`", false}, {"[@names ~[`", false}})
        EXPECT_EQ(signs.find("k", name) != nullptr, exists) << name;
}

TEST(RegistryFile, SkipsInvalidLines) {
    for (const std::string broken : {"v=\"1\"", "\"v\"", "\"v\"=text", "\"v\"=dword:", "\"v\"=dword:123456789",
                                     "\"v\"=hex", "\"v\"=hex(:01", "\"v\"=hex(x):01", "\"v\"\"1\"", "@", "\\"}) {
        EXPECT_EQ(valueIn(kHead + broken), "none") << broken;
        EXPECT_EQ(valueIn(kHead + broken + "\n\"v\"=\"2\"\n"), "1:2") << broken;
    }
    for (const std::string unclosed : {"\"v", "\"v\"=\"1", "[\n\"v\"=\"1\""})
        EXPECT_EQ(valueIn(kHead + unclosed + "\n"), "none") << unclosed;
    EXPECT_EQ(valueIn(kHead + "\"v\"=hex:01,100,02,zz\r\n"), "3:\x01");
    EXPECT_EQ(valueIn("REGEDIT4\n" + kHead + "\"v\"=\"1\""), "none");
    EXPECT_EQ(valueIn(""), "none");
}

// 400 MB if each value had a copy of its key's name.
TEST(RegistryFile, StoresALongKeyOnce) {
    const auto peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const std::string key(200'000, 'k');
    std::string text = kHead + "[HKLM\\" + key + "]\n";
    for (int i = 0; i < 2000; ++i)
        text += '"' + std::to_string(i) + "\"=\"value\"\n";
    const long before = peak();
    const RegistryFile registry(text);
    EXPECT_LT(peak() - before, 64 * 1024) << "KiB";
    EXPECT_EQ(registry.find(key, "1999")->data, "value");
}

}  // namespace
