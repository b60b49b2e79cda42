// Which code page and which locale id the environment means.

#include <tuple>

#include "kit/failing_calls.h"
#include "platform/conversions.h"
#include "support/exceptions.h"

namespace {

TEST(AnsiCodePage, IsCharacterSetOfEnvironment) {
    const std::tuple<std::vector<std::string>, std::string, std::u16string> rows[] = {
        {{"", "C", "POSIX", "xx_XX.no-such-set"}, "\x80\xE9", u"\u20AC\u00E9"},
        {{"C.UTF-8", "de_DE.utf8@euro"}, "\xE2\x82\xAC", u"\u20AC"},
        {{"de_DE.ISO-8859-1"}, "\xE9\xA4", u"\u00E9\u00A4"},
        {{"de_DE.ISO-8859-15@euro"}, "\xE9\xA4", u"\u00E9\u20AC"},
        {{"ru_RU.KOI8-R"}, "\xC1\xC2", u"\u0430\u0431"},
        {{"ja_JP.eucJP"}, "a\xC6\xFC\xCB\xDC", u"a\u65E5\u672C"},
    };
    for (const auto& [locales, bytes, units] : rows) {
        for (const std::string& locale : locales) {
            EXPECT_EQ(widened(pageOf(locale), bytes), unitsOf(units)) << locale;
            EXPECT_EQ(narrowed(pageOf(locale), unitsOf(units)), bytes) << locale;
        }
    }
    const kit::FailingCalls failing("openCharacterSet");
    EXPECT_EQ(pageOf("ko_KR.eucKR"), pageOf("C"));
}

TEST(AnsiCodePage, FollowsOrderOfVariables) {
    kit::EnvironmentGuard environment;
    environment.setLocale("C");
    for (const auto& [name, value, isUtf8] :
         {std::tuple("LC_CTYPE", "C.UTF-8", true), {"LC_ALL", "C", false}, {"LC_ALL", "", true}}) {
        environment.set(name, value);
        EXPECT_EQ(ansiCodePage() == kCodePageUtf8, isUtf8) << name << "=" << value;
    }
}

TEST(AnsiCodePage, MayHaveTwoBytesForACharacter) {
    const CodePage japanese = pageOf("ja_JP.eucJP");
    EXPECT_EQ(narrowed(japanese, {'a', 0xD83D, 0xDE00, 0x65E5, 0xDE00, 'z', 0xD83D}), "a??\xC6\xFC?z?");
    EXPECT_EQ(widened(japanese, "a\xFF\xC6\xFCz\xC6"), (Units{'a', '?', 0x65E5, 'z', '?'}));
}

TEST(AnsiCodePage, IsThatOfNarrowTexts) {
    kit::EnvironmentGuard environment;
    environment.setLocale("C.UTF-8");
    const KestSupport::KestException exception(std::string("\xC3\xA9"), 0);
    EXPECT_EQ(exception.getUText(), KestSupport::wstring16{0xE9});
}

TEST(AnsiCodePage, IsSharedByThreads) {
    const CodePage japanese = pageOf("ja_JP.eucJP");
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([=] {
            const std::string text = "\xC6\xFC\xCB\xDC";
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(narrowed(japanese, widened(japanese, text)), text);
        });
    }
}

TEST(UserLocaleId, ExistsOnlyForLanguagesWithoutCodePage) {
    kit::EnvironmentGuard environment;
    for (const auto& [locale, id] : {std::pair("hy_AM.UTF-8", 0x042Bu), std::pair("dz_BT", 0x0851u),
                                     std::pair("kok_IN@latin", 0x0457u), std::pair("de_DE.UTF-8", 0u)}) {
        environment.setLocale(locale);
        EXPECT_EQ(userLocaleId(), id) << locale;
    }
}

}  // namespace
