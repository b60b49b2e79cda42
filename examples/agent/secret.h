// A secret in the settings, which stands there enciphered, and the seal that it puts on the state file.
#pragma once

#include <string>

namespace agent {

/// The text that stands for the secret in the settings: hexadecimal digits, other ones each time.
std::string encipher(const std::string& secret, const std::string& key);

/// The secret that encipher made the text of. Throws BadInput, beginning with `what`, for another text, and for another
/// key.
std::string decipher(const std::string& what, const std::string& text, const std::string& key);

/// The first line of the file, which is the key. Throws BadInput when there is none.
std::string readKey(const std::string& file);

/// What only somebody who knows the secret can say of the text: the last block of its encryption, in hexadecimal. It
/// tells an altered text from the true one, no more: Blowfish has blocks of 64 bits.
std::string sealOf(const std::string& text, const std::string& secret);

}  // namespace agent
