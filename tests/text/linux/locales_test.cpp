// The codes of locale names, the locales of languages, and the default locale of the environment.
#include "support/locales.h"

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

// Prints the codes of the named locales and the locale of each language. Ends without destructors: the C runtime leaks
// memory for each locale that it searches in a user's folder.
const kit::ChildRole printsLocales("prints locales", [](const std::vector<std::string>& names) -> int {
    for (const std::string& name : names) {
        // NAME, or NAME+LOCALE with the messages of LOCALE
        const std::size_t plus = name.find('+');
        std::locale locale(name.substr(0, plus));
        if (plus != std::string::npos) locale = std::locale(locale, name.substr(plus + 1), std::locale::messages);
        std::puts((KestLocaleFactory::getLanguage(locale) + " " + KestLocaleFactory::getCountry(locale)).c_str());
    }
    for (const int language : {0, 1, 2, 3, 4, 5, 6, 7, -1}) {
        try {
            std::puts(KestLocaleFactory::getLocale(static_cast<KestLocaleFactory::Language>(language)).name().c_str());
        } catch (const std::runtime_error& failure) {
            std::puts(failure.what());
        }
    }
    std::fflush(stdout);
    std::_Exit(0);
});

TEST(Locales, FindCodesAndLanguagesByName) {
    std::vector<std::string> names({"German_Germany.UTF-8", "Spanish_Mexico.UTF-8", "English_United States.UTF-8",
                                    "Elvish", "Chinese_People's Republic of China.UTF-8",
                                    "French_New_Caledonia.UTF-8"});
    // The C runtime searches this folder, so the test does not depend on the installed locales.
    const kit::TemporaryFolder folder;
    kit::EnvironmentGuard environment;
    environment.set("LOCPATH", folder.path());
    std::vector<std::string> known({"de_DE.UTF-8", "chinese", "es_MX.UTF-8", "English"});
    known.insert(known.end(), names.begin(), names.end());
    for (const std::string& name : known)
        std::filesystem::create_directory_symlink("/usr/lib/locale/C.utf8", folder.pathOf(name));
    names.insert(names.end(), {"de_DE.UTF-8", "C", "de_DE.UTF-8+C", "C+es_MX.UTF-8", "English+de_DE.UTF-8"});
    auto child = kit::ChildProcess::inRole("prints locales", names);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.output(),
              "de DE\nes ES\nen US\nElvish Elvish\nzh CN\nfr New_Caledonia\nde DE\nC C\n"
              "de DE\nes MX\nde DE\n"
              "de_DE.UTF-8\nbad locale name\nes_MX.UTF-8\nbad locale name\nbad locale name\nchinese\nbad locale name\n"
              "English\nEnglish\n");
    // A locale with an added facet has no name.
    EXPECT_EQ(KestLocaleFactory::getLanguage(KestLocaleFactory::getDefaultLocale(true)), "*");
}

// Constructed before main, perhaps before the library's own objects, and uses the default locale.
const std::string textMadeEarly = KestException(std::string("early"), 1).getText();

const kit::ChildRole printsDefaultLocale("prints default locale", [](const std::vector<std::string>&) {
    const std::string text = KestStringUtilities::narrow({0xE9}, KestLocaleFactory::getDefaultLocale(true));
    std::printf("%s %s %s", KestLocaleFactory::getDefaultLocale(false).name().c_str(), text.c_str(),
                textMadeEarly.c_str());
    return 0;
});

TEST(Locales, TakeTheDefaultFromTheEnvironment) {
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
