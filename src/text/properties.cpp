#include "support/properties.h"

#include <algorithm>
#include <type_traits>

#include "platform/file_stream.h"
#include "support/exceptions.h"
#include "text/log_record.h"
#include "text/property_line.h"
#include "text/property_reader.h"
#include "text/property_writer.h"

namespace KestSupport {
namespace {

// Every text says <StringType>, whichever type it is.
constexpr const char* kLoading = "KestProperties<StringType>::loadProperties: from file ";
constexpr const char* kCannotOpenToLoad = "KestProperties<StringType>::loadProperties: couldn't open file ";
constexpr const char* kCannotRead = "KestProperties<StringType>::loadProperties: couldn't read file ";
constexpr const char* kSaving = "KestProperties<StringType>::saveProperties: to file ";
constexpr const char* kCannotOpenToSave = "KestProperties<StringType>::saveProperties: couldn't open file ";
constexpr const char* kCannotWrite = "KestProperties<StringType>::saveProperties: couldn't write file ";

constexpr int kFileOperationLevel = 5;
constexpr int kDumpLevel = 9;

[[noreturn]] void fail(const char* what, const std::string& fileName) {
    throw KestException(what + fileName, 0);
}

[[noreturn]] void logAndFail(const char* what, const std::string& fileName) {
    internal::logRecord(kFileOperationLevel, what, fileName);
    fail(what, fileName);
}

// The text as a file holds it: up to its first NUL, and without the traits, which files do not know.
template <typename StringType>
auto textForFile(const StringType& text) {
    const std::basic_string_view<typename StringType::value_type> all(text.data(), text.size());
    return all.substr(0, all.find(typename StringType::value_type{}));
}

template <typename PropertyMap>
internal::FileEncoding encodingFor(const PropertyMap& properties) {
    if constexpr (!std::is_same_v<typename PropertyMap::key_type::value_type, char>) {
        const internal::FileText fileText;
        std::string bytes;
        for (const auto& [name, values] : properties) {
            bytes.clear();
            if (!fileText.narrow(textForFile(name), bytes) || !fileText.narrow(textForFile(values.front()), bytes)) {
                return internal::FileEncoding::kUtf16;
            }
        }
    }
    return internal::FileEncoding::kBytes;
}

}  // namespace

template <typename StringType>
KestPropertyIterator<StringType>::~KestPropertyIterator() = default;

template <typename StringType>
void KestPropertyIterator<StringType>::handleProperty(const std::pair<const StringType, std::vector<StringType>>&) {}

template <typename StringType>
KestProperties<StringType>::KestProperties() = default;

template <typename StringType>
KestProperties<StringType>::KestProperties(bool multiValued) : m_multiValued(multiValued) {}

template <typename StringType>
KestProperties<StringType>::KestProperties(const KestProperties& other)
    : KestObjectBase(), KestCollaborator(), m_properties(other.m_properties), m_multiValued(other.m_multiValued) {}

template <typename StringType>
KestProperties<StringType>& KestProperties<StringType>::operator=(const KestProperties& other) {
    if (this == &other) return *this;
    KestCriticalSection guard(m_lock, true);
    // Copied as a whole before it is taken over, so that a shortage of memory leaves this object as it was.
    PropertyMap copy(other.m_properties);
    m_properties.swap(copy);
    m_multiValued = other.m_multiValued;
    return *this;
}

template <typename StringType>
KestProperties<StringType>::~KestProperties() = default;

template <typename StringType>
void KestProperties<StringType>::addProperty(const StringType& name, const StringType& value) {
    if (!name.empty()) add(name, value);
}

template <typename StringType>
void KestProperties<StringType>::setProperty(const StringType& name, const StringType& value) {
    KestCriticalSection guard(m_lock, true);
    const auto entry = m_properties.find(name);
    if (entry == m_properties.end()) {
        addProperty(name, value);
    } else {
        entry->second.front() = value;
    }
}

template <typename StringType>
void KestProperties<StringType>::addProperty(const StringType& line, CharType separator) {
    addLine(line, separator);
}

template <typename StringType>
void KestProperties<StringType>::addPropertyforWSmanDA(const StringType& line) {
    if (line.empty() || line.front() == CharType{'#'}) return;
    try {
        add(line, View());
    } catch (const KestException&) {
        // A line that cannot be added is dropped, so that the others of its source are still taken.
    }
}

template <typename StringType>
const StringType& KestProperties<StringType>::getProperty(const StringType& name,
                                                          const StringType& defaultValue) const {
    KestCriticalSection guard(m_lock, true);
    const StringType* const value = find(name);
    return value == nullptr ? defaultValue : *value;
}

template <typename StringType>
StringType KestProperties<StringType>::getProperty(const StringType& name) const {
    StringType value;
    if (!getPropertyValue(name, value)) throw KestPropertyNotFound(name);
    return value;
}

template <typename StringType>
bool KestProperties<StringType>::getPropertyValue(const StringType& name, StringType& value) const {
    KestCriticalSection guard(m_lock, true);
    const StringType* const found = find(name);
    if (found == nullptr) return false;
    value = *found;
    return true;
}

template <typename StringType>
std::vector<StringType> KestProperties<StringType>::getPropertyValues(const StringType& name) const {
    KestCriticalSection guard(m_lock, true);
    const auto entry = m_properties.find(name);
    return entry == m_properties.end() ? ValueList() : entry->second;
}

template <typename StringType>
void KestProperties<StringType>::removeProperty(const StringType& name) {
    KestCriticalSection guard(m_lock, true);
    m_properties.erase(name);
}

template <typename StringType>
std::map<StringType, std::vector<StringType>> KestProperties<StringType>::getProperties() const {
    return m_properties;
}

template <typename StringType>
void KestProperties<StringType>::forEach(KestPropertyIterator<StringType>& it) const {
    for (auto position = m_properties.begin(); position != m_properties.end();) {
        // The handler may remove any entry, so the way on is found by name.
        const typename PropertyMap::value_type entry = *position;
        it.handleProperty(entry);
        position = m_properties.upper_bound(entry.first);
    }
}

template <typename StringType>
bool KestProperties<StringType>::loadProperties(const std::string& fileName, CharType separator) {
    if (!loadPropertiesImpl(fileName, separator)) fail(kCannotOpenToLoad, fileName);
    return true;
}

template <typename StringType>
void KestProperties<StringType>::loadProperties(int argc, char** argv,
                                                char separator) requires std::same_as<StringType, std::string> {
    for (int i = 0; i < argc; ++i)
        addNarrowLine(argv[i], separator);
}

template <typename StringType>
void KestProperties<StringType>::loadProperties(const std::vector<std::string>& lines,
                                                char separator) requires std::same_as<StringType, std::string> {
    for (const std::string& line : lines)
        addNarrowLine(line, separator);
}

// Written for any type: some compilers instantiate its callers even where their constraint rules them out.
template <typename StringType>
void KestProperties<StringType>::addNarrowLine(std::string_view line, char separator) {
    addLine(StringType(line.begin(), line.end()), static_cast<CharType>(separator));
}

template <typename StringType>
bool KestProperties<StringType>::saveProperties(const std::string& fileName) {
    if (!savePropertiesImpl(fileName)) fail(kCannotOpenToSave, fileName);
    return true;
}

template <typename StringType>
bool KestProperties<StringType>::loadPropertiesImpl(const std::string& fileName, CharType separator) {
    internal::logRecord(kFileOperationLevel, kLoading, fileName);
    const platform::Stream stream = platform::openStream(fileName.c_str(), platform::StreamMode::kReadBinary);
    if (stream == nullptr) {
        internal::logRecord(kFileOperationLevel, kCannotOpenToLoad, fileName);
        return false;
    }
    internal::PropertyLineReader<CharType> reader(stream.get());
    for (std::basic_string_view<CharType> line; reader.next(line);)
        addLine(View(line.data(), line.size()), separator);
    if (reader.failed()) logAndFail(kCannotRead, fileName);
    logEntries();
    return true;
}

template <typename StringType>
bool KestProperties<StringType>::savePropertiesImpl(const std::string& fileName) {
    internal::logRecord(kFileOperationLevel, kSaving, fileName);
    const internal::FileEncoding encoding = encodingFor(m_properties);
    platform::Stream stream = platform::openStream(fileName.c_str(), internal::streamMode(encoding));
    if (stream == nullptr) {
        internal::logRecord(kFileOperationLevel, kCannotOpenToSave, fileName);
        return false;
    }
    internal::PropertyFileWriter<CharType> writer(std::move(stream), encoding);
    for (const auto& [name, values] : m_properties)
        writer.writeLine(textForFile(name), textForFile(values.front()));
    if (!writer.finish()) logAndFail(kCannotWrite, fileName);
    return true;
}

template <typename StringType>
void KestProperties<StringType>::addLine(View line, CharType separator) {
    try {
        const internal::PropertyLine<View> parsed = internal::parsePropertyLine(line, separator);
        if (!parsed.name.empty()) add(StringType(parsed.name), parsed.value);
    } catch (const KestException&) {
        // A line that cannot be added is dropped, so that the others of its source are still taken.
    }
}

template <typename StringType>
void KestProperties<StringType>::add(StringType name, View value) {
    ValueList values;
    values.emplace_back(value);
    KestCriticalSection guard(m_lock, true);
    const std::size_t count = m_properties.size();
    // Saved files are in order, so a name that is new most often belongs at the end.
    const auto entry = m_properties.try_emplace(m_properties.end(), std::move(name), std::move(values));
    if (m_properties.size() != count) return;
    if (m_multiValued) {
        entry->second.push_back(std::move(values.front()));
    } else {
        entry->second.front() = std::move(values.front());
    }
}

template <typename StringType>
const StringType* KestProperties<StringType>::find(const StringType& name) const {
    const auto entry = m_properties.find(name);
    return entry == m_properties.end() ? nullptr : &entry->second.front();
}

template <typename StringType>
void KestProperties<StringType>::logEntries() const {
    if (internal::currentLogLevel() != kDumpLevel) return;
    // Others may be loading into this object too, and nothing is logged under a lock.
    KestCriticalSection guard(m_lock, true);
    const PropertyMap properties(m_properties);
    guard.unlock();
    for (const auto& [name, values] : properties) {
        const StringType& value = values.front();
        internal::logRecord(kDumpLevel, "DebugPrintProperty: ", name, "=", value, " (", static_cast<int>(value.size()),
                            ")");
    }
}

template class KestPropertyIterator<std::string>;
template class KestPropertyIterator<string_ci>;
template class KestPropertyIterator<wstring16>;
template class KestPropertyIterator<wstring16_ci>;
template class KestProperties<std::string>;
template class KestProperties<string_ci>;
template class KestProperties<wstring16>;
template class KestProperties<wstring16_ci>;

}  // namespace KestSupport
