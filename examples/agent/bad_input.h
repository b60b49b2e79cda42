// What the user gave cannot be used: one line that names the thing and the reason. main prints it and ends with code 2.
#pragma once

#include <stdexcept>
#include <string>

namespace agent {

class BadInput : public std::runtime_error {
  public:
    BadInput(const std::string& thing, const std::string& reason) : std::runtime_error(thing + ": " + reason) {}
    explicit BadInput(const std::string& line) : std::runtime_error(line) {}
};

/// The text of the exception that is being handled. Only inside a catch clause.
std::string caughtReason();

/// The text as part of one line: control characters are written out, and what is too long is cut.
std::string printable(const std::string& text);

}  // namespace agent
