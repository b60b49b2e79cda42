// The specifications and the usage text of KestOptionTable.
#include <algorithm>
#include <string_view>
#include <utility>

#include "support/program_options.h"

namespace KestSupport {
namespace {

constexpr std::size_t kGap = 2;  // blanks before the names and before a description

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
}

// Returns whether each sequence has the length that its first byte says.
bool isUtf8(std::string_view text) {
    std::size_t missing = 0;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (continuesCharacter(byte) != (missing > 0)) return false;
        if (missing > 0) {
            --missing;
        } else if (value >= 0xC0) {
            missing = value >= 0xF0 ? 3 : value >= 0xE0 ? 2 : 1;
        }
    }
    return missing == 0;
}

std::size_t columnsOf(std::string_view text) {
    if (!isUtf8(text)) return text.size();
    return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continuesCharacter));
}

std::string namesOf(const KestOption& option, char beforeData) {
    const std::string letter{'-', option.letter};
    std::string names = option.letter == '\0' ? "   " : letter + (option.name.empty() ? "" : ",");
    if (!option.name.empty()) names += " --" + option.name;
    if (option.data.empty()) return names;
    return names + (option.name.empty() ? ' ' : beforeData) + option.data;
}

// Appends words to lines that begin at a column.
class Wrapping {
  public:
    Wrapping(std::string& text, std::size_t indent, std::size_t width)
        : m_text(text), m_indent(indent), m_width(width) {}

    void add(std::string_view description) {
        while (!description.empty()) {
            const std::size_t end = std::min(description.find_first_of(" \n"), description.size());
            if (end > 0) addWord(description.substr(0, end));
            if (end < description.size() && description[end] == '\n') beginLine();
            description.remove_prefix(std::min(end + 1, description.size()));
        }
    }

    void beginLine() {
        m_text += '\n';
        m_column = 0;
    }

    /// Continues a line whose first columns are filled.
    void continueAt(std::size_t column) { m_column = column; }

  private:
    void addWord(std::string_view word) {
        const std::size_t columns = columnsOf(word);
        // Blanks are written before a word only, so that no line ends with them.
        std::size_t blanks = m_column < m_indent ? m_indent - m_column : 1;
        if (m_column > m_indent && m_width != 0 && m_column + blanks + columns > m_width) {
            beginLine();
            blanks = m_indent;
        }
        m_text.append(blanks, ' ').append(word);
        m_column += blanks + columns;
    }

    std::string& m_text;
    const std::size_t m_indent;
    const std::size_t m_width;
    std::size_t m_column = 0;
};

}  // namespace

KestOptionTable::KestOptionTable(std::initializer_list<KestOption> options) : m_options(options) {}
KestOptionTable::KestOptionTable(std::vector<KestOption> options) : m_options(std::move(options)) {}
KestOptionTable::~KestOptionTable() = default;

std::string KestOptionTable::shortSpec() const {
    std::string spec;
    for (const KestOption& option : m_options) {
        if (option.letter != '\0') spec.append(1, option.letter).append(option.data.empty() ? "" : ":");
    }
    return spec;
}

std::string KestOptionTable::longSpec() const {
    std::string spec = ":";
    for (const KestOption& option : m_options) {
        if (!option.name.empty()) spec.append(option.name).append(option.data.empty() ? ":" : ".:");
    }
    return spec;
}

std::string KestOptionTable::usage(std::size_t width) const {
    return usage(' ', width);
}

std::string KestOptionTable::usage(KestGnuOptions, std::size_t width) const {
    return usage('=', width);
}

std::string KestOptionTable::usage(char beforeData, std::size_t width) const {
    const auto fits = [&](std::size_t columns) { return width == 0 || columns <= width / 3; };
    std::size_t widest = 0;
    for (const KestOption& option : m_options) {
        const std::size_t columns = columnsOf(namesOf(option, beforeData));
        if (fits(columns)) widest = std::max(widest, columns);
    }
    std::string text;
    Wrapping lines(text, kGap + widest + kGap, width);
    for (const KestOption& option : m_options) {
        const std::string names = namesOf(option, beforeData);
        text.append(kGap, ' ').append(names);
        lines.continueAt(kGap + columnsOf(names));
        if (!fits(columnsOf(names)) && !option.description.empty()) lines.beginLine();
        lines.add(option.description);
        lines.beginLine();
    }
    return text;
}

}  // namespace KestSupport
