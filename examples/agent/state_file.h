// The file that keeps the agent's last state: a property file that is always whole, since it is written under another
// name beside its place and then moved there.
#pragma once

#include <support/properties.h>

#include <string>

namespace agent {

class StateFile {
  public:
    using Properties = KestSupport::KestProperties<std::string>;

    /// A property that every state has: running or stopped.
    static constexpr const char* kStatus = "agent.status";

    /// Throws BadInput when no state can be saved there, or when the file is there and is something else.
    explicit StateFile(const std::string& file);

    /// The state that was saved last when this object was made; empty when there was none.
    const Properties& last() const { return m_last; }

    /// Throws BadInput with the reason; the file is then as it was, and nothing else is left behind.
    void save(Properties& state) const;

  private:
    std::string m_described;  // for messages
    std::string m_file;       // without symbolic links, which a move would replace
    Properties m_last;
};

}  // namespace agent
