// A program that stops with one object of each kind that gdb prints in a way of its own.
#include <support/support.h>

#include "text/properties/property_table.h"  // its debug information

using namespace KestSupport;

namespace {

struct Node : KestObjectBase {
    int number = 7;
};

// The debugger's breakpoint.
[[gnu::noinline]] void stopHere(const void* object) {
    asm volatile("" : : "r"(object) : "memory");
}

}  // namespace

int main() {
    const KestSmartPointer<Node> pointer(new Node);
    const KestSmartPointer<Node> second(pointer);
    const KestSmartPointer<Node> none;
    const wstring16 text{'a', 0xE9, 0x20AC, '"', 0xD800};
    const wstring16 empty;
    KestProperties<std::string> properties;
    for (int i = 0; i < 40; ++i)
        properties.addProperty("name" + std::to_string(i) + "=value" + std::to_string(i), '=');
    properties.removeProperty("name1");
    KestProperties<wstring16> wide;
    wide.setProperty({'k'}, text);
    KestDateTime date;
    date = std::string("29/02/2024 12:34:56");
    internal::PropertyTable<std::string> narrowTable;
    internal::PropertyTable<wstring16> wideTable;
    stopHere(&date);
    return 0;
}
