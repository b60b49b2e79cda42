// Which of its files a message set takes a message from, and what it reports about them.
#include "support/message_sets.h"

#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "kit/system.h"

using namespace KestSupport;

namespace {

std::string message(const KestMessageSet& messages, const std::string& key) {
    const wstring16 text = messages.getString(wstring16(key.begin(), key.end()));
    return std::string(text.begin(), text.end());
}

}  // namespace

TEST(MessageSets, PreferTheMostSpecificCatalogue) {
    const kit::TemporaryFolder folder;
    const std::string base = folder.pathOf("m");
    // The codes of this locale's language and country differ, if it is not the classic one.
    const std::locale locale = kit::namedLocale();
    const std::string language = "_" + locale.name(), country = language + "_C";
    const auto make = [&] { return KestMessageSet(base, locale); };
    EXPECT_EQ(kit::failureOf(make), "KestProperties<StringType>::loadProperties: couldn't open file " + base + ".pro");
    folder.write("m.pro", "a=1\nb=1\nc=1\n");
    folder.write("m" + country + ".pro", "c=3\nc=4");
    EXPECT_EQ(message(make(), "b") + message(make(), "c"), "14");
    folder.write("m" + language + ".pro", "b=\nc=2");
    {
        const kit::LogCapture log(1);
        const kit::FailingCalls calls("openStream", 2, true, EMFILE);
        EXPECT_EQ(message(make(), "c"), "1");
        const std::string failed = "KestProperties<StringType>::loadProperties: couldn't open file " + base;
        EXPECT_EQ(log.messages(), (std::vector<std::string>{failed + language + ".pro", failed + country + ".pro"}));
    }
    const KestMessageSet messages = make();
    EXPECT_EQ(messages.getLocale(), locale);
    EXPECT_EQ(kit::failureOf([&] { message(messages, "A key"); }), "KestMissingMessageException - Missing A key");
    EXPECT_EQ(message(messages, "a") + message(messages, "b") + message(messages, "c"), "14");
}
