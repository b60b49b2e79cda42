#include "support/exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <tuple>
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

TEST_F(Exceptions, ConstructorsSetTextCodeAndTheFirstMessage) {
    const std::tuple<KestException, std::string, int, std::size_t> rows[] = {
        {KestException(), "", 0, 0},
        {KestException(-3), "", -3, 0},
        {KestException(std::string("abc"), 7), "abc", 7, 1},
        {KestException(wide("abc"), 7), "abc", 7, 1},
        {KestException(std::string(), 1), "", 1, 1}};
    for (const auto& [exception, text, code, messages] : rows) {
        EXPECT_EQ(exception.getText(), text);
        EXPECT_EQ(exception.getUText(), wide(text));
        EXPECT_EQ(exception.getCode(), code);
        EXPECT_EQ(exception.getCallStack().size(), messages);
        EXPECT_EQ(exception.getFormattedMessages(), wide(text));
    }
}

TEST_F(Exceptions, MessagesAreAStackApartFromTheText) {
    KestException exception(std::string("A"), 1);
    for (const char* message : {"B", "", "C"})
        exception.pushMessage(wide(message));
    EXPECT_EQ(exception.getFormattedMessages(), wide("C\n\nB\nA"));
    const KestException copy(exception);
    exception.setText(std::string("other"));
    exception.setCode(9);
    EXPECT_EQ(exception.popMessage(), wide("C"));
    // An empty message that is the newest has no line of its own.
    EXPECT_EQ(exception.getFormattedMessages(), wide("B\nA"));
    for (const char* message : {"", "B", "A", ""})
        EXPECT_EQ(exception.popMessage(), wide(message));
    EXPECT_EQ(exception.getText(), "other");
    EXPECT_EQ(exception.getCode(), 9);
    exception.setText(wide("wide"));
    EXPECT_EQ(exception.getText(), "wide");
    // Copies are deep.
    exception = copy;
    const KestException& self = exception;
    exception = self;
    for (const KestException* other : {&copy, &self}) {
        EXPECT_EQ(other->getText(), "A");
        EXPECT_EQ(other->getCode(), 1);
        EXPECT_EQ(other->getFormattedMessages(), wide("C\n\nB\nA"));
    }
}

template <typename Exception>
void expectCaught(const Exception& exception, const std::string& text) {
    static_assert(sizeof(Exception) == sizeof(KestException) && !std::is_base_of_v<std::exception, Exception>);
    try {
        throw exception;
    } catch (const KestException& caught) {
        EXPECT_EQ(typeid(caught), typeid(Exception));
        EXPECT_EQ(caught.getText(), text);
        EXPECT_EQ(caught.getCode(), 0);
        EXPECT_EQ(caught.getFormattedMessages(), wide(text));
        EXPECT_EQ(caught.getCallStack().size(), text.empty() ? 0u : 1u);
    }
}

TEST_F(Exceptions, SubclassesDifferByTheirPrefix) {
    const std::string text = "ABC";
    expectCaught(KestNoSuchElementException(text), "KestNoSuchElementException - ABC");
    expectCaught(KestInvalidDateException(text), "KestInvalidDateException - ABC");
    expectCaught(KestInvalidEncryptionException(text), "KestInvalidEncryptionException - ABC");
    expectCaught(KestKeyDataNotSupportedException(text), "KestKeyDataNotSupportedException - ABC");
    expectCaught(KestMissingMessageException(text), "KestMissingMessageException - Missing ABC");
    expectCaught(KestPropertyNotFound(), "");
    expectCaught(KestPropertyNotFound(text), "Property not found: ABC");
    expectCaught(KestPropertyNotFound(string_ci("ABC")), "Property not found: ABC");
    expectCaught(KestPropertyNotFound(wide(text)), "Property not found: ABC");
    expectCaught(KestPropertyNotFound(wstring16_ci{'A', 'B', 'C'}), "Property not found: ABC");
    KestNoSuchElementException assigned("x");
    assigned = KestNoSuchElementException(text);
    expectCaught(assigned, "KestNoSuchElementException - ABC");
}

TEST_F(Exceptions, NarrowTextGoesThroughTheCharacterSetOfTheEnvironment) {
    EXPECT_EQ(KestException(std::string("\xE9"), 0).getUText(), wstring16{0xE9});
    EXPECT_EQ(KestException(wstring16{0x20AC, 0x430}, 0).getText(), "\x80?");
    // The wide name loses what the narrow one cannot carry.
    EXPECT_EQ(KestPropertyNotFound(wstring16{'x', 0x430}).getUText(), wide("Property not found: x?"));
    m_environment.setLocale("C.UTF-8");
    EXPECT_EQ(KestException(std::string("\xC3\xA9"), 0).getUText(), wstring16{0xE9});
    EXPECT_EQ(KestPropertyNotFound(wstring16{'x', 0x430}).getText(), "Property not found: x\xD0\xB0");
}

}  // namespace
