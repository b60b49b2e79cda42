#include "support/exceptions.h"

#include "support/locales.h"

namespace KestSupport {
namespace {

wstring16 widenText(const std::string& text) {
    return KestStringUtilities::widen(text, KestLocaleFactory::getDefaultLocale(true));
}

std::string narrowText(const wstring16& text) {
    return KestStringUtilities::narrow(text, KestLocaleFactory::getDefaultLocale(true));
}

constexpr char kPropertyNotFound[] = "Property not found: ";

std::string propertyNotFoundText(const unsigned short* name, std::size_t length) {
    wstring16 text(kPropertyNotFound, kPropertyNotFound + sizeof kPropertyNotFound - 1);
    return narrowText(text.append(name, length));
}

}  // namespace

KestException::KestException() = default;

KestException::KestException(int code) : m_code(code) {}

KestException::KestException(const wstring16& text, int code) : m_text(text), m_code(code) {
    m_messages.push(m_text);
}

KestException::KestException(const std::string& text, int code) : KestException(widenText(text), code) {}

KestException::KestException(const KestException& other) = default;
KestException::~KestException() = default;

// Without memory, nothing is changed.
KestException& KestException::operator=(const KestException& other) {
    MessageStack messages = other.m_messages;
    m_text = other.m_text;
    m_code = other.m_code;
    m_messages.swap(messages);
    return *this;
}

std::string KestException::getText() const {
    try {
        return narrowText(m_text);
    } catch (const KestException& failure) {
        return failure.getText();
    }
}

const wstring16& KestException::getUText() const {
    return m_text;
}

void KestException::setText(const wstring16& text) {
    m_text = text;
}

void KestException::setText(const std::string& text) {
    m_text = widenText(text);
}

int KestException::getCode() const {
    return m_code;
}

void KestException::setCode(int code) {
    m_code = code;
}

void KestException::pushMessage(const wstring16& message) {
    m_messages.push(message);
}

wstring16 KestException::popMessage() {
    if (m_messages.empty()) return {};
    wstring16 message = m_messages.top();
    m_messages.pop();
    return message;
}

const KestException::MessageStack& KestException::getCallStack() const {
    return m_messages;
}

wstring16 KestException::getFormattedMessages() const {
    wstring16 result;
    for (MessageStack rest = m_messages; !rest.empty(); rest.pop()) {
        if (!result.empty()) result += static_cast<unsigned short>(0x0A);
        result += rest.top();
    }
    return result;
}

KestNoSuchElementException::KestNoSuchElementException(const std::string& text)
    : KestException("KestNoSuchElementException - " + text, 0) {}
KestNoSuchElementException::KestNoSuchElementException(const KestNoSuchElementException&) = default;
KestNoSuchElementException& KestNoSuchElementException::operator=(const KestNoSuchElementException&) = default;
KestNoSuchElementException::~KestNoSuchElementException() = default;

KestInvalidDateException::KestInvalidDateException(const std::string& text)
    : KestException("KestInvalidDateException - " + text, 0) {}
KestInvalidDateException::KestInvalidDateException(const KestInvalidDateException&) = default;
KestInvalidDateException& KestInvalidDateException::operator=(const KestInvalidDateException&) = default;
KestInvalidDateException::~KestInvalidDateException() = default;

KestInvalidEncryptionException::KestInvalidEncryptionException(const std::string& text)
    : KestException("KestInvalidEncryptionException - " + text, 0) {}
KestInvalidEncryptionException::KestInvalidEncryptionException(const KestInvalidEncryptionException&) = default;
KestInvalidEncryptionException& KestInvalidEncryptionException::operator=(const KestInvalidEncryptionException&) =
    default;
KestInvalidEncryptionException::~KestInvalidEncryptionException() = default;

KestKeyDataNotSupportedException::KestKeyDataNotSupportedException(const std::string& text)
    : KestException("KestKeyDataNotSupportedException - " + text, 0) {}
KestKeyDataNotSupportedException::KestKeyDataNotSupportedException(const KestKeyDataNotSupportedException&) = default;
KestKeyDataNotSupportedException& KestKeyDataNotSupportedException::operator=(const KestKeyDataNotSupportedException&) =
    default;
KestKeyDataNotSupportedException::~KestKeyDataNotSupportedException() = default;

KestMissingMessageException::KestMissingMessageException(const std::string& text)
    : KestException("KestMissingMessageException - Missing " + text, 0) {}
KestMissingMessageException::KestMissingMessageException(const KestMissingMessageException&) = default;
KestMissingMessageException& KestMissingMessageException::operator=(const KestMissingMessageException&) = default;
KestMissingMessageException::~KestMissingMessageException() = default;

KestPropertyNotFound::KestPropertyNotFound() = default;
KestPropertyNotFound::KestPropertyNotFound(const std::string& name) : KestException(kPropertyNotFound + name, 0) {}
KestPropertyNotFound::KestPropertyNotFound(const string_ci& name)
    : KestException(std::string(kPropertyNotFound).append(name.data(), name.size()), 0) {}
KestPropertyNotFound::KestPropertyNotFound(const wstring16& name)
    : KestException(propertyNotFoundText(name.data(), name.size()), 0) {}
KestPropertyNotFound::KestPropertyNotFound(const wstring16_ci& name)
    : KestException(propertyNotFoundText(name.data(), name.size()), 0) {}
KestPropertyNotFound::KestPropertyNotFound(const KestPropertyNotFound&) = default;
KestPropertyNotFound& KestPropertyNotFound::operator=(const KestPropertyNotFound&) = default;
KestPropertyNotFound::~KestPropertyNotFound() = default;

}  // namespace KestSupport
