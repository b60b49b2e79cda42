// The library that library_test.cpp loads. It counts its unloads.
namespace {

struct Unload {
    int* counter = nullptr;
    ~Unload() {
        if (counter != nullptr) ++*counter;
    }
} g_unload;

}  // namespace

extern "C" __attribute__((visibility("default"))) void countUnloads(int* counter) {
    g_unload.counter = counter;
}
