// Tests that properties are whole after a thread was killed while it changed them.

#include <set>

#include "support/properties.h"
#include "threads/function_work.h"

namespace {

using namespace KestSupport;
using Properties = KestProperties<std::string>;

std::string nameOf(int number) {
    return "a name that is stored outside of the string " + std::to_string(number % 400);
}

TEST(KilledProperties, AreWhole) {
    for (int round = 0; round < 100; ++round) {
        Properties properties;
        kit::killInside(round * 9, [&](int i) {
            properties.setProperty(nameOf(i * 7), nameOf(i));
            if (i % 3 != 0) properties.removeProperty(nameOf(i * 11));
            if (i % 50 == 0) properties.getNames();
        });
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

TEST(KilledProperties, HaveTheModeOfTheirEntries) {
    Properties single(false), multiple(true);
    for (int i = 0; i < 400; ++i)
        for (Properties* each : {&single, &multiple})
            each->addProperty(nameOf(i), nameOf(i));
    multiple.addProperty("multiple", "");
    for (int round = 0; round < 200; ++round) {
        Properties properties(single);
        kit::killInside(round % 100 * 9, [&](int i) { properties = i % 2 == 0 ? multiple : single; });
        properties.addProperty(nameOf(0), "another");
        EXPECT_EQ(properties.getPropertyValues(nameOf(0)).size(), 1 + properties.getPropertyValues("multiple").size());
    }
}

}  // namespace
