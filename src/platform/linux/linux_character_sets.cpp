// Character sets through iconv, and the character set of a locale.
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string_view>
#include <utility>

#include "platform/common/fault_seam.h"
#include "platform/emulated/single_byte_set.h"
#include "platform/thread.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

constexpr const char* kNativeUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// One conversion in progress.
class Iconv {
  public:
    Iconv(const char* to, const char* from) {
        if (const int error = injectedFault("openCharacterSet"); error != 0) {
            errno = error;
            return;
        }
        const RuntimeCall call;
        m_handle = iconv_open(to, from);
        m_open = reinterpret_cast<std::intptr_t>(m_handle) != -1;
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    ~Iconv() {
        if (!m_open) return;
        const RuntimeCall call;
        iconv_close(m_handle);
    }

    bool isOpen() const { return m_open; }

    /// Returns to the initial state.
    void restart() { iconv(m_handle, nullptr, nullptr, nullptr, nullptr); }

    /// Converts to the end of the source, and returns 0, or until something stops it, and returns an errno value. An
    /// empty source ends the text: the call writes the rest of the output and returns to the initial state.
    int run(std::string_view& source, char*& dest, std::size_t& space) {
        // iconv takes a writable source but does not change it.
        auto* in = const_cast<char*>(source.data());
        std::size_t left = source.size();
        const std::size_t result = iconv(m_handle, left == 0 ? nullptr : &in, &left, &dest, &space);
        source.remove_prefix(source.size() - left);
        return result == static_cast<std::size_t>(-1) ? errno : 0;
    }

  private:
    iconv_t m_handle = nullptr;
    bool m_open = false;
};

// The destination. Converted bytes pass through a buffer, since iconv needs more space than some results.
struct Output {
    char* dest;
    std::size_t capacity;
    std::size_t written = 0;

    // Converts to the end of the source, or to something that cannot be converted. Returns false if the result does not
    // fit.
    bool take(Iconv& conversion, std::string_view& source) {
        for (int error = E2BIG; error == E2BIG;) {
            char piece[512];
            char* end = piece;
            std::size_t space = sizeof piece;
            error = conversion.run(source, end, space);
            const auto length = static_cast<std::size_t>(end - piece);
            if (length > capacity - written) return false;
            std::copy_n(piece, length, dest + written);
            written += length;
        }
        return true;
    }
};

// The idle conversions in one direction. Opening one costs 260 ns, which is more than most texts (35 ns for six
// characters). A conversion has a state, so a thread takes one out of the pool for each text, and opens another if the
// pool is empty. The constructor opens one. If all are in use and the system refuses another, a thread waits for one.
class ConversionPool {
  public:
    ConversionPool(std::string to, std::string from) : m_to(std::move(to)), m_from(std::move(from)) { putBack(open()); }
    ConversionPool(const ConversionPool&) = delete;
    ConversionPool& operator=(const ConversionPool&) = delete;
    ~ConversionPool() {
        for (auto& slot : m_slots)
            delete slot.load();
    }

    bool isOpen() const { return m_slots[0] != nullptr; }

    std::unique_ptr<Iconv> take() const {
        for (;;) {
            for (auto& slot : m_slots) {
                if (Iconv* const idle = slot.exchange(nullptr)) return std::unique_ptr<Iconv>(idle);
            }
            if (auto another = open(); another != nullptr) return another;
            sleepThread(1);
        }
    }

    void putBack(std::unique_ptr<Iconv> conversion) const {
        for (auto& slot : m_slots) {
            Iconv* empty = nullptr;
            if (!slot.compare_exchange_strong(empty, conversion.get())) continue;
            static_cast<void>(conversion.release());
            return;
        }
    }

  private:
    std::unique_ptr<Iconv> open() const {
        std::unique_ptr<Iconv> conversion(new (std::nothrow) Iconv(m_to.c_str(), m_from.c_str()));
        if (conversion != nullptr && !conversion->isOpen()) conversion.reset();
        return conversion;
    }

    const std::string m_to;
    const std::string m_from;
    mutable std::array<std::atomic<Iconv*>, 4> m_slots{};
};

// A set that iconv converts, in which a character may have several bytes.
class IconvSet : public CharacterSet {
  public:
    explicit IconvSet(const std::string& name) : m_widening(kNativeUtf16, name), m_narrowing(name, kNativeUtf16) {}

    bool isOpen() const { return m_widening.isOpen() && m_narrowing.isOpen(); }

    std::size_t widen(const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) const override {
        return convert(m_widening, {text, length}, "?", {reinterpret_cast<char*>(dest), capacity * sizeof *dest}) /
               sizeof *dest;
    }

    std::size_t narrow(const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity) const override {
        constexpr unsigned short kQuestionMark = '?';
        return convert(m_narrowing, {reinterpret_cast<const char*>(text), length * sizeof *text},
                       {reinterpret_cast<const char*>(&kQuestionMark), sizeof kQuestionMark}, {dest, capacity});
    }

  private:
    static std::size_t convert(const ConversionPool& pool, std::string_view source, std::string_view questionMark,
                               Output output) {
        const Uninterrupted whileConversionIsTaken;
        std::unique_ptr<Iconv> conversion = pool.take();
        const bool fits = convert(*conversion, source, questionMark, output);
        pool.putBack(std::move(conversion));
        return fits ? output.written : 0;
    }

    // The question mark is in the encoding of the source and is converted like the text, so that a set with shift
    // states is correct. It has the size of a unit of the source.
    static bool convert(Iconv& conversion, std::string_view source, std::string_view questionMark, Output& output) {
        conversion.restart();
        while (!source.empty()) {
            if (!output.take(conversion, source)) return false;
            if (source.empty()) break;
            source.remove_prefix(questionMark.size());
            std::string_view replacement = questionMark;
            if (!output.take(conversion, replacement)) return false;
        }
        return output.take(conversion, source);
    }

    const ConversionPool m_widening;
    const ConversionPool m_narrowing;
};

enum class ByteKind { character, unknown, lead };

// Reads the character of one byte.
ByteKind readByte(Iconv& conversion, char byte, unsigned short& unit) {
    std::string_view source(&byte, 1);
    unsigned short units[8] = {};
    char* dest = reinterpret_cast<char*>(units);
    std::size_t space = sizeof units;
    const int error = conversion.run(source, dest, space);
    source = {};
    conversion.run(source, dest, space);
    if (error == EINVAL) return ByteKind::lead;
    unit = units[0];
    return error == 0 && space == sizeof units - sizeof unit ? ByteKind::character : ByteKind::unknown;
}

std::unique_ptr<CharacterSet> openIconvSet(const std::string& name) {
    auto set = std::make_unique<IconvSet>(name);
    if (!set->isOpen()) return nullptr;
    return set;
}

}  // namespace

std::string installedCharset(const std::string& locale) {
    const RuntimeCall call;
    const locale_t loaded = newlocale(LC_CTYPE_MASK, locale.c_str(), nullptr);
    if (loaded == nullptr) return {};
    const std::string charset = nl_langinfo_l(CODESET, loaded);
    freelocale(loaded);
    // The character set of C and POSIX.
    return charset == "ANSI_X3.4-1968" ? std::string() : charset;
}

std::unique_ptr<CharacterSet> openCharacterSet(const std::string& name) {
    const RuntimeCall call;
    Iconv conversion(kNativeUtf16, name.c_str());
    if (!conversion.isOpen()) return nullptr;
    SingleByteSet::Units units;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const ByteKind kind = readByte(conversion, static_cast<char>(i), units[i]);
        if (kind == ByteKind::lead) return openIconvSet(name);
        if (kind == ByteKind::unknown) units[i] = '?';
    }
    return std::make_unique<SingleByteSet>(units);
}

}  // namespace KestSupport::platform
