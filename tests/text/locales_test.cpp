#include "support/locales.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/temporary_folder.h"
#include "support/exceptions.h"
#include "support/strings.h"

namespace {

using namespace KestSupport;

const std::string systemLocale = "/usr/lib/locale/C.utf8";

// Lets the C runtime find a locale by the names given, whatever is installed here.
struct LocaleFolder : kit::TemporaryFolder {
    explicit LocaleFolder(const std::vector<std::string>& names) {
        for (const std::string& name : names)
            std::filesystem::create_directory_symlink(systemLocale, pathOf(name));
        environment.set("LOCPATH", path());
    }
    kit::EnvironmentGuard environment;
};

// Prints the lines and ends at once: in a folder of the user's the C runtime loses memory with each locale looked for.
[[noreturn]] void printAndEnd(const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    std::_Exit(0);
}

const kit::ChildRole printsCodes("prints codes", [](const std::vector<std::string>& names) -> int {
    std::vector<std::string> lines;
    for (const std::string& name : names) {
        const std::locale locale(name);
        lines.push_back(KestLocaleFactory::getLanguage(locale) + " " + KestLocaleFactory::getCountry(locale));
    }
    printAndEnd(lines);
});

TEST(Locales, CodesComeFromTheLocalesName) {
    ASSERT_TRUE(std::filesystem::is_directory(systemLocale));
    const std::vector<std::string> names = {"German_Germany.UTF-8",
                                            "Spanish_Mexico.UTF-8",
                                            "English_United States.UTF-8",
                                            "de_DE",
                                            "Elvish",
                                            "Chinese_People's Republic of China.UTF-8",
                                            "French_New_Caledonia.UTF-8"};
    const LocaleFolder folder(names);
    auto child = kit::ChildProcess::inRole("prints codes", names);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.output(), "de DE\nes ES\nen US\nde DE\nElvish Elvish\nzh CN\nfr New_Caledonia\n");
    EXPECT_EQ(KestLocaleFactory::getLanguage(std::locale::classic()), "C");
    EXPECT_EQ(KestLocaleFactory::getCountry(std::locale::classic()), "C");
    // A locale with a facet of its own has no name.
    EXPECT_EQ(KestLocaleFactory::getLanguage(KestLocaleFactory::getDefaultLocale(true)), "*");
}

const kit::ChildRole printsLanguages("prints languages", [](const std::vector<std::string>&) -> int {
    std::vector<std::string> lines;
    for (const int language : {0, 1, 2, 3, 4, 5, 6, 7, -1}) {
        try {
            lines.push_back(KestLocaleFactory::getLocale(static_cast<KestLocaleFactory::Language>(language)).name());
        } catch (const std::runtime_error& failure) {
            lines.push_back(failure.what());
        }
    }
    printAndEnd(lines);
});

TEST(Locales, LanguagesAreFoundByTheirNameOrTheSystemsOwn) {
    const LocaleFolder folder({"chinese", "de_DE.UTF-8", "es_MX.UTF-8", "English"});
    auto child = kit::ChildProcess::inRole("prints languages");
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.output(),
              "de_DE.UTF-8\nbad locale name\nes_MX.UTF-8\nbad locale name\nbad locale name\nchinese\nbad locale name\n"
              "English\nEnglish\n");
}

TEST(Locales, TheAnsiFacetFollowsTheEnvironment) {
    const wstring16 text{0xE9, 0x20AC};
    kit::EnvironmentGuard environment;
    for (const auto& [locale, bytes] : {std::pair("C", "\xE9\x80"), std::pair("C.UTF-8", "\xC3\xA9\xE2\x82\xAC"),
                                        std::pair("de_DE.ISO-8859-15", "\xE9\xA4"), std::pair("C", "\xE9\x80")}) {
        environment.setLocale(locale);
        EXPECT_EQ(KestStringUtilities::narrow(text, KestLocaleFactory::getDefaultLocale(true)), bytes) << locale;
    }
    EXPECT_THROW(KestStringUtilities::narrow(text, KestLocaleFactory::getDefaultLocale(false)), KestException);
}

// Made before main, perhaps before the library's own objects: the default locale has to be there.
const std::string textMadeEarly = KestException(std::string("early"), 1).getText();

const kit::ChildRole printsDefaultLocale("prints default locale", [](const std::vector<std::string>&) {
    const std::string text = KestStringUtilities::narrow({0xE9}, KestLocaleFactory::getDefaultLocale(true));
    std::printf("%s %s %s", KestLocaleFactory::getDefaultLocale(false).name().c_str(), text.c_str(),
                textMadeEarly.c_str());
    return 0;
});

TEST(Locales, TheDefaultLocaleIsTheUsersOrElseTheClassicOne) {
    kit::EnvironmentGuard environment;
    for (const auto& [locale, output] :
         {std::pair("C", "C \xE9 early"), std::pair("C.UTF-8", "C.UTF-8 \xC3\xA9 early"),
          std::pair("xx_XX.ISO-8859-1", "C \xE9 early"), std::pair("hi_IN.UTF-8", "C \xC3\xA9 early")}) {
        environment.setLocale(locale);
        auto child = kit::ChildProcess::inRole("prints default locale");
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(child.output(), output) << locale;
    }
}

}  // namespace
