// Tests KestEncryption with published vectors, all lengths of data and keys, bad arguments, and memory after use.
#include <support/encryption.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "kit/failure_of.h"

namespace {

using KestSupport::KestEncryption;

std::string bytes(const std::string& hex) {
    std::string result;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        result += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return result;
}

std::string encrypted(KestEncryption::Strength strength, const std::string& key, const std::string& data) {
    std::string out;
    KestEncryption(strength).encryptData(key, data, out);
    return out;
}

std::string combined(std::string a, const std::string& b) {
    for (std::size_t i = 0; i < a.size(); ++i)
        a[i] = static_cast<char>(a[i] ^ b[i]);
    return a;
}

TEST(Encryption, MatchesPublishedVectors) {
    // Key, plaintext and ciphertext of one block each.
    const std::string blocks[] = {
        "0000000000000000 0000000000000000 4EF997456198DD78", "FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 51866FD5B85ECB8A",
        "3000000000000000 1000000000000001 7D856F9A613063F2", "0123456789ABCDEF 1111111111111111 61F9C3802281B096",
        "FEDCBA9876543210 0123456789ABCDEF 0ACEAB0FC6A0A28D", "7CA110454A1A6E57 01A1D6D039776742 59C68245EB05282B",
        "0131D9619DC1376E 5CD54CA83DEF57DA B1B8CC0B250F09A0", "07A1133E4A0B2686 0248D43806F67172 1730E5778BEA1DA4"};
    const auto word = [](const std::string& block, std::size_t at) { return bytes(block.substr(at, 16)); };
    for (const std::string& block : blocks)
        EXPECT_EQ(encrypted(KestEncryption::Normal, word(block, 0), word(block, 17)), word(block, 34));
    // One plaintext with the first byte of the key, the first two bytes, and so on.
    const std::string keys = bytes("F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677");
    std::string found;
    for (std::size_t length = 1; length <= 24; ++length)
        found += encrypted(KestEncryption::Normal, keys.substr(0, length), bytes("FEDCBA9876543210"));
    EXPECT_EQ(
        found,
        bytes("F9AD597C49DB005EE91D21C1D961A6D6E9C2B70A1BC65CF3BE1E639408640F05B39E44481BDB1E6E9457AA83B1928C0D8BB77032"
              "F960629DE87A244E2CC85E8215750E7A4F4EC577122BA70B3AB64AE03A833C9AFFC537F69409DA87A90F6BF2884F80625060B8B4"
              "1F85031C19E1196879D9373A714CA34F93142887EE3BE15C03429E838CE2D14BA4299E27469FF67BAFD5AED1C1BC96A810851C0E"
              "3858DA9FE6F51ED79B9DB21F64A6E14AFD36B46F80C7D7D45A5479AD05044B62FA52D080"));
    // The published vector of CBC has an initial vector; ours is zero, so the first block is combined with that one.
    const std::string chained = combined("7654321 ", bytes("FEDCBA9876543210")) + "Now is the time for ";
    EXPECT_EQ(encrypted(KestEncryption::High, bytes("0123456789ABCDEFF0E1D2C3B4A59687"), chained),
              bytes("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"));
}

TEST(Encryption, RestoresDataOfEveryLength) {
    KestEncryption cipher;
    std::string out, text = "Some text";
    for (std::size_t length = 1; length <= 136; ++length) {
        const std::string key = text.substr(0, 1 + length % 90);
        const std::string data = text.substr(text.size() - length);
        const std::string padded = data + std::string((8 - data.size() % 8) % 8, '\0');
        std::string single, chained(8, '\0');
        for (std::size_t at = 0; at < padded.size(); at += 8) {
            single += encrypted(KestEncryption::Normal, key, padded.substr(at, 8));
            chained += encrypted(KestEncryption::Normal, key, combined(padded.substr(at, 8), chained.substr(at)));
        }
        for (const bool isChained : {true, false}) {
            const std::string expected = isChained ? chained.substr(8) : single;
            cipher.setStrength(isChained ? KestEncryption::High : KestEncryption::Normal);
            cipher.encryptData(key, data, out = std::string(padded.size(), 'x') + "kept");
            EXPECT_EQ(out, expected + "kept");
            cipher.encryptData(key, out = data, out);
            EXPECT_EQ(out, expected);
            cipher.decryptData(key, out, out);
            EXPECT_EQ(out, padded);
        }
        text.insert(0, encrypted(KestEncryption::Normal, text, text.substr(0, 8)));
    }
    cipher.decryptData("key", text = "nine char", text);
    EXPECT_EQ(text.size(), 16U);
    KestSupport::SBlock block(0xF0F0F0F0, 1);
    block ^= KestSupport::SBlock(0xFF00FF00, 3);
    EXPECT_EQ(std::pair(block.m_left, block.m_right), std::pair(0x0FF00FF0U, 2U));
}

TEST(Encryption, RepeatsAKeyToItsLimit) {
    constexpr std::size_t kKeyLimit = 72;
    for (std::size_t length = 1; length <= kKeyLimit; ++length) {
        const std::string key = "a" + std::string(length - 1, 'k');
        std::string repeated = key;
        while (repeated.size() <= kKeyLimit)
            repeated += key;
        EXPECT_EQ(encrypted(KestEncryption::Normal, repeated, "block"),
                  encrypted(KestEncryption::Normal, key, "block"));
    }
}

TEST(Encryption, RefusesEmptyKeysAndUnknownModes) {
    const std::string prefix = "KestInvalidEncryptionException - ", emptyKey = prefix + "The key passed is empty";
    const std::string noMode = prefix + "The mode is not initialized properly";
    KestEncryption cipher(KestEncryption::Strength(7));
    std::string none, out, message = "untouched";
    const auto encrypting = [&](const std::string& key, const std::string& data) {
        return kit::failureOf([&] { cipher.encryptData(key, data, out); });
    };
    EXPECT_EQ(encrypting("", ""), "no failure");
    EXPECT_TRUE(cipher.decryptDataImpl("key", none, out, message));
    EXPECT_EQ(out + message, "untouched");
    EXPECT_EQ(encrypting("", "x"), emptyKey);
    EXPECT_EQ(out, std::string(8, '\0'));
    EXPECT_EQ(kit::failureOf([&] { cipher.decryptData("", none, out); }), emptyKey);
    EXPECT_EQ(encrypting("key", "x") + encrypting("key", "x"), noMode + noMode);
}

TEST(Encryption, ReusesAndErasesKeys) {
    alignas(KestEncryption) char memory[sizeof(KestEncryption)] = {};
    auto* const cipher = new (memory) KestEncryption;
    const auto expectRight = [](KestEncryption& used, const std::string& key) {
        std::string out;
        used.encryptData(key, "datadatadatadata", out);
        EXPECT_EQ(out, encrypted(used.getStrength(), key, "datadatadatadata"));
    };
    for (const char* const key : {"first", "second", "first", "short"}) {
        expectRight(*cipher, key);
        for (const bool claimed : {false, true}) {
            KestEncryption copy(*cipher);
            copy.operator=(copy);
            copy.setInit(claimed);
            expectRight(copy, claimed ? key : "other");
        }
    }
    const std::string_view bytesOfCipher(memory, sizeof memory);
    const auto zeros = [&] { return std::count(bytesOfCipher.begin(), bytesOfCipher.end(), '\0'); };
    EXPECT_NE(bytesOfCipher.find("short"), bytesOfCipher.npos);
    EXPECT_LT(zeros(), 200);
    cipher->~KestEncryption();
    EXPECT_EQ(bytesOfCipher.find("short"), bytesOfCipher.npos);
    EXPECT_GT(zeros(), 4000);
}

}  // namespace
