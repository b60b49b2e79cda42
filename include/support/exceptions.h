// The exceptions of the library. Every failure that it reports by throwing is a KestException or a subclass of it,
// thrown by value. They are not derived from std::exception: a handler for that does not catch them.
//
// An exception carries a wide text, a code and a stack of messages to which handlers on the way up add what they know.
// A subclass differs by the prefix of its text alone.
//
// Threads: an exception has no lock. Copies share nothing with their source.
#pragma once

#include <support/export.h>
#include <support/strings.h>

#include <deque>
#include <stack>
#include <string>

namespace KestSupport {

/// Narrow texts come in and go out through KestLocaleFactory::getDefaultLocale(true).
class KEST_SUPPORT_EXPORT KestException {
  public:
    using MessageStack = std::stack<wstring16, std::deque<wstring16>>;

    KestException();
    explicit KestException(int code);
    /// The text becomes the first message too.
    KestException(const wstring16& text, int code);
    KestException(const std::string& text, int code);
    KestException(const KestException& other);
    KestException& operator=(const KestException& other);
    virtual ~KestException();

    /// The text, narrowed. Should the conversion fail, the text of that failure.
    virtual std::string getText() const;
    virtual const wstring16& getUText() const;
    /// Replaces the text and leaves the messages as they are.
    virtual void setText(const wstring16& text);
    virtual void setText(const std::string& text);
    virtual int getCode() const;
    virtual void setCode(int code);
    virtual void pushMessage(const wstring16& message);
    /// Takes the newest message off the stack; an empty text if there is none.
    virtual wstring16 popMessage();
    virtual const MessageStack& getCallStack() const;
    /// All messages, the newest first, with a line feed between two of them.
    virtual wstring16 getFormattedMessages() const;

  private:
    wstring16 m_text;
    int m_code = 0;
    MessageStack m_messages;
};

/// A named thing does not exist: "KestNoSuchElementException - " and the text given.
class KEST_SUPPORT_EXPORT KestNoSuchElementException : public KestException {
  public:
    explicit KestNoSuchElementException(const std::string& text);
    KestNoSuchElementException(const KestNoSuchElementException& other);
    KestNoSuchElementException& operator=(const KestNoSuchElementException& other);
    ~KestNoSuchElementException() override;
};

/// A date or a text that is none: "KestInvalidDateException - " and the text given.
class KEST_SUPPORT_EXPORT KestInvalidDateException : public KestException {
  public:
    explicit KestInvalidDateException(const std::string& text);
    KestInvalidDateException(const KestInvalidDateException& other);
    KestInvalidDateException& operator=(const KestInvalidDateException& other);
    ~KestInvalidDateException() override;
};

/// Data that cannot be encrypted or decrypted: "KestInvalidEncryptionException - " and the text given.
class KEST_SUPPORT_EXPORT KestInvalidEncryptionException : public KestException {
  public:
    explicit KestInvalidEncryptionException(const std::string& text);
    KestInvalidEncryptionException(const KestInvalidEncryptionException& other);
    KestInvalidEncryptionException& operator=(const KestInvalidEncryptionException& other);
    ~KestInvalidEncryptionException() override;
};

/// Key data that the cipher does not take: "KestKeyDataNotSupportedException - " and the text given.
class KEST_SUPPORT_EXPORT KestKeyDataNotSupportedException : public KestException {
  public:
    explicit KestKeyDataNotSupportedException(const std::string& text);
    KestKeyDataNotSupportedException(const KestKeyDataNotSupportedException& other);
    KestKeyDataNotSupportedException& operator=(const KestKeyDataNotSupportedException& other);
    ~KestKeyDataNotSupportedException() override;
};

/// A message that no catalogue has: "KestMissingMessageException - Missing " and the key given.
class KEST_SUPPORT_EXPORT KestMissingMessageException : public KestException {
  public:
    explicit KestMissingMessageException(const std::string& text);
    KestMissingMessageException(const KestMissingMessageException& other);
    KestMissingMessageException& operator=(const KestMissingMessageException& other);
    ~KestMissingMessageException() override;
};

/// A property that does not exist: "Property not found: " and its name. The default constructor gives no text and no
/// message.
class KEST_SUPPORT_EXPORT KestPropertyNotFound : public KestException {
  public:
    KestPropertyNotFound();
    explicit KestPropertyNotFound(const std::string& name);
    explicit KestPropertyNotFound(const string_ci& name);
    /// A wide name passes through narrow text on its way: what that cannot carry is lost.
    explicit KestPropertyNotFound(const wstring16& name);
    explicit KestPropertyNotFound(const wstring16_ci& name);
    KestPropertyNotFound(const KestPropertyNotFound& other);
    KestPropertyNotFound& operator=(const KestPropertyNotFound& other);
    ~KestPropertyNotFound() override;
};

}  // namespace KestSupport
