// Tests that properties are whole after a thread was killed while it changed them.
#include <set>

#include "kit/gate.h"
#include "support/properties.h"
#include "support/threads.h"
#include "threads/function_work.h"

namespace {

using namespace KestSupport;

std::string nameOf(int number) {
    return "a name that is stored outside of the string " + std::to_string(number % 400);
}

TEST(KilledProperties, AreWhole) {
    for (int round = 0; round < 100; ++round) {
        KestProperties<std::string> properties;
        kit::Gate begins;
        KestThread writer(new kit::FunctionWork([&] {
            begins.open();
            for (int i = 0; i < 100'000; ++i) {
                properties.setProperty(nameOf(i * 7), nameOf(i));
                if (i % 3 != 0) properties.removeProperty(nameOf(i * 11));
                if (i % 50 == 0) properties.getNames();
            }
            return 0;
        }));
        writer.start();
        begins.pass();
        std::this_thread::sleep_for(std::chrono::microseconds(round * 9));
        writer.kill();
        if (writer.isAlive()) writer.wait(-1);

        const std::vector<std::string> names = properties.getNames();
        EXPECT_EQ(std::set(names.begin(), names.end()).size(), names.size());
        for (const std::string& name : names)
            EXPECT_EQ(properties.getProperty(name).substr(0, 6), "a name");
        for (int i = 0; i < 400; ++i) {
            properties.setProperty(nameOf(i), "value");
            EXPECT_EQ(properties.getProperty(nameOf(i)), "value");
            properties.removeProperty(nameOf(i));
        }
        EXPECT_TRUE(properties.getNames().empty());
    }
}

}  // namespace
