#include "secret.h"

#include <support/encryption.h>
#include <support/text_utilities.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>

#include "bad_input.h"
#include "file_checks.h"
#include "messages.h"

namespace agent {
namespace {

using KestSupport::KestEncryption;

// The plain text, in blocks of 8 bytes: a random block, which hides that two secrets are equal; the secret's length;
// its check sum; the secret, which the cipher pads with zeros. A wrong key gives a wrong check sum.
constexpr std::size_t kBlock = 8;
constexpr std::size_t kHeader = 3 * kBlock;

void appendNumber(std::string& bytes, std::uint64_t number) {
    for (int shift = 56; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift & 0xFF);
}

std::uint64_t numberAt(const std::string& bytes, std::size_t position) {
    std::uint64_t number = 0;
    for (std::size_t i = position; i < position + kBlock; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

// FNV-1a, 64 bits (offset basis and prime as published by Fowler, Noll and Vo).
std::uint64_t checkSum(const std::string& text) {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char each : text)
        sum = (sum ^ static_cast<unsigned char>(each)) * 0x100000001B3;
    return sum;
}

bool isHexadecimal(const std::string& text) {
    return text.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
}

std::string hexadecimal(const std::string& bytes) {
    return KestSupport::KestBytesToHex(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace

std::string encipher(const std::string& secret, const std::string& key) {
    std::random_device random;
    std::string plain;
    appendNumber(plain, std::uint64_t{random()} << 32 | random());
    appendNumber(plain, secret.size());
    appendNumber(plain, checkSum(secret));
    std::string enciphered;
    KestEncryption().encryptData(key, plain + secret, enciphered);
    return hexadecimal(enciphered);
}

std::string decipher(const std::string& what, const std::string& text, const std::string& key) {
    if (text.size() % (2 * kBlock) != 0 || text.size() < 2 * kHeader || !isHexadecimal(text)) {
        throw BadInput(what, say("error.secretDamaged"));
    }
    std::string enciphered(text.size() / 2, '\0');
    KestSupport::KestHexToBytes(enciphered.data(), text);
    std::string plain;
    KestEncryption().decryptData(key, enciphered, plain);
    const std::uint64_t length = numberAt(plain, kBlock);
    std::string secret = plain.substr(kHeader, static_cast<std::size_t>(std::min<std::uint64_t>(length, plain.size())));
    if (length != secret.size() || numberAt(plain, 2 * kBlock) != checkSum(secret)) {
        throw BadInput(what, say("error.secretWrong"));
    }
    return secret;
}

std::string readKey(const std::string& file) {
    const std::string what = say("error.key", {printable(file)});
    requireReadableText(what, file);
    std::ifstream lines(file, std::ios::binary);
    std::string key;
    std::getline(lines, key);
    if (!key.empty() && key.back() == '\r') key.pop_back();
    if (key.empty()) throw BadInput(what, say("error.noKey"));
    return key;
}

std::string sealOf(const std::string& text, const std::string& secret) {
    std::string enciphered;
    KestEncryption().encryptData(secret, std::to_string(text.size()) + ":" + text, enciphered);
    return hexadecimal(enciphered.substr(enciphered.size() - kBlock));
}

}  // namespace agent
