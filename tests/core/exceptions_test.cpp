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

TEST_F(Exceptions, ConstructorsSetTextCodeAndTheFirstMessage) {
    const struct {
        KestException exception;
        const char* text;
        int code;
        std::size_t messages;
    } rows[] = {{KestException(), "", 0, 0},
                {KestException(-3), "", -3, 0},
                {KestException(std::string("abc"), 7), "abc", 7, 1},
                {KestException(wide("abc"), 7), "abc", 7, 1},
                {KestException(std::string(), 1), "", 1, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.exception.getText(), row.text);
        EXPECT_EQ(row.exception.getUText(), wide(row.text));
        EXPECT_EQ(row.exception.getCode(), row.code);
        EXPECT_EQ(row.exception.getCallStack().size(), row.messages);
        EXPECT_EQ(row.exception.getFormattedMessages(), wide(row.text));
    }
}

TEST_F(Exceptions, MessagesAreAStackApartFromTheText) {
    KestException exception(std::string("A"), 1);
    exception.pushMessage(wide("B"));
    exception.pushMessage(wide(""));
    exception.pushMessage(wide("C"));
    EXPECT_EQ(exception.getFormattedMessages(), wide("C\n\nB\nA"));
    EXPECT_EQ(exception.getCallStack().size(), 4u);
    exception.setText(std::string("other"));
    exception.setCode(9);
    EXPECT_EQ(exception.popMessage(), wide("C"));
    EXPECT_EQ(exception.popMessage(), wide(""));
    EXPECT_EQ(exception.getFormattedMessages(), wide("B\nA"));
    EXPECT_EQ(exception.getText(), "other");
    exception.setText(wide("wide"));
    EXPECT_EQ(exception.getText(), "wide");
    EXPECT_EQ(exception.getCode(), 9);
    exception.popMessage();
    exception.popMessage();
    EXPECT_EQ(exception.popMessage(), wstring16());
    EXPECT_EQ(exception.getText(), "wide");
    // An empty message that is the newest has no line of its own.
    exception.pushMessage(wide("A"));
    exception.pushMessage(wide(""));
    EXPECT_EQ(exception.getFormattedMessages(), wide("A"));
}

TEST_F(Exceptions, CopiesAreDeep) {
    KestException source(std::string("A"), 4);
    source.pushMessage(wide("B"));
    KestException copy(source);
    KestException assigned;
    assigned = source;
    const KestException& self = assigned;
    assigned = self;
    source.popMessage();
    source.setText(std::string("changed"));
    for (KestException* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getText(), "A");
        EXPECT_EQ(other->getCode(), 4);
        EXPECT_EQ(other->getFormattedMessages(), wide("B\nA"));
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
