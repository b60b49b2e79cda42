// A property file of 100,000 lines, as settings go: names of 20 and values of about 14 characters, once in the order of
// the names and once shuffled. The first save has to find the order of the names; the others know it. Looking up asks
// for every name once, in the file's order, and copies the value.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "support/properties.h"

#ifdef KEST_HAVE_GLIB
#include <glib.h>
#endif
#include <malloc.h>

using KestBench::Body;
using KestBench::Comparison;
using KestSupport::KestProperties;

namespace {

constexpr int kLines = 100000;

struct Settings {
    std::vector<std::string> names;
    std::string file;       // without, and
    std::string groupFile;  // with the group that the peer needs

    explicit Settings(const char* name, bool shuffled)
        : file(std::string("/tmp/kest_properties_bench_") + std::to_string(getpid()) + name),
          groupFile(file + ".group") {
        for (int i = 0; i < kLines; ++i) {
            char text[32];
            std::snprintf(text, sizeof text, "service%05d.setting", i);
            names.emplace_back(text);
        }
        if (shuffled) std::shuffle(names.begin(), names.end(), std::mt19937(1));
        std::ofstream plain(file), grouped(groupFile);
        grouped << "[settings]\n";
        for (const std::string& each : names) {
            plain << each << "=value of " << each.substr(7, 5) << "\n";
            grouped << each << "=value of " << each.substr(7, 5) << "\n";
        }
    }
    ~Settings() {
        std::remove(file.c_str());
        std::remove(groupFile.c_str());
    }
};

using Properties = KestProperties<std::string>;

#ifdef KEST_HAVE_GLIB
struct KeyFile {
    GKeyFile* const file = g_key_file_new();
    explicit KeyFile(const Settings& settings) {
        if (!g_key_file_load_from_file(file, settings.groupFile.c_str(), G_KEY_FILE_NONE, nullptr)) std::abort();
    }
    ~KeyFile() { g_key_file_free(file); }
};
#endif

std::size_t bytesInUse() {
    return mallinfo2().uordblks + mallinfo2().hblkhd;
}

template <typename Load>
Body memoryOf(Load load) {
    const std::size_t before = bytesInUse();
    const auto loaded = load();
    const double mebibytes = static_cast<double>(bytesInUse() - before) / 1024 / 1024;
    return [mebibytes](benchmark::State& state) {
        for (auto _ : state) {
        }
        state.counters["value"] = mebibytes;
        state.SetLabel("MiB");
    };
}

// Measured once and first, while no memory that was freed lies about for one of the two to take.
void registerMemory(const Settings& settings) {
    Comparison("properties/memory")
        .ours(memoryOf([&] {
            auto properties = std::make_unique<Properties>();
            properties->loadProperties(settings.file);
            return properties;
        }))
#ifdef KEST_HAVE_GLIB
        .peer("GKeyFile", 1.0, memoryOf([&] { return std::make_unique<KeyFile>(settings); }))
#endif
        ;
}

void registerSpeed(const std::shared_ptr<Settings>& settings, const std::string& order) {
    Comparison("properties/load " + order)
        .ours([settings](benchmark::State& state) {
            for (auto _ : state) {
                auto properties = std::make_unique<Properties>();
                properties->loadProperties(settings->file);
                state.PauseTiming();
                properties.reset();
                state.ResumeTiming();
            }
        })
#ifdef KEST_HAVE_GLIB
        .peer("GKeyFile", 0.5,
              [settings](benchmark::State& state) {
                  for (auto _ : state) {
                      auto keys = std::make_unique<KeyFile>(*settings);
                      state.PauseTiming();
                      keys.reset();
                      state.ResumeTiming();
                  }
              })
#endif
        ;
    Comparison("properties/look up " + order)
        .ours([settings](benchmark::State& state) {
            Properties properties;
            properties.loadProperties(settings->file);
            for (auto _ : state) {
                for (const std::string& name : settings->names) {
                    const std::string value = properties.getProperty(name);
                    benchmark::DoNotOptimize(value.data());
                }
            }
        })
#ifdef KEST_HAVE_GLIB
        .peer("GKeyFile", 0.5,
              [settings](benchmark::State& state) {
                  const KeyFile keys(*settings);
                  for (auto _ : state) {
                      for (const std::string& name : settings->names) {
                          gchar* const value = g_key_file_get_string(keys.file, "settings", name.c_str(), nullptr);
                          benchmark::DoNotOptimize(value);
                          g_free(value);
                      }
                  }
              })
        .peer("GKeyFile get_value", 0.5,
              [settings](benchmark::State& state) {
                  const KeyFile keys(*settings);
                  for (auto _ : state) {
                      for (const std::string& name : settings->names) {
                          gchar* const value = g_key_file_get_value(keys.file, "settings", name.c_str(), nullptr);
                          benchmark::DoNotOptimize(value);
                          g_free(value);
                      }
                  }
              })
#endif
        ;
    Comparison("properties/first save " + order)
        .ours([settings](benchmark::State& state) {
            for (auto _ : state) {
                state.PauseTiming();
                auto properties = std::make_unique<Properties>();
                properties->loadProperties(settings->file);
                state.ResumeTiming();
                properties->saveProperties(settings->file + ".saved");
                state.PauseTiming();
                properties.reset();
                state.ResumeTiming();
            }
            std::remove((settings->file + ".saved").c_str());
        })
#ifdef KEST_HAVE_GLIB
        .peer("GKeyFile", 1.0,
              [settings](benchmark::State& state) {
                  for (auto _ : state) {
                      state.PauseTiming();
                      auto keys = std::make_unique<KeyFile>(*settings);
                      state.ResumeTiming();
                      g_key_file_save_to_file(keys->file, (settings->groupFile + ".saved").c_str(), nullptr);
                      state.PauseTiming();
                      keys.reset();
                      state.ResumeTiming();
                  }
                  std::remove((settings->groupFile + ".saved").c_str());
              })
#endif
        ;
    Comparison("properties/save " + order)
        .ours([settings](benchmark::State& state) {
            Properties properties;
            properties.loadProperties(settings->file);
            for (auto _ : state)
                properties.saveProperties(settings->file + ".saved");
            std::remove((settings->file + ".saved").c_str());
        })
#ifdef KEST_HAVE_GLIB
        .peer("GKeyFile", 0.6,
              [settings](benchmark::State& state) {
                  const KeyFile keys(*settings);
                  for (auto _ : state)
                      g_key_file_save_to_file(keys.file, (settings->groupFile + ".saved").c_str(), nullptr);
                  std::remove((settings->groupFile + ".saved").c_str());
              })
#endif
        ;
}

}  // namespace

void KestBench::registerBenches() {
    const auto sorted = std::make_shared<Settings>("sorted", false);
    registerMemory(*sorted);
    registerSpeed(sorted, "sorted");
    registerSpeed(std::make_shared<Settings>("shuffled", true), "shuffled");
}
