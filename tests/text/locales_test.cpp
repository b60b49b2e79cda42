#include "support/locales.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "support/exceptions.h"
#include "support/strings.h"

namespace {

using namespace KestSupport;

const std::string systemLocale = "/usr/lib/locale/C.utf8";

// Lets the C runtime find a locale by the names given, whatever is installed here.
class LocaleFolder {
  public:
    explicit LocaleFolder(std::initializer_list<const char*> names) {
        for (const char* name : names)
            std::filesystem::create_directory_symlink(systemLocale, m_path / name);
        m_environment.set("LOCPATH", m_path.string());
    }
    ~LocaleFolder() { std::filesystem::remove_all(m_path); }

  private:
    static std::filesystem::path makeFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kest-locales-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        return pattern;
    }

    std::filesystem::path m_path = makeFolder();
    kit::EnvironmentGuard m_environment;
};

TEST(Locales, CodesComeFromTheLocalesName) {
    ASSERT_TRUE(std::filesystem::is_directory(systemLocale));
    const LocaleFolder folder({"German_Germany.UTF-8", "Spanish_Mexico.UTF-8", "de_DE", "English_United States.UTF-8",
                               "Chinese_People's Republic of China.UTF-8", "Elvish", "French_New_Caledonia.UTF-8"});
    const struct {
        const char* name;
        const char* language;
        const char* country;
    } rows[] = {{"C", "C", "C"},
                {"German_Germany.UTF-8", "de", "DE"},
                {"Spanish_Mexico.UTF-8", "es", "ES"},
                {"English_United States.UTF-8", "en", "US"},
                {"Chinese_People's Republic of China.UTF-8", "zh", "CN"},
                {"French_New_Caledonia.UTF-8", "fr", "New_Caledonia"},
                {"de_DE", "de", "DE"},
                {"Elvish", "Elvish", "Elvish"}};
    for (const auto& row : rows) {
        const std::locale locale(row.name);
        EXPECT_EQ(KestLocaleFactory::getLanguage(locale), row.language);
        EXPECT_EQ(KestLocaleFactory::getCountry(locale), row.country);
    }
    // A locale with a facet of its own has no name.
    EXPECT_EQ(KestLocaleFactory::getLanguage(KestLocaleFactory::getDefaultLocale(true)), "*");
}

TEST(Locales, LanguagesAreFoundByTheirNameOrTheSystemsOwn) {
    const LocaleFolder folder({"chinese", "de_DE.UTF-8", "es_MX.UTF-8", "English"});
    const std::pair<int, const char*> rows[] = {{KestLocaleFactory::German, "de_DE.UTF-8"},
                                                {KestLocaleFactory::Spanish, "es_MX.UTF-8"},
                                                {KestLocaleFactory::Chinese, "chinese"},
                                                {7, "English"},
                                                {-1, "English"}};
    for (const auto& [language, name] : rows) {
        EXPECT_EQ(KestLocaleFactory::getLocale(static_cast<KestLocaleFactory::Language>(language)).name(), name);
    }
    for (const auto missing : {KestLocaleFactory::English, KestLocaleFactory::Japanese, KestLocaleFactory::GlobalC}) {
        try {
            KestLocaleFactory::getLocale(missing);
            ADD_FAILURE() << missing;
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ(failure.what(), "bad locale name");
        }
    }
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
