#include <stdlib.h>
#include <time.h>

#include "kit/environment_guard.h"

namespace kit {

// The runtime cannot hold a variable without a text: an empty one is removed.
void EnvironmentGuard::put(const std::string& name, const std::optional<std::string>& value) {
    _putenv_s(name.c_str(), value.value_or("").c_str());
    _tzset();
}

}  // namespace kit
