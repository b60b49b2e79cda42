// Blowfish in both modes and directions, and its key set-up, compared with the ciphers of four libraries. The key has
// 16 bytes. It stays the same, except where the set-up is measured.
#include <support/encryption.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "bench_kit.h"

#ifdef KEST_HAVE_BOTAN
#include <botan/block_cipher.h>
#endif
#ifdef KEST_HAVE_GCRYPT
#include <gcrypt.h>
#endif
#ifdef KEST_HAVE_NETTLE
#include <nettle/blowfish.h>
#endif
#ifdef KEST_HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>
#endif

namespace {

using KestBench::Body;
using KestSupport::KestEncryption;

const std::string kKey = "sixteen byte key";

enum class Direction { Encrypt, Decrypt };

/// Data of the given size, and a buffer for the result.
struct Buffers {
    explicit Buffers(std::size_t size) : in(size, 'd'), out(size, '\0') {}

    const unsigned char* from() const { return reinterpret_cast<const unsigned char*>(in.data()); }
    unsigned char* to() { return reinterpret_cast<unsigned char*>(out.data()); }

    std::string in;
    std::string out;
};

[[maybe_unused]] const unsigned char* keyBytes() {
    return reinterpret_cast<const unsigned char*>(kKey.data());
}

template <typename Work>
void measure(benchmark::State& state, std::size_t size, Work work) {
    Buffers buffers(size);
    for (auto _ : state) {
        work(buffers);
        benchmark::DoNotOptimize(buffers.out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

Body ours(KestEncryption::Strength strength, Direction direction, std::size_t size) {
    return [=](benchmark::State& state) {
        KestEncryption cipher(strength);
        measure(state, size, [&](Buffers& buffers) {
            if (direction == Direction::Encrypt) cipher.encryptData(kKey, buffers.in, buffers.out);
            if (direction == Direction::Decrypt) cipher.decryptData(kKey, buffers.in, buffers.out);
        });
    };
}

#ifdef KEST_HAVE_BOTAN
Body botanEcb(Direction direction, std::size_t size) {
    return [=](benchmark::State& state) {
        const std::unique_ptr<Botan::BlockCipher> cipher = Botan::BlockCipher::create_or_throw("Blowfish");
        cipher->set_key(keyBytes(), kKey.size());
        measure(state, size, [&](Buffers& buffers) {
            if (direction == Direction::Encrypt) cipher->encrypt_n(buffers.from(), buffers.to(), size / 8);
            if (direction == Direction::Decrypt) cipher->decrypt_n(buffers.from(), buffers.to(), size / 8);
        });
    };
}
#else
Body botanEcb(Direction, std::size_t) {
    return KestBench::kMissing;
}
#endif

#ifdef KEST_HAVE_GCRYPT
Body gcrypt(KestEncryption::tMode wanted, Direction direction, std::size_t size) {
    return [=](benchmark::State& state) {
        const int mode = wanted == KestEncryption::CBC ? GCRY_CIPHER_MODE_CBC : GCRY_CIPHER_MODE_ECB;
        gcry_check_version(nullptr);
        gcry_cipher_hd_t cipher = nullptr;
        if (gcry_cipher_open(&cipher, GCRY_CIPHER_BLOWFISH, mode, 0) != 0) return state.SkipWithError("no cipher");
        gcry_cipher_setkey(cipher, kKey.data(), kKey.size());
        const char zeros[8] = {};
        measure(state, size, [&](Buffers& buffers) {
            if (mode == GCRY_CIPHER_MODE_CBC) gcry_cipher_setiv(cipher, zeros, sizeof zeros);
            const auto work = direction == Direction::Encrypt ? gcry_cipher_encrypt : gcry_cipher_decrypt;
            work(cipher, buffers.to(), size, buffers.from(), size);
        });
        gcry_cipher_close(cipher);
    };
}
#else
Body gcrypt(KestEncryption::tMode, Direction, std::size_t) {
    return KestBench::kMissing;
}
#endif

#ifdef KEST_HAVE_NETTLE
Body nettleEcb(Direction direction, std::size_t size) {
    return [=](benchmark::State& state) {
        blowfish_ctx cipher;
        nettle_blowfish_set_key(&cipher, kKey.size(), keyBytes());
        const auto work = direction == Direction::Encrypt ? nettle_blowfish_encrypt : nettle_blowfish_decrypt;
        measure(state, size, [&](Buffers& buffers) { work(&cipher, size, buffers.to(), buffers.from()); });
    };
}
#else
Body nettleEcb(Direction, std::size_t) {
    return KestBench::kMissing;
}
#endif

#ifdef KEST_HAVE_OPENSSL
Body openssl(KestEncryption::tMode mode, Direction direction, std::size_t size) {
    return [=](benchmark::State& state) {
        BF_KEY cipher;
        BF_set_key(&cipher, static_cast<int>(kKey.size()), keyBytes());
        const int encrypting = direction == Direction::Encrypt ? BF_ENCRYPT : BF_DECRYPT;
        measure(state, size, [&](Buffers& buffers) {
            unsigned char vector[8] = {};
            if (mode == KestEncryption::CBC) {
                BF_cbc_encrypt(buffers.from(), buffers.to(), static_cast<long>(size), &cipher, vector, encrypting);
                return;
            }
            for (std::size_t at = 0; at < size; at += 8)
                BF_ecb_encrypt(buffers.from() + at, buffers.to() + at, &cipher, encrypting);
        });
    };
}
#else
Body openssl(KestEncryption::tMode, Direction, std::size_t) {
    return KestBench::kMissing;
}
#endif

void addEcb(const std::string& name, Direction direction, std::size_t size) {
    // With many blocks the first peer has the target, with two blocks every peer.
    const bool small = size == 16;
    const double target = small ? 0.65 : 0;
    KestBench::Comparison("encryption/ECB " + name)
        .ours(ours(KestEncryption::Normal, direction, size))
        .peer("Botan", small ? 0.65 : 0.9, botanEcb(direction, size))
        .peer("libgcrypt", target, gcrypt(KestEncryption::ECB, direction, size))
        .peer("nettle", target, nettleEcb(direction, size))
        .peer("OpenSSL", target, openssl(KestEncryption::ECB, direction, size));
}

void addCbc(const std::string& name, Direction direction, std::size_t size) {
    const bool encrypting = direction == Direction::Encrypt;
    KestBench::Comparison("encryption/CBC " + name)
        .ours(ours(KestEncryption::High, direction, size))
        .peer("libgcrypt", encrypting ? 0 : 1.05, gcrypt(KestEncryption::CBC, direction, size))
        .peer("OpenSSL", encrypting ? 1.05 : 0, openssl(KestEncryption::CBC, direction, size));
}

// Two keys alternate, so that no schedule can be reused. Each body encrypts one block only, so that the set-up is most
// of the time. The peers do the same.
void setUpKeys(benchmark::State& state) {
    const std::string keys[] = {kKey, "another 16 bytes"};
    KestEncryption cipher(KestEncryption::Normal);
    std::size_t turn = 0;
    measure(state, 8, [&](Buffers& buffers) { cipher.encryptData(keys[turn++ % 2], buffers.in, buffers.out); });
}

#ifdef KEST_HAVE_OPENSSL
void setUpKeysOpenssl(benchmark::State& state) {
    BF_KEY cipher;
    measure(state, 8, [&](Buffers& buffers) {
        BF_set_key(&cipher, static_cast<int>(kKey.size()), keyBytes());
        BF_ecb_encrypt(buffers.from(), buffers.to(), &cipher, BF_ENCRYPT);
    });
}
#else
const Body setUpKeysOpenssl = KestBench::kMissing;
#endif

#ifdef KEST_HAVE_NETTLE
void setUpKeysNettle(benchmark::State& state) {
    blowfish_ctx cipher;
    measure(state, 8, [&](Buffers& buffers) {
        nettle_blowfish_set_key(&cipher, kKey.size(), keyBytes());
        nettle_blowfish_encrypt(&cipher, 8, buffers.to(), buffers.from());
    });
}
#else
const Body setUpKeysNettle = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    const std::pair<std::string, std::size_t> sizes[] = {{"16 B", 16}, {"1 KiB", 1024}, {"1 MiB", 1024 * 1024}};
    for (const auto& [name, size] : sizes) {
        addEcb("encrypt " + name, Direction::Encrypt, size);
        addEcb("decrypt " + name, Direction::Decrypt, size);
        if (size == 16) continue;
        addCbc("encrypt " + name, Direction::Encrypt, size);
        addCbc("decrypt " + name, Direction::Decrypt, size);
    }
    Comparison("encryption/new key and one block")
        .ours(setUpKeys)
        .peer("OpenSSL", 1.05, setUpKeysOpenssl)
        .peer("nettle", 1.05, setUpKeysNettle);
}
