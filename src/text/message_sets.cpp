#include "support/message_sets.h"

#include <locale>
#include <string>

#include "platform/files.h"
#include "support/exceptions.h"
#include "support/locales.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr const char* kFileType = ".pro";

}  // namespace

KestMessageSet::KestMessageSet(const std::string& baseName, std::locale loc) : m_locale(loc), m_messages(false) {
    loadSet(baseName);
}

KestMessageSet::KestMessageSet(const KestMessageSet& other) = default;

KestMessageSet& KestMessageSet::operator=(const KestMessageSet& other) {
    m_messages = other.m_messages;  // only this may throw
    m_locale = other.m_locale;
    return *this;
}

KestMessageSet::~KestMessageSet() = default;

wstring16 KestMessageSet::getString(const wstring16& key) const {
    wstring16 message;
    if (m_messages.getPropertyValue(key, message)) return message;
    throw KestMissingMessageException(KestStringUtilities::narrow(key, KestLocaleFactory::getDefaultLocale(true)));
}

const std::locale& KestMessageSet::getLocale() const {
    return m_locale;
}

void KestMessageSet::loadSet(const std::string& baseName) {
    m_messages.loadProperties(baseName + kFileType);
    const std::string language = KestLocaleFactory::getLanguage(m_locale);
    if (language.empty()) return;
    const std::string languageName = baseName + "_" + language;
    loadOptional(languageName);
    const std::string country = KestLocaleFactory::getCountry(m_locale);
    if (!country.empty()) loadOptional(languageName + "_" + country);
}

void KestMessageSet::loadOptional(const std::string& name) {
    try {
        m_messages.loadProperties(name + kFileType);
    } catch (const KestException& failure) {
        // Without a catalogue of the language or country the more general one counts. A catalogue that exists but could
        // not be read is reported.
        if (platform::pathExists(name + kFileType)) internal::logRecord(internal::LogLevel::failure, failure.getText());
    }
}

}  // namespace KestSupport
