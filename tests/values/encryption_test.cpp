#include <gtest/gtest.h>
#include <support/encryption.h>

#include <algorithm>
#include <new>
#include <string>

#include "kit/failure_of.h"
#ifdef KEST_HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>
#endif

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

// One block, by another implementation where that is installed.
std::string blockOf(const std::string& key, std::string block) {
#ifdef KEST_HAVE_OPENSSL
    BF_KEY cipher;
    BF_set_key(&cipher, static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(key.data()));
    auto* const inPlace = reinterpret_cast<unsigned char*>(block.data());
    BF_ecb_encrypt(inPlace, inPlace, &cipher, BF_ENCRYPT);
    return block;
#else
    return encrypted(KestEncryption::Normal, key, block);
#endif
}

std::string combined(std::string a, const std::string& b) {
    for (std::size_t i = 0; i < a.size(); ++i)
        a[i] = static_cast<char>(a[i] ^ b[i]);
    return a;
}

TEST(EncryptionTest, PublishedVectorsAreMet) {
    // Key, plaintext and ciphertext of one block each.
    const std::string blocks[] = {
        "0000000000000000 0000000000000000 4EF997456198DD78", "FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 51866FD5B85ECB8A",
        "3000000000000000 1000000000000001 7D856F9A613063F2", "1111111111111111 1111111111111111 2466DD878B963C9D",
        "0123456789ABCDEF 1111111111111111 61F9C3802281B096", "1111111111111111 0123456789ABCDEF 7D0CC630AFDA1EC7",
        "FEDCBA9876543210 0123456789ABCDEF 0ACEAB0FC6A0A28D", "7CA110454A1A6E57 01A1D6D039776742 59C68245EB05282B",
        "0131D9619DC1376E 5CD54CA83DEF57DA B1B8CC0B250F09A0", "07A1133E4A0B2686 0248D43806F67172 1730E5778BEA1DA4",
        "3849674C2602319E 51454B582DDF440A A25E7856CF2651EB", "04B915BA43FEB5B6 42FD443059577FA2 353882B109CE8F1A",
        "0113B970FD34F2CE 059B5E0851CF143A 48F4D0884C379918", "0170F175468FB5E6 0756D8E0774761D2 432193B78951FC98",
        "43297FAD38E373FE 762514B829BF486A 13F04154D69D1AE5", "07A7137045DA2A16 3BDD119049372802 2EEDDA93FFD39C79",
        "04689104C2FD3B2F 26955F6835AF609A D887E0393C2DA6E3", "37D06BB516CB7546 164D5E404F275232 5F99D04F5B163969",
        "1F08260D1AC2465E 6B056E18759F5CCA 4A057A3B24D3977B", "584023641ABA6176 004BD6EF09176062 452031C1E4FADA8E",
        "025816164629B007 480D39006EE762F2 7555AE39F59B87BD", "49793EBC79B3258F 437540C8698F3CFA 53C55F9CB49FC019",
        "4FB05E1515AB73A7 072D43A077075292 7A8E7BFA937E89A3", "49E95D6D4CA229BF 02FE55778117F12A CF9C5D7A4986ADB5",
        "018310DC409B26D6 1D9D5C5018F728C2 D1ABB290658BC778", "1C587F1C13924FEF 305532286D6F295A 55CB3774D13EF201",
        "0101010101010101 0123456789ABCDEF FA34EC4847B268B2", "1F1F1F1F0E0E0E0E 0123456789ABCDEF A790795108EA3CAE",
        "E0FEE0FEF1FEF1FE 0123456789ABCDEF C39E072D9FAC631D", "0000000000000000 FFFFFFFFFFFFFFFF 014933E0CDAFF6E4",
        "FFFFFFFFFFFFFFFF 0000000000000000 F21E9A77B71C49BC", "0123456789ABCDEF 0000000000000000 245946885754369A",
        "FEDCBA9876543210 FFFFFFFFFFFFFFFF 6B5C5A9C5D9E0A5A"};
    const auto word = [](const std::string& block, std::size_t at) { return bytes(block.substr(at, 16)); };
    for (const std::string& block : blocks)
        EXPECT_EQ(word(block, 34), encrypted(KestEncryption::Normal, word(block, 0), word(block, 17)));
    // One plaintext with the first byte of a key, the first two, and so on.
    const std::string keys = bytes("F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677");
    std::string found;
    for (std::size_t length = 1; length <= 24; ++length)
        found += encrypted(KestEncryption::Normal, keys.substr(0, length), bytes("FEDCBA9876543210"));
    EXPECT_EQ(
        bytes("F9AD597C49DB005EE91D21C1D961A6D6E9C2B70A1BC65CF3BE1E639408640F05B39E44481BDB1E6E9457AA83B1928C0D8BB77032"
              "F960629DE87A244E2CC85E8215750E7A4F4EC577122BA70B3AB64AE03A833C9AFFC537F69409DA87A90F6BF2884F80625060B8B4"
              "1F85031C19E1196879D9373A714CA34F93142887EE3BE15C03429E838CE2D14BA4299E27469FF67BAFD5AED1C1BC96A810851C0E"
              "3858DA9FE6F51ED79B9DB21F64A6E14AFD36B46F80C7D7D45A5479AD05044B62FA52D080"),
        found);
    // The chaining is published with an initial vector; ours is zero, so the first block has that vector in it.
    const std::string chained = combined("7654321 ", bytes("FEDCBA9876543210")) + "Now is the time for ";
    EXPECT_EQ(bytes("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"),
              encrypted(KestEncryption::High, bytes("0123456789ABCDEFF0E1D2C3B4A59687"), chained));
}

TEST(EncryptionTest, EveryLengthIsPaddedChainedAndTakenBack) {
    KestEncryption cipher;
    std::string text = "Some text", out;
    for (std::size_t length = 1; length <= 136;
         text = encrypted(KestEncryption::Normal, text, text.substr(0, 8)) + text, ++length) {
        const std::string key = text.substr(0, 1 + length % 90), data = text.substr(text.size() - length);
        const std::string padded = data + std::string((8 - data.size() % 8) % 8, '\0');
        std::string chained(8, '\0'), single;
        for (std::size_t at = 0; at < padded.size(); at += 8) {
            single += blockOf(key, padded.substr(at, 8));
            chained += blockOf(key, combined(padded.substr(at, 8), chained.substr(at)));
        }
        for (const bool isChained : {true, false}) {
            const std::string expected = isChained ? chained.substr(8) : single;
            cipher.setStrength(isChained ? KestEncryption::High : KestEncryption::Normal);
            cipher.encryptData(key, data, out = std::string(padded.size(), 'x') + "kept");
            EXPECT_EQ(expected + "kept", out);
            cipher.encryptData(key, out = data, out);
            EXPECT_EQ(expected, out);
            cipher.decryptData(key, out, out);
            EXPECT_EQ(padded, out);
        }
    }
    // A key is taken again from its front, up to the 72 bytes that there is room for; what is beyond does not count.
    for (std::string key; key.size() < 72;) {
        key += text[key.size()];
        std::string whole = key;
        while (whole.size() <= 72)
            whole += key;
        EXPECT_EQ(encrypted(KestEncryption::Normal, key, text), encrypted(KestEncryption::Normal, whole, text));
    }
    cipher.decryptData("key", text = "nine char", text);
    EXPECT_EQ(16U, text.size());
    KestSupport::SBlock block(0xF0F0F0F0, 1);
    block ^= KestSupport::SBlock(0xFF00FF00, 3);
    EXPECT_TRUE(block.m_left == 0x0FF00FF0 && block.m_right == 2);
}

TEST(EncryptionTest, RefusalsSayWhy) {
    const std::string prefix = "KestInvalidEncryptionException - ", emptyKey = "The key passed is empty";
    KestEncryption cipher(KestEncryption::Strength(7));
    std::string none, out, message = "untouched";
    const auto encrypting = [&](const std::string& key, const std::string& data) {
        return kit::failureOf([&] { cipher.encryptData(key, data, out); });
    };
    EXPECT_EQ("no failure", encrypting("", ""));
    EXPECT_TRUE(cipher.decryptDataImpl("key", none, out, message) && out.empty() && message == "untouched");
    EXPECT_EQ(prefix + emptyKey, encrypting("", "x"));
    EXPECT_EQ(std::string(8, '\0'), out);
    EXPECT_EQ(prefix + emptyKey, kit::failureOf([&] { cipher.decryptData("", none, out); }));
    for (const char* const key : {"key", "key"})
        EXPECT_EQ(prefix + "The mode is not initialized properly", encrypting(key, "x"));
}

TEST(EncryptionTest, TheScheduleKeptIsThatOfTheKeyAndLeavesNoTrace) {
    alignas(KestEncryption) char memory[sizeof(KestEncryption)] = {};
    auto* const cipher = new (memory) KestEncryption;
    const auto expectRight = [](KestEncryption& used, const std::string& key) {
        std::string out, expected = encrypted(used.getStrength(), key, "datadatadatadata");
        used.encryptData(key, "datadatadatadata", out);
        EXPECT_EQ(expected, out);
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
    const std::string during(memory, sizeof memory);
    cipher->~KestEncryption();
    const std::string after(memory, sizeof memory);
    EXPECT_TRUE(during.find("short") < during.size() && std::count(during.begin(), during.end(), '\0') < 200);
    EXPECT_TRUE(after.find("short") > after.size() && std::count(after.begin(), after.end(), '\0') > 4000);
}

}  // namespace
