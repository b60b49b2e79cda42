// A program that links the support library. Tests that what the library keeps for the whole process is still there
// after its static objects, because threads may run to the very end.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "support/locales.h"

extern "C" void (*atTheEnd)();

namespace {

// The library chooses its locale once.
void checkLocale() {
    setenv("LC_ALL", "C.UTF-8", 1);
    if (KestSupport::KestLocaleFactory::getDefaultLocale(false).name() == "C") return;
    std::puts("the locale was deleted");
    std::fflush(stdout);
    _exit(1);
}

}  // namespace

int main() {
    atTheEnd = checkLocale;
}
