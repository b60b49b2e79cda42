// A library that calls a function of the program at its own end, which is after that of the support library.
extern "C" {
[[gnu::visibility("default")]] void (*atTheEnd)() = nullptr;
}

namespace {

[[gnu::destructor]] void end() {
    if (atTheEnd != nullptr) atTheEnd();
}

}  // namespace
