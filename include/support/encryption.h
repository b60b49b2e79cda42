// Encryption of byte strings with the block cipher Blowfish (B. Schneier, 1993): 64-bit blocks, 16 rounds.
//
// The cipher is kept for what was encrypted with it. Its blocks are small, there is no authentication, and equal
// plaintexts with equal keys give equal ciphertexts, since the initial vector is always zero; take something else for
// new data.
//
// Data that is no whole number of 8-byte blocks is filled up with zero bytes, in both directions. Nothing records how
// many: a plaintext that was decrypted keeps them at its end. Ciphertexts are raw bytes.
//
// A key may have any length but zero. It counts as repeated without end, of which the first 72 bytes matter.
//
// The key last used and its key schedule stay in the object, which makes further data with the same key cheap. Both are
// overwritten when another key comes and when the object goes; the caller's own copies of keys and plaintexts are the
// caller's to overwrite.
//
// Threads: one object is for one thread at a time, decryption included. Copies are independent.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>

#include <cstdint>
#include <string>

namespace KestSupport {

namespace internal {
struct BlowfishSchedule {
    std::uint32_t p[18];
    std::uint32_t s[4][256];
};
}  // namespace internal

/// One block of the cipher. Bytes 0 to 3 of its text are the left half, bytes 4 to 7 the right one, both big-endian.
struct KEST_SUPPORT_EXPORT SBlock {
    SBlock();
    SBlock(unsigned int left, unsigned int right);
    SBlock(const SBlock& source);
    virtual ~SBlock();
    SBlock& operator=(const SBlock& source);
    SBlock& operator^=(const SBlock& other);

    std::uint32_t m_left = 0;
    std::uint32_t m_right = 0;
};

class KEST_SUPPORT_EXPORT KestEncryption {
  public:
    /// Normal works in the mode ECB, High in the mode CBC. The key schedule is the same.
    enum Strength : int { Normal, High };
    /// ECB: each block on its own, so equal blocks give equal blocks. CBC: each block is combined with the ciphertext
    /// before it.
    enum tMode : int { ECB, CBC };

    /// The words of pi that every key schedule begins with.
    static const unsigned int arrwPBoxInit[18];
    static const unsigned int arrwSBoxInit[4][256];

    /// With the strength High.
    KestEncryption();
    /// With a value that is no Strength, whatever runs the key schedule throws KestInvalidEncryptionException with
    /// "KestInvalidEncryptionException - The mode is not initialized properly", until a strength is set.
    KestEncryption(const Strength& strength);
    /// A copy sets up its key schedule anew when it is first used.
    KestEncryption(KestEncryption& source);
    KestEncryption& operator=(KestEncryption& source);
    virtual ~KestEncryption();

    /// Encrypts into `out`, which is made longer where it is shorter than the data filled up to whole blocks, and
    /// otherwise keeps its length and the bytes behind those blocks. `data` and `out` may be the same string. Empty
    /// data leave an empty `out` as it is, whatever the key.
    ///
    /// An empty key is refused with "KestInvalidEncryptionException - The key passed is empty"; `out` has been made
    /// longer then.
    virtual void encryptData(const std::string& key, const std::string& data, std::string& out);
    /// The same with a result: false, and the text of the refusal without its prefix in `message`.
    virtual bool encryptDataImpl(const std::string& key, const std::string& data, std::string& out,
                                 std::string& message);
    /// Decrypts into `out` in the same way, but empty data make `out` empty, and an empty key is refused first.
    virtual void decryptData(const std::string& key, std::string& data, std::string& out);
    virtual bool decryptDataImpl(const std::string& key, std::string& data, std::string& out, std::string& message);

    virtual Strength getStrength() const;
    /// A value that is no Strength is returned by getStrength, but changes nothing else.
    virtual void setStrength(const Strength& strength);

    /// Says whether the key schedule held may be used again for the key that it was made for. False makes the next use
    /// set it up anew; true spares a copy that.
    void setInit(const bool& initialized);

  private:
    bool prepare(const std::string& key);
    void initialize(const std::string& key);
    void copyValues(KestEncryption& source);

    Strength m_strength;
    bool m_initialized = false;
    std::string m_key;  // empty, or the one whose schedule is held
    tMode m_mode{-1};   // neither, until a strength has been set
    SBlock m_initialVector;
    internal::BlowfishSchedule m_schedule{};
};

}  // namespace KestSupport
