#include "support/exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <type_traits>
#include <typeinfo>

#include "kit/environment_guard.h"

namespace {

using namespace KestSupport;

wstring16 wide(const std::string& text) {
    return {text.begin(), text.end()};
}

class Exceptions : public testing::Test {
  protected:
    void SetUp() override { m_environment.setLocale("C"); }
    kit::EnvironmentGuard m_environment;
};

TEST_F(Exceptions, MessagesAreAStackApartFromTheText) {
    KestException exception(std::string("A"), 1);
    for (const char* message : {"B", "", "C"})
        exception.pushMessage(wide(message));
    const KestException copy(exception);
    exception.setText(std::string("another"));
    exception.setText(exception.getUText() + wide("!"));
    exception.setCode(9);
    EXPECT_EQ(exception.popMessage(), wide("C"));
    // An empty message that is the newest has no line of its own.
    EXPECT_EQ(exception.getFormattedMessages(), wide("B\nA"));
    for (const char* message : {"", "B", "A", ""})
        EXPECT_EQ(exception.popMessage(), wide(message));
    EXPECT_TRUE(exception.getText() == "another!" && exception.getCode() == 9);
    exception = copy;
    const KestException& self = exception;
    exception = self;
    for (const KestException* other : {&copy, &self}) {
        EXPECT_TRUE(other->getText() == "A" && other->getCode() == 1) << "copies are deep";
        EXPECT_EQ(other->getFormattedMessages(), wide("C\n\nB\nA"));
    }
}

// The first message is the text, if there is one.
template <typename Exception>
void expectCaught(const Exception& exception, const std::string& text, int code = 0) {
    static_assert(sizeof(Exception) == sizeof(KestException) && !std::is_base_of_v<std::exception, Exception>);
    try {
        throw exception;
    } catch (const KestException& caught) {
        EXPECT_EQ(typeid(caught), typeid(Exception));
        EXPECT_EQ(caught.getText(), text);
        EXPECT_EQ(caught.getUText(), wide(text));
        EXPECT_EQ(caught.getCode(), code);
        EXPECT_EQ(caught.getFormattedMessages(), wide(text));
    }
}

// What throws the others checks their prefixes.
TEST_F(Exceptions, SubclassesDifferByTheirPrefix) {
    const std::string text = "ABC";
    expectCaught(KestException(), "");
    expectCaught(KestException(-3), "", -3);
    expectCaught(KestException(text, 7), "ABC", 7);
    EXPECT_EQ(KestException(std::string(), 1).getCallStack().size(), 1u);
    EXPECT_EQ(KestException(1).getCallStack().size(), 0u);
    expectCaught(KestKeyDataNotSupportedException(text), "KestKeyDataNotSupportedException - ABC");
    expectCaught(KestMissingMessageException(text), "KestMissingMessageException - Missing ABC");
    expectCaught(KestPropertyNotFound(), "");
    expectCaught(KestPropertyNotFound(string_ci("ABC")), "Property not found: ABC");
    expectCaught(KestPropertyNotFound(wide(text)), "Property not found: ABC");
    expectCaught(KestPropertyNotFound(wstring16_ci{'A', 'B', 'C'}), "Property not found: ABC");
}

TEST_F(Exceptions, NarrowTextGoesThroughTheCharacterSetOfTheEnvironment) {
    EXPECT_EQ(KestException(std::string("\xE9"), 0).getUText(), wstring16{0xE9});
    EXPECT_EQ(KestException(wstring16{0x20AC, 0x430}, 0).getText(), "\x80?");
    // The wide name loses what the narrow one cannot carry.
    EXPECT_EQ(KestPropertyNotFound(wstring16{'x', 0x430}).getUText(), wide("Property not found: x?"));
    m_environment.setLocale("C.UTF-8");
    EXPECT_EQ(KestException(std::string("\xC3\xA9"), 0).getUText(), wstring16{0xE9});
}

}  // namespace
