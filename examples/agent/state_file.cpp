#include "state_file.h"

#include <support/exceptions.h>

#include <filesystem>
#include <system_error>

#include "bad_input.h"
#include "file_checks.h"
#include "messages.h"
#include "system.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

// Removes the temporary file unless it was renamed.
struct Temporary {
    std::string name;
    ~Temporary() {
        std::error_code ignored;
        fs::remove(pathOf(name), ignored);
    }
};

std::string temporaryName(const std::string& file) {
    return file + ".kest-agent-new";
}

}  // namespace

StateFile::StateFile(const std::string& file) : m_described(say("error.state", {printable(file)})) {
    std::error_code error;
    m_file = textOf(fs::weakly_canonical(pathOf(file), error));
    if (error) throw BadInput(m_described, error.message());
    requireCreatable(m_described, temporaryName(m_file));
    if (!fs::exists(pathOf(m_file), error)) return;

    requireReadableText(m_described, m_file);
    m_last.loadProperties(m_file, '=');
    std::string status;
    if (!m_last.getPropertyValue(kStatus, status)) throw BadInput(m_described, say("error.notOurs"));
}

void StateFile::save(Properties& state) const {
    const Temporary temporary{temporaryName(m_file)};
    makeEmptyFile(m_described, temporary.name);
    try {
        state.saveProperties(temporary.name);
    } catch (const KestSupport::KestException&) {
        throw BadInput(m_described, say("error.notWhole"));
    }
    std::error_code error;
    fs::rename(pathOf(temporary.name), pathOf(m_file), error);
    if (error) throw BadInput(m_described, error.message());
}

}  // namespace agent
