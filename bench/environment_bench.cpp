// Settings: a value of the registry, and a text with references. Each look-up in the registry detects a change of its
// file. The first peer does the same: it calls stat(2) before it searches a map. GKeyFile never checks the file again.
#include <support/properties.h>
#include <support/utilities.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bench_kit.h"
#include "temporary_folder.h"

#ifdef KEST_HAVE_GLIB
#include <glib.h>
#endif

namespace {

using KestBench::Body;

constexpr int kKeys = 100;
constexpr int kValuesInEach = 100;
constexpr int kReferences = 1000;

std::string keyName(int number) {
    return "SOFTWARE\\Vendor\\Product" + std::to_string(number);
}
std::string valueName(int number) {
    return "Setting" + std::to_string(number);
}

// The state directory of this program, with 10,000 values.
void makeRegistry() {
    static const struct Registry {
        const KestBench::TemporaryFolder folder;
        Registry() {
            setenv("KEST_STATE_DIR", folder.path().c_str(), 1);
            std::ofstream file(folder.file("registry.reg"));
            file << "Windows Registry Editor Version 5.00\n";
            for (int key = 0; key < kKeys; ++key) {
                file << "\n[HKEY_LOCAL_MACHINE\\" << keyName(key) << "]\n";
                for (int value = 0; value < kValuesInEach; ++value)
                    file << '"' << valueName(value) << "\"=\"value " << value << "\"\n";
            }
            file.close();
            // Each call reads a file again that has just been written, so wait.
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    } registry;
}

// The keys, which are looked up one after another.
std::vector<std::string> askedKeys() {
    std::vector<std::string> keys;
    for (int i = 0; i < kKeys; ++i)
        keys.push_back(keyName(i) + "\\" + valueName(kKeys - 1 - i));
    return keys;
}

void readRegistry(benchmark::State& state) {
    makeRegistry();
    const std::vector<std::string> keys = askedKeys();
    std::size_t next = 0;
    for (auto _ : state) {
        const std::string value = KestSupport::KestGetEnvironmentVariable(keys[next]);
        if (value.empty()) state.SkipWithError("no value");
        next = (next + 1) % kKeys;
    }
}

void readMap(benchmark::State& state) {
    makeRegistry();
    const std::string file = std::string(std::getenv("KEST_STATE_DIR")) + "/registry.reg";
    std::unordered_map<std::string, std::string> values;
    for (int key = 0; key < kKeys; ++key) {
        for (int value = 0; value < kValuesInEach; ++value)
            values[keyName(key) + "\\" + valueName(value)] = "value " + std::to_string(value);
    }
    const std::vector<std::string> keys = askedKeys();
    std::size_t next = 0;
    for (auto _ : state) {
        struct stat look;
        if (::stat(file.c_str(), &look) != 0) state.SkipWithError("no file");
        benchmark::DoNotOptimize(look);
        const std::string value = values.find(keys[next])->second;
        benchmark::DoNotOptimize(value.data());
        next = (next + 1) % kKeys;
    }
}

#ifdef KEST_HAVE_GLIB
void readKeyFile(benchmark::State& state) {
    GKeyFile* const file = g_key_file_new();
    std::string groups[kKeys];
    std::string values[kKeys];
    for (int key = 0; key < kKeys; ++key) {
        groups[key] = keyName(key);
        values[key] = valueName(kKeys - 1 - key);
        for (int value = 0; value < kValuesInEach; ++value) {
            g_key_file_set_string(file, groups[key].c_str(), valueName(value).c_str(),
                                  ("value " + std::to_string(value)).c_str());
        }
    }
    int next = 0;
    for (auto _ : state) {
        char* const value = g_key_file_get_string(file, groups[next].c_str(), values[next].c_str(), nullptr);
        if (value == nullptr) state.SkipWithError("no value");
        benchmark::DoNotOptimize(value);
        g_free(value);
        next = (next + 1) % kKeys;
    }
    g_key_file_free(file);
}
#else
const Body readKeyFile = KestBench::kMissing;
#endif

std::string textWithReferences() {
    std::string text;
    for (int i = 0; i < kReferences; ++i)
        text += "some text in front of <name" + std::to_string(i % 20) + "> and ";
    return text;
}

template <typename Add>
void addValues(Add add) {
    for (int i = 0; i < 20; ++i)
        add("name" + std::to_string(i), "the value of name " + std::to_string(i));
}

void expand(benchmark::State& state) {
    KestSupport::KestProperties<std::string> properties;
    addValues([&](const std::string& name, const std::string& value) { properties.addProperty(name, value); });
    const std::string text = textWithReferences();
    for (auto _ : state)
        benchmark::DoNotOptimize(KestSupport::KestExpandString(text, properties));
}

// Appends the text between the references. Looks up a name without copying it.
void expandByMap(benchmark::State& state) {
    std::map<std::string, std::string, std::less<>> values;
    addValues([&](const std::string& name, const std::string& value) { values[name] = value; });
    const std::string text = textWithReferences();
    for (auto _ : state) {
        std::string result;
        std::size_t done = 0;
        for (std::size_t begin = 0; (begin = text.find('<', done)) != std::string::npos;) {
            const std::size_t end = text.find('>', begin);
            if (end == std::string::npos) break;
            result.append(text, done, begin - done);
            const auto found = values.find(std::string_view(text).substr(begin + 1, end - begin - 1));
            if (found != values.end()) result += found->second;
            done = end + 1;
        }
        result.append(text, done);
        benchmark::DoNotOptimize(result);
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("environment/registry value of 10000")
        .ours(readRegistry)
        .peer("stat(2) and std::unordered_map", 0.7, readMap)
        .peer("GKeyFile (never looks at the file)", readKeyFile);
    Comparison("environment/expand 1000 references").ours(expand).peer("std::map and append", 1.0, expandByMap);
}
