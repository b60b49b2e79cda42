// Encryption of byte strings with the block cipher Blowfish (B. Schneier, 1993): 64-bit blocks, 16 rounds.
//
// The class exists to read and write data that was encrypted with this cipher. Do not use it for new formats: its
// blocks are small, there is no authentication, and equal plaintexts with equal keys have equal ciphertexts, because
// the initial vector is always zero.
//
// Data whose length is not a multiple of 8 bytes is padded with zero bytes, in both directions. The number of these
// bytes is not stored, so a decrypted plaintext keeps them at its end. Ciphertexts are raw bytes.
//
// A key may have any length except zero. It is repeated to 72 bytes; later bytes are ignored.
//
// The object keeps the last key and its key schedule, which makes further data with the same key cheap. It overwrites
// both when the key changes and in the destructor. The caller overwrites its own copies of keys and plaintexts.
//
// Threads: one thread at a time may use an object, also to decrypt. Copies are independent.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>

#include <cstdint>
#include <string>

namespace KestSupport {

namespace internal {
/// The expanded key. Defined here because a KestEncryption contains it.
struct BlowfishSchedule {
    std::uint32_t p[18];
    std::uint32_t s[4][256];
};
}  // namespace internal

/// One block of the cipher. Bytes 0 to 3 of a block are the left half, bytes 4 to 7 the right half, both big-endian.
struct KEST_SUPPORT_EXPORT SBlock {
    /// A block of zeros, of two words, or of those of the source.
    SBlock();
    SBlock(unsigned int left, unsigned int right);
    SBlock(const SBlock& source);
    virtual ~SBlock();
    SBlock& operator=(const SBlock& source);
    /// Combines both words by exclusive or.
    SBlock& operator^=(const SBlock& other);

    std::uint32_t m_left = 0;   ///< bytes 0 to 3
    std::uint32_t m_right = 0;  ///< bytes 4 to 7
};

/// Encrypts and decrypts with a key, and keeps the schedule of the last one.
class KEST_SUPPORT_EXPORT KestEncryption {
  public:
    /// Normal uses the mode ECB, High the mode CBC. The key schedule is the same.
    enum Strength : int { Normal, High };
    /// ECB: each block separately, so equal blocks have equal ciphertexts. CBC: each block is combined with the
    /// ciphertext of the block before it.
    enum tMode : int { ECB, CBC };

    /// The words of pi with which every key schedule begins.
    static const unsigned int arrwPBoxInit[18];
    static const unsigned int arrwSBoxInit[4][256];

    /// With the strength High.
    KestEncryption();
    /// If the value is not a Strength, encryption and decryption throw KestInvalidEncryptionException with
    /// "KestInvalidEncryptionException - The mode is not initialized properly" until a strength is set.
    KestEncryption(const Strength& strength);
    /// A copy computes its key schedule again when it is first used. After an exception the target of an assignment
    /// encrypts and decrypts as before.
    KestEncryption(KestEncryption& source);
    KestEncryption& operator=(KestEncryption& source);
    virtual ~KestEncryption();

    /// Encrypts into `out`. If `out` is shorter than the padded data, it becomes as long; otherwise it keeps its length
    /// and the bytes after those blocks. `data` and `out` may be the same string. Empty data leave an empty `out`
    /// unchanged, with any key.
    ///
    /// An empty key is refused with "KestInvalidEncryptionException - The key passed is empty", after `out` was made
    /// longer.
    virtual void encryptData(const std::string& key, const std::string& data, std::string& out);
    /// The same, but returns false for an empty key, with the text without its prefix in `message`.
    virtual bool encryptDataImpl(const std::string& key, const std::string& data, std::string& out,
                                 std::string& message);
    /// Decrypts into `out` in the same way. But an empty key is refused also for empty data, and empty data make `out`
    /// empty.
    virtual void decryptData(const std::string& key, std::string& data, std::string& out);
    /// The same, but returns false for an empty key, as encryptDataImpl does.
    virtual bool decryptDataImpl(const std::string& key, std::string& data, std::string& out, std::string& message);

    /// Returns the strength that was set last.
    virtual Strength getStrength() const;
    /// A value that is not a Strength only changes the result of getStrength.
    virtual void setStrength(const Strength& strength);

    /// Sets whether the key schedule may be used again for its key. After false, the next use computes it again; after
    /// true, a copy does not compute it again.
    void setInit(const bool& initialized);

  private:
    bool prepare(const std::string& key);
    void initialize(const std::string& key);
    void copyValues(KestEncryption& source);

    Strength m_strength;
    bool m_initialized = false;
    std::string m_key;  // empty, or the key of the schedule
    tMode m_mode{-1};   // neither ECB nor CBC until a strength has been set
    SBlock m_initialVector;
    internal::BlowfishSchedule m_schedule{};
};

}  // namespace KestSupport
