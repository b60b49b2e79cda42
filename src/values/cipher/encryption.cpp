#include "support/encryption.h"

#include <algorithm>
#include <cstddef>

#include "support/exceptions.h"
#include "values/cipher/blowfish.h"

namespace KestSupport {
namespace {

using internal::kBlowfishBlockSize;

std::size_t paddedLength(std::size_t length) {
    return (length + kBlowfishBlockSize - 1) / kBlowfishBlockSize * kBlowfishBlockSize;
}

void extend(std::string& out, std::size_t length) {
    if (out.size() < length) out.resize(length);
}

/// Calls `transform` for the whole blocks of the data, then for the rest, padded with zero bytes.
template <typename Transform>
void transformPadded(const std::string& data, std::string& out, const Transform& transform) {
    const auto* const from = reinterpret_cast<const unsigned char*>(data.data());
    auto* const to = reinterpret_cast<unsigned char*>(out.data());
    const std::size_t rest = data.size() % kBlowfishBlockSize;
    const std::size_t whole = data.size() - rest;
    transform(from, to, whole / kBlowfishBlockSize);
    if (rest == 0) return;
    unsigned char last[kBlowfishBlockSize] = {};
    std::copy_n(from + whole, rest, last);
    transform(last, to + whole, 1);
    internal::wipe(last, sizeof last);
}

constexpr char kEmptyKey[] = "The key passed is empty";
constexpr char kNoSchedule[] = "Not properly initialized";

bool refuse(const char* reason, std::string& message) {
    message = reason;
    return false;
}

void wipeText(std::string& text) {
    text.resize(text.capacity());  // the bytes of a longer text before it too
    internal::wipe(text.data(), text.size());
    text.clear();
}

}  // namespace

SBlock::SBlock() = default;
SBlock::SBlock(unsigned int left, unsigned int right) : m_left(left), m_right(right) {}
SBlock::SBlock(const SBlock& source) = default;
SBlock::~SBlock() = default;
SBlock& SBlock::operator=(const SBlock& source) = default;

SBlock& SBlock::operator^=(const SBlock& other) {
    m_left ^= other.m_left;
    m_right ^= other.m_right;
    return *this;
}

KestEncryption::KestEncryption() : KestEncryption(High) {}

KestEncryption::KestEncryption(const Strength& strength) {
    KestEncryption::setStrength(strength);
}

KestEncryption::KestEncryption(KestEncryption& source) {
    copyValues(source);
}

KestEncryption& KestEncryption::operator=(KestEncryption& source) {
    if (this != &source) copyValues(source);
    return *this;
}

KestEncryption::~KestEncryption() {
    wipeText(m_key);
    internal::wipe(&m_schedule, sizeof m_schedule);
}

void KestEncryption::encryptData(const std::string& key, const std::string& data, std::string& out) {
    std::string message;
    if (!encryptDataImpl(key, data, out, message)) throw KestInvalidEncryptionException(message);
}

bool KestEncryption::encryptDataImpl(const std::string& key, const std::string& data, std::string& out,
                                     std::string& message) {
    extend(out, paddedLength(data.size()));
    if (out.empty()) return true;
    if (key.empty()) return refuse(kEmptyKey, message);
    if (!prepare(key)) return refuse(kNoSchedule, message);
    internal::BlowfishBlock chain{m_initialVector.m_left, m_initialVector.m_right};
    transformPadded(data, out, [&](const unsigned char* from, unsigned char* to, std::size_t blocks) {
        if (m_mode == ECB) return internal::encryptEcb(m_schedule, from, to, blocks);
        internal::encryptCbc(m_schedule, chain, from, to, blocks);
    });
    return true;
}

void KestEncryption::decryptData(const std::string& key, std::string& data, std::string& out) {
    std::string message;
    if (!decryptDataImpl(key, data, out, message)) throw KestInvalidEncryptionException(message);
}

bool KestEncryption::decryptDataImpl(const std::string& key, std::string& data, std::string& out,
                                     std::string& message) {
    extend(out, paddedLength(data.size()));
    if (key.empty()) return refuse(kEmptyKey, message);
    if (data.empty()) {
        out.clear();
        return true;
    }
    if (!prepare(key)) return refuse(kNoSchedule, message);
    internal::BlowfishBlock chain{m_initialVector.m_left, m_initialVector.m_right};
    transformPadded(data, out, [&](const unsigned char* from, unsigned char* to, std::size_t blocks) {
        if (m_mode == ECB) return internal::decryptEcb(m_schedule, from, to, blocks);
        internal::decryptCbc(m_schedule, chain, from, to, blocks);
    });
    return true;
}

KestEncryption::Strength KestEncryption::getStrength() const {
    return m_strength;
}

void KestEncryption::setStrength(const Strength& strength) {
    m_strength = strength;
    m_initialVector = SBlock(0, 0);
    if (strength != Normal && strength != High) return;
    m_mode = strength == High ? CBC : ECB;
    m_initialized = false;
}

void KestEncryption::setInit(const bool& initialized) {
    m_initialized = initialized;
}

bool KestEncryption::prepare(const std::string& key) {
    if (!m_initialized || key != m_key) initialize(key);
    return m_initialized;
}

void KestEncryption::initialize(const std::string& key) {
    if (m_mode != ECB && m_mode != CBC) throw KestInvalidEncryptionException("The mode is not initialized properly");
    m_initialized = false;
    wipeText(m_key);
    m_key = key;
    internal::expandBlowfishKey(m_schedule, reinterpret_cast<const unsigned char*>(key.data()), key.size());
    m_initialized = true;
}

void KestEncryption::copyValues(KestEncryption& source) {
    const Strength strength = source.getStrength();
    m_initialized = false;
    wipeText(m_key);
    m_key = source.m_key;  // if this fails, the object only computes its key schedule again
    m_strength = strength;
    m_mode = source.m_mode;
    m_initialVector = source.m_initialVector;
    m_schedule = source.m_schedule;
}

}  // namespace KestSupport
