// The file with the agent's last state: a property file that is always complete, because it is written under another
// name in the same folder and then renamed.
#pragma once

#include <support/properties.h>

#include <string>

namespace agent {

class StateFile {
  public:
    using Properties = KestSupport::KestProperties<std::string>;

    /// The property of every state: running or stopped.
    static constexpr const char* kStatus = "agent.status";

    /// Throws BadInput when no state can be saved there, or when an existing file is not a state.
    explicit StateFile(const std::string& file);

    /// The state that the file had when this object was made; empty without a file.
    const Properties& last() const { return m_last; }

    /// Replaces the file. Throws BadInput with the reason; then the file is unchanged and no other file remains.
    void save(Properties& state) const;

  private:
    std::string m_described;  // for messages
    std::string m_file;       // without symbolic links, which a rename would replace
    Properties m_last;
};

}  // namespace agent
