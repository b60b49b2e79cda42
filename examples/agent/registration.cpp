#include "registration.h"

#include <support/locales.h>
#include <support/program_run.h>
#include <support/service.h>
#include <support/service_control.h>
#include <support/strings.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bad_input.h"
#include "messages.h"
#include "system.h"

namespace agent {
namespace {

using KestSupport::KestLocaleFactory;
using KestSupport::KestServiceControl;
using KestSupport::KestServiceControlException;
using KestSupport::KestStringUtilities;

/// Only registers the service. Agent does its work.
class Registration : public KestSupport::KestService {
  public:
    explicit Registration(const std::string& arguments)
        : KestService(kServiceName, kServiceName, say("service.name"), "", false) {
        m_arguments = arguments;
        m_description =
            KestStringUtilities::widen(say("service.description"), KestLocaleFactory::getDefaultLocale(true));
    }

  protected:
    bool startIt(const std::string&) override { return false; }
    bool stopIt() override { return true; }
};

std::string thing() {
    return say("error.service", {kServiceName});
}

bool isInstalled() try {
    const std::unique_ptr<KestServiceControl> control(KestServiceControl::CreateKestServiceControl(kServiceName));
    return control->IsServiceInstalled();
} catch (const KestServiceControlException& refused) {
    std::string reason;
    refused.GetErrorMessage(reason);
    throw BadInput(thing(), reason);
}

}  // namespace

const char* const kServiceName = "kest-agent";

void installService(const std::optional<std::string>& settingsFile) {
    if (isInstalled()) throw BadInput(thing(), say("error.installed"));
    std::vector<std::string> arguments{"--service"};
    if (settingsFile)
        arguments.insert(arguments.end(), {"--settings", textOf(std::filesystem::absolute(pathOf(*settingsFile)))});
    if (!Registration(KestSupport::KestJoinArguments(arguments)).install())
        throw BadInput(thing(), say("error.cannotInstall"));
}

void removeService() {
    if (!isInstalled()) throw BadInput(thing(), say("error.notInstalled"));
    if (!Registration("").remove()) throw BadInput(thing(), say("error.cannotRemove"));
}

}  // namespace agent
