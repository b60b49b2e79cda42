// The secret of the settings, which is enciphered there, and the seal of the state file that is made with it.
#pragma once

#include <string>

namespace agent {

/// Returns the enciphered secret for the settings, in hexadecimal. It differs with each call.
std::string encipher(const std::string& secret, const std::string& key);

/// Reverses encipher. Throws BadInput, whose text begins with `what`, for a wrong text or key.
std::string decipher(const std::string& what, const std::string& text, const std::string& key);

/// Returns the key: the first line of the file. Throws BadInput when it is empty.
std::string readKey(const std::string& file);

/// Returns a seal that only a holder of the secret can compute: the last block of the encrypted text, in hexadecimal.
/// It shows that the text was altered. It is weak, because the blocks of Blowfish have only 64 bits.
std::string sealOf(const std::string& text, const std::string& secret);

}  // namespace agent
