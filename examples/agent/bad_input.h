// An error in what the user gave: one line with the subject and the reason. main prints it and ends with code 2.
#pragma once

#include <stdexcept>
#include <string>

namespace agent {

class BadInput : public std::runtime_error {
  public:
    BadInput(const std::string& thing, const std::string& reason) : std::runtime_error(thing + ": " + reason) {}
    explicit BadInput(const std::string& line) : std::runtime_error(line) {}
};

/// Returns the text of the current exception. For catch clauses only.
std::string caughtReason();

/// Returns the text for use within a line: control characters are escaped, and a long text is cut.
std::string printable(const std::string& text);

}  // namespace agent
