// Exceptions: text, code and messages, the prefixes of the subclasses, and narrow texts.
#include "support/exceptions.h"

#include <exception>
#include <type_traits>
#include <typeinfo>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "support/terminate_handler.h"

namespace {

using namespace KestSupport;

wstring16 wide(const std::string& text) {
    return {text.begin(), text.end()};
}

// Text, code and messages.
std::string contentOf(const KestException& exception) {
    const wstring16 messages = exception.getFormattedMessages();
    return exception.getText() + "|" + std::to_string(exception.getCode()) + "|" +
           std::string(messages.begin(), messages.end());
}

const kit::ChildRole g_throws("throws", [](const std::vector<std::string>& arguments) -> int {
    static std::terminate_handler shows = nullptr;
    kestShowUncaughtExceptions();
    shows = std::set_terminate([] { shows(); });
    kestShowUncaughtExceptions();
    if (arguments.size() == 1) throw KestPropertyNotFound(arguments[0]);
    throw 1;
});

TEST(Exceptions, AreShownWhenUncaught) {
    const std::string expected = "Uncaught KestSupport::KestPropertyNotFound: Property not found: port (code 0)";
    kit::ChildProcess child = kit::ChildProcess::inRole("throws", {"port"}),
                      other = kit::ChildProcess::inRole("throws");
    EXPECT_NE(child.wait(), 0);
    EXPECT_NE(other.wait(), 0);
    EXPECT_TRUE(child.errors().starts_with(expected)) << child.errors();
    EXPECT_EQ(child.errors().find(expected, 1), std::string::npos);
    EXPECT_EQ(other.errors().find("Uncaught"), std::string::npos);
}

TEST(Exceptions, KeepMessagesApartFromText) {
    KestException exception(std::string("A"), 1);
    for (const char* message : {"B", "", "C"})
        exception.pushMessage(wide(message));
    const KestException copy(exception);
    exception.setText(std::string("another"));
    exception.setText(exception.getUText() + wide("!"));
    exception.setCode(9);
    EXPECT_EQ(exception.popMessage(), wide("C"));
    EXPECT_EQ(contentOf(exception), "another!|9|B\nA") << "a newest message that is empty has no line";
    for (const char* message : {"", "B", "A", ""})
        EXPECT_EQ(exception.popMessage(), wide(message));
    exception = copy;
    const KestException& self = exception;
    exception = self;
    for (const KestException* other : {&copy, &self})
        EXPECT_EQ(contentOf(*other), "A|1|C\n\nB\nA") << "copies are deep";
}

// The text is also the first message, if there is one.
template <typename Exception>
void expectCaught(const Exception& exception, const std::string& text, int code = 0) {
    static_assert(sizeof(Exception) == sizeof(KestException) && !std::is_base_of_v<std::exception, Exception>);
    try {
        throw exception;
    } catch (const KestException& caught) {
        EXPECT_EQ(typeid(caught), typeid(Exception));
        EXPECT_EQ(contentOf(caught), text + "|" + std::to_string(code) + "|" + text);
    }
}

// The tests of the classes that throw the other subclasses check their prefixes.
TEST(Exceptions, ShowSubclassByPrefix) {
    const std::string text = "ABC";
    expectCaught(KestException(), "");
    expectCaught(KestException(-3), "", -3);
    expectCaught(KestException(text, 7), "ABC", 7);
    EXPECT_EQ(KestException(std::string(), 1).getCallStack().size(), 1U);
    EXPECT_EQ(KestException(1).getCallStack().size(), 0U);
    expectCaught(KestKeyDataNotSupportedException(text), "KestKeyDataNotSupportedException - ABC");
    expectCaught(KestMissingMessageException(text), "KestMissingMessageException - Missing ABC");
    expectCaught(KestPropertyNotFound(), "");
    const KestPropertyNotFound byName[] = {KestPropertyNotFound("ABC"), KestPropertyNotFound(string_ci("ABC")),
                                           KestPropertyNotFound(wide(text)), KestPropertyNotFound(wide(text).c_str()),
                                           KestPropertyNotFound(wstring16_ci{'A', 'B', 'C'})};
    for (const KestPropertyNotFound& exception : byName)
        expectCaught(exception, "Property not found: ABC");
}

TEST(Exceptions, ConvertNarrowText) {
    kit::EnvironmentGuard environment;
    environment.setLocale("C");
    EXPECT_EQ(KestException(std::string("\xE9"), 0).getUText(), wstring16{0xE9});
    EXPECT_EQ(KestException(wstring16{0x20AC, 0x430}, 0).getText(), "\x80?");
    EXPECT_EQ(KestPropertyNotFound(wstring16{'x', 0x430}).getUText(), wide("Property not found: x?"));
}

}  // namespace
