// The exceptions of the library. Every failure that it reports by throwing is a KestException or a subclass, thrown by
// value. They do not derive from std::exception, so a handler for that does not catch them.
//
// An exception has a wide text, a code and a stack of messages, to which the handlers between the thrower and the last
// catch can add. A subclass only puts a prefix before its text.
//
// Threads: an exception has no lock. A copy shares nothing with its source.
#pragma once

#include <deque>
#include <stack>
#include <string>

#include "support/export.h"
#include "support/strings.h"

namespace KestSupport {

/// Narrow texts are converted through KestLocaleFactory::getDefaultLocale(true). Constructors and operations throw
/// nothing but std::bad_alloc and what these conversions throw.
class KEST_SUPPORT_EXPORT KestException {
  public:
    /// The newest message is on top.
    using MessageStack = std::stack<wstring16, std::deque<wstring16>>;

    /// No text and no message; the code is 0 unless one is given.
    KestException();
    explicit KestException(int code);
    /// The text is also the first message.
    KestException(const wstring16& text, int code);
    KestException(const std::string& text, int code);
    KestException(const KestException& other);
    KestException& operator=(const KestException& other);
    virtual ~KestException();

    /// Returns the narrowed text; if the conversion throws a KestException, the text of that one.
    virtual std::string getText() const;
    /// Returns the text itself.
    virtual const wstring16& getUText() const;
    /// Replaces the text. The messages stay.
    virtual void setText(const wstring16& text);
    virtual void setText(const std::string& text);
    virtual int getCode() const;  ///< 0 unless another one was set
    /// Replaces the code.
    virtual void setCode(int code);
    /// Adds a message, which becomes the newest.
    virtual void pushMessage(const wstring16& message);
    /// Removes the newest message and returns it; returns an empty text if there is none.
    virtual wstring16 popMessage();
    /// Returns the messages, the newest on top.
    virtual const MessageStack& getCallStack() const;
    /// Returns all messages from the newest to the oldest, separated by line feeds. The newest messages that are empty
    /// have no line.
    virtual wstring16 getFormattedMessages() const;

  private:
    wstring16 m_text;
    int m_code = 0;
    MessageStack m_messages;
};

/// A name or an index does not exist: "KestNoSuchElementException - " and the given text.
class KEST_SUPPORT_EXPORT KestNoSuchElementException : public KestException {
  public:
    /// Puts the prefix before the text. The code is 0.
    explicit KestNoSuchElementException(const std::string& text);
    KestNoSuchElementException(const KestNoSuchElementException& other);
    KestNoSuchElementException& operator=(const KestNoSuchElementException& other);
    ~KestNoSuchElementException() override;
};

/// A value or a text is not a valid date: "KestInvalidDateException - " and the given text.
class KEST_SUPPORT_EXPORT KestInvalidDateException : public KestException {
  public:
    /// Puts the prefix before the text. The code is 0.
    explicit KestInvalidDateException(const std::string& text);
    KestInvalidDateException(const KestInvalidDateException& other);
    KestInvalidDateException& operator=(const KestInvalidDateException& other);
    ~KestInvalidDateException() override;
};

/// Data cannot be encrypted or decrypted: "KestInvalidEncryptionException - " and the given text.
class KEST_SUPPORT_EXPORT KestInvalidEncryptionException : public KestException {
  public:
    /// Puts the prefix before the text. The code is 0.
    explicit KestInvalidEncryptionException(const std::string& text);
    KestInvalidEncryptionException(const KestInvalidEncryptionException& other);
    KestInvalidEncryptionException& operator=(const KestInvalidEncryptionException& other);
    ~KestInvalidEncryptionException() override;
};

/// The cipher does not accept the key data: "KestKeyDataNotSupportedException - " and the given text.
class KEST_SUPPORT_EXPORT KestKeyDataNotSupportedException : public KestException {
  public:
    /// Puts the prefix before the text. The code is 0.
    explicit KestKeyDataNotSupportedException(const std::string& text);
    KestKeyDataNotSupportedException(const KestKeyDataNotSupportedException& other);
    KestKeyDataNotSupportedException& operator=(const KestKeyDataNotSupportedException& other);
    ~KestKeyDataNotSupportedException() override;
};

/// No catalogue has the message: "KestMissingMessageException - Missing " and the given key.
class KEST_SUPPORT_EXPORT KestMissingMessageException : public KestException {
  public:
    /// `text` is the key. The code is 0.
    explicit KestMissingMessageException(const std::string& text);
    KestMissingMessageException(const KestMissingMessageException& other);
    KestMissingMessageException& operator=(const KestMissingMessageException& other);
    ~KestMissingMessageException() override;
};

/// A property does not exist: "Property not found: " and its name. The default constructor sets no text and no message.
class KEST_SUPPORT_EXPORT KestPropertyNotFound : public KestException {
  public:
    KestPropertyNotFound();
    /// The code is 0.
    explicit KestPropertyNotFound(const std::string& name);
    explicit KestPropertyNotFound(const string_ci& name);
    /// A wide name is narrowed and widened again, so characters that narrow text cannot represent become '?'.
    explicit KestPropertyNotFound(const wstring16& name);
    explicit KestPropertyNotFound(const wstring16_ci& name);
    /// Literals, which convert to two of the string types. The name is not null.
    explicit KestPropertyNotFound(const char* name) : KestPropertyNotFound(std::string(name)) {}
    explicit KestPropertyNotFound(const unsigned short* name) : KestPropertyNotFound(wstring16(name)) {}
    KestPropertyNotFound(const KestPropertyNotFound& other);
    KestPropertyNotFound& operator=(const KestPropertyNotFound& other);
    ~KestPropertyNotFound() override;
};

}  // namespace KestSupport
