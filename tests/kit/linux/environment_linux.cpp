#include <cstdlib>

#include "kit/environment_guard.h"

namespace kit {

void EnvironmentGuard::put(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

}  // namespace kit
