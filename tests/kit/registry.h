// A registry for the test: HKEY_LOCAL_MACHINE is empty while the object lives, and has the values that the test sets.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kit {

class Registry {
  public:
    Registry();
    ~Registry();

    /// Sets a value of any type from the bytes that it has in the registry.
    void set(const std::string& key, const std::string& name, std::uint32_t type, const std::string& bytes);
    /// Sets a string. Name and text are UTF-8.
    void setText(const std::string& key, const std::string& name, const std::string& text);

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace kit
