#include "support/properties.h"

#include <algorithm>
#include <type_traits>

#include "platform/file_replacement.h"
#include "platform/file_stream.h"
#include "platform/uninterrupted.h"
#include "support/exceptions.h"
#include "text/log/internal_log.h"
#include "text/properties/property_line.h"
#include "text/properties/property_reader.h"
#include "text/properties/property_table.h"
#include "text/properties/property_writer.h"

namespace KestSupport {
namespace {

// Every text names <StringType>, for each of the four types.
constexpr const char* kLoading = "KestProperties<StringType>::loadProperties: from file ";
constexpr const char* kCannotOpenToLoad = "KestProperties<StringType>::loadProperties: couldn't open file ";
constexpr const char* kCannotRead = "KestProperties<StringType>::loadProperties: couldn't read file ";
constexpr const char* kSaving = "KestProperties<StringType>::saveProperties: to file ";
constexpr const char* kCannotOpenToSave = "KestProperties<StringType>::saveProperties: couldn't open file ";
constexpr const char* kCannotWrite = "KestProperties<StringType>::saveProperties: couldn't write file ";
constexpr const char* kSavingAtomically = "KestProperties<StringType>::saveAtomically: to file ";
constexpr const char* kCannotOpenToReplace = "KestProperties<StringType>::saveAtomically: couldn't open file ";
constexpr const char* kCannotReplace = "KestProperties<StringType>::saveAtomically: couldn't write file ";

constexpr internal::LogLevel kFileOperationLevel = internal::LogLevel::operation;
constexpr internal::LogLevel kDumpLevel = internal::LogLevel::trace;

[[noreturn]] void fail(const char* what, const std::string& fileName) {
    throw KestException(what + fileName, 0);
}

[[noreturn]] void logAndFail(const char* what, const std::string& fileName) {
    internal::logRecord(kFileOperationLevel, what, fileName);
    fail(what, fileName);
}

// The text to write: up to its first NUL, with the plain traits of its character type.
template <typename StringType>
auto textForFile(const StringType& text) {
    const internal::basic_text_view<typename StringType::value_type> all(text.data(), text.size());
    return all.substr(0, all.find(typename StringType::value_type{}));
}

template <typename StringType>
internal::FileEncoding encodingFor(const internal::PropertyTable<StringType>& table) {
    bool isExpressible = true;
    if constexpr (!std::is_same_v<typename StringType::value_type, char>) {
        const internal::FileText fileText;
        std::string bytes;
        table.visitInOrder([&](const auto& entry) {
            bytes.clear();
            isExpressible = isExpressible && fileText.narrow(textForFile(entry.name()), bytes) &&
                            fileText.narrow(textForFile(entry.value), bytes);
        });
    }
    return isExpressible ? internal::FileEncoding::kBytes : internal::FileEncoding::kUtf16;
}

template <typename StringType>
std::vector<StringType> namesOf(const internal::PropertyTable<StringType>& table) {
    std::vector<StringType> names;
    table.visitInOrder([&](const auto& entry) { names.emplace_back(entry.name()); });
    return names;
}

}  // namespace

template <typename StringType>
KestPropertyIterator<StringType>::~KestPropertyIterator() = default;

template <typename StringType>
void KestPropertyIterator<StringType>::handleProperty(const std::pair<const StringType, std::vector<StringType>>&) {}

template <typename StringType>
KestProperties<StringType>::KestProperties() : KestProperties(true) {}

template <typename StringType>
KestProperties<StringType>::KestProperties(bool multiValued)
    : m_pTable(std::make_unique<Table>()), m_multiValued(multiValued) {}

template <typename StringType>
KestProperties<StringType>::KestProperties(const KestProperties& other)
    : KestObjectBase(),
      KestCollaborator(),
      m_pTable(std::make_unique<Table>(*other.m_pTable)),
      m_multiValued(other.m_multiValued) {}

template <typename StringType>
KestProperties<StringType>& KestProperties<StringType>::operator=(const KestProperties& other) {
    if (this == &other) return *this;
    auto table = std::make_unique<Table>(*other.m_pTable);  // released after the lock
    KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pTable.swap(table);
    m_multiValued = other.m_multiValued;
    return *this;
}

template <typename StringType>
KestProperties<StringType>::~KestProperties() = default;

template <typename StringType>
void KestProperties<StringType>::addProperty(const StringType& name, const StringType& value) {
    if (!name.empty()) add(name, value);
}

// The table is changed as a whole: a thread that was killed in between would leave one that another thread cannot use.
template <typename StringType>
void KestProperties<StringType>::setProperty(const StringType& name, const StringType& value) {
    if (name.empty()) return;
    StringType copy(value);
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pTable->findOrAdd(key).first->value = std::move(copy);
}

template <typename StringType>
void KestProperties<StringType>::addProperty(const StringType& line, CharType separator) {
    addLine(line, separator);
}

template <typename StringType>
void KestProperties<StringType>::addPropertyforWSmanDA(const StringType& line) {
    if (line.empty() || line.front() == CharType{'#'}) return;
    try {
        add(line, View(line).substr(line.size()));
    } catch (const KestException&) {
        // The caller continues with its next line.
    }
}

template <typename StringType>
const StringType& KestProperties<StringType>::getProperty(const StringType& name,
                                                          const StringType& defaultValue) const {
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const auto* const entry = m_pTable->find(key);
    return entry == nullptr ? defaultValue : entry->value;
}

template <typename StringType>
StringType KestProperties<StringType>::getProperty(const StringType& name) const {
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    if (const auto* const entry = m_pTable->find(key); entry != nullptr) return entry->value;
    guard.unlock();
    throw KestPropertyNotFound(name);
}

template <typename StringType>
bool KestProperties<StringType>::getPropertyValue(const StringType& name, StringType& value) const {
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const auto* const entry = m_pTable->find(key);
    if (entry == nullptr) return false;
    value = entry->value;
    return true;
}

template <typename StringType>
std::vector<StringType> KestProperties<StringType>::getPropertyValues(const StringType& name) const {
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const auto* const entry = m_pTable->find(key);
    return entry == nullptr ? ValueList() : m_pTable->valuesOf(*entry);
}

template <typename StringType>
void KestProperties<StringType>::removeProperty(const StringType& name) {
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pTable->erase(key);
}

template <typename StringType>
std::vector<StringType> KestProperties<StringType>::getNames() const {
    KestCriticalSection guard(m_lock, true);
    return namesOf(inOrder());
}

template <typename StringType>
std::map<StringType, std::vector<StringType>> KestProperties<StringType>::getProperties() const {
    PropertyMap properties;
    const Table& table = inOrder();
    table.visitInOrder([&](const auto& entry) {
        properties.emplace_hint(properties.end(), StringType(entry.name()), table.valuesOf(entry));
    });
    return properties;
}

template <typename StringType>
void KestProperties<StringType>::forEach(KestPropertyIterator<StringType>& it) const {
    for (const StringType& name : namesOf(inOrder())) {
        const auto* const entry = m_pTable->find(typename Table::Key(name));
        if (entry != nullptr) it.handleProperty({name, m_pTable->valuesOf(*entry)});
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

// Compiles for any type: some compilers instantiate its callers even for types that their constraint excludes.
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
bool KestProperties<StringType>::loadPropertiesWithoutMark(const std::string& fileName, CharType separator) {
    if (!load(fileName, separator, true)) fail(kCannotOpenToLoad, fileName);
    return true;
}

template <typename StringType>
bool KestProperties<StringType>::loadPropertiesImpl(const std::string& fileName, CharType separator) {
    return load(fileName, separator, false);
}

template <typename StringType>
bool KestProperties<StringType>::load(const std::string& fileName, CharType separator, bool skipsUtf8Mark) {
    internal::logRecord(kFileOperationLevel, kLoading, fileName);
    const platform::Stream stream = platform::openStream(fileName.c_str(), platform::StreamMode::readBinary);
    if (stream == nullptr) {
        internal::logRecord(kFileOperationLevel, kCannotOpenToLoad, fileName);
        return false;
    }
    internal::PropertyLineReader<CharType> reader(stream.get(), skipsUtf8Mark);
    for (internal::basic_text_view<CharType> line; reader.next(line);)
        addLine(View(line.data(), line.size()), separator);
    if (reader.failed()) logAndFail(kCannotRead, fileName);
    logEntries();
    return true;
}

template <typename StringType>
bool KestProperties<StringType>::savePropertiesImpl(const std::string& fileName) {
    internal::logRecord(kFileOperationLevel, kSaving, fileName);
    const Table& table = inOrder();
    const internal::FileEncoding encoding = encodingFor(table);
    platform::Stream stream = platform::openStream(fileName.c_str(), internal::streamMode(encoding));
    if (stream == nullptr) {
        internal::logRecord(kFileOperationLevel, kCannotOpenToSave, fileName);
        return false;
    }
    internal::PropertyFileWriter<CharType> writer(std::move(stream), encoding);
    table.visitInOrder(
        [&](const auto& entry) { writer.writeLine(textForFile(entry.name()), textForFile(entry.value)); });
    if (!writer.finish()) logAndFail(kCannotWrite, fileName);
    return true;
}

template <typename StringType>
bool KestProperties<StringType>::saveAtomically(const std::string& fileName) {
    internal::logRecord(kFileOperationLevel, kSavingAtomically, fileName);
    const Table& table = inOrder();
    const internal::FileEncoding encoding = encodingFor(table);
    platform::FileReplacement replacement;
    platform::Stream stream = replacement.open(fileName.c_str(), internal::streamMode(encoding));
    if (stream == nullptr) logAndFail(kCannotOpenToReplace, fileName);
    internal::PropertyFileWriter<CharType> writer(std::move(stream), encoding);
    table.visitInOrder(
        [&](const auto& entry) { writer.writeLine(textForFile(entry.name()), textForFile(entry.value)); });
    if (!writer.finish() || !replacement.commit()) logAndFail(kCannotReplace, fileName);
    return true;
}

template <typename StringType>
void KestProperties<StringType>::addLine(View line, CharType separator) {
    try {
        const internal::PropertyLine<View> parsed = internal::parsePropertyLine(line, separator);
        if (!parsed.name.empty()) add(parsed.name, parsed.value);
    } catch (const KestException&) {
        // The caller continues with its next line.
    }
}

template <typename StringType>
void KestProperties<StringType>::add(View name, View value) {
    StringType copy(value);
    const typename Table::Key key(name);
    KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    const auto [entry, isNew] = m_pTable->findOrAdd(key);
    if (isNew || !m_multiValued) {
        entry->value = std::move(copy);
    } else {
        m_pTable->addFurtherValue(*entry, std::move(copy));
    }
}

// The sorting may change the table, so it takes the lock. Reading in order needs none.
template <typename StringType>
auto KestProperties<StringType>::inOrder() const -> const Table& {
    KestCriticalSection guard(m_lock, true);
    m_pTable->prepareOrder();
    return *m_pTable;
}

template <typename StringType>
void KestProperties<StringType>::logEntries() const {
    if (!internal::isLogLevel(kDumpLevel)) return;
    // Other threads may load into this object. No record is written under a lock.
    KestCriticalSection guard(m_lock, true);
    const PropertyMap properties = getProperties();
    guard.unlock();
    for (const auto& [name, values] : properties) {
        const StringType& value = values.front();
        internal::logRecord(kDumpLevel, "DebugPrintProperty: ", name, "=", value, " (", static_cast<int>(value.size()),
                            ")");
    }
}

template class KEST_SUPPORT_EXPORT_DEFINED KestPropertyIterator<std::string>;
template class KEST_SUPPORT_EXPORT_DEFINED KestPropertyIterator<string_ci>;
template class KEST_SUPPORT_EXPORT_DEFINED KestPropertyIterator<wstring16>;
template class KEST_SUPPORT_EXPORT_DEFINED KestPropertyIterator<wstring16_ci>;
template class KEST_SUPPORT_EXPORT_DEFINED KestProperties<std::string>;
template class KEST_SUPPORT_EXPORT_DEFINED KestProperties<string_ci>;
template class KEST_SUPPORT_EXPORT_DEFINED KestProperties<wstring16>;
template class KEST_SUPPORT_EXPORT_DEFINED KestProperties<wstring16_ci>;

}  // namespace KestSupport
