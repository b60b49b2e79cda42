// A property file of 100,000 lines with names of 20 and values of about 14 characters, once sorted by name and once
// shuffled. The first save after a new name sorts the names; later saves reuse the order. The look-up copies the value
// of each name once, in a random order.
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
#include "temporary_folder.h"

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
    std::vector<std::string> names;  // in a random order
    const KestBench::TemporaryFolder folder;
    const std::string file = folder.file("plain");
    const std::string groupFile = folder.file("group");  // the same lines in a group, which the peer needs

    Settings(bool shuffled, int lines) {
        for (int i = 0; i < lines; ++i) {
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
        std::shuffle(names.begin(), names.end(), std::mt19937(2));
    }
};

using Properties = KestProperties<std::string>;

// The operations that are measured on both sides.
struct OurFile {
    explicit OurFile(const Settings& settings) : saved(settings.file + ".saved") {
        properties.loadProperties(settings.file);
    }

    void add(const std::string& name) { properties.addProperty(name, "new"); }
    void save() { properties.saveProperties(saved); }
    void lookUp(const std::string& name) const {
        const std::string value = properties.getProperty(name);
        benchmark::DoNotOptimize(value.data());
    }

    Properties properties;
    const std::string saved;
};

#ifdef KEST_HAVE_GLIB
struct KeyFile {
    explicit KeyFile(const Settings& settings) : saved(settings.groupFile + ".saved") {
        if (!g_key_file_load_from_file(file, settings.groupFile.c_str(), G_KEY_FILE_NONE, nullptr)) std::abort();
    }
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;
    ~KeyFile() { g_key_file_free(file); }

    void add(const std::string& name) { g_key_file_set_string(file, "settings", name.c_str(), "new"); }
    void save() { g_key_file_save_to_file(file, saved.c_str(), nullptr); }
    void lookUp(const std::string& name) const {
        gchar* const value = g_key_file_get_string(file, "settings", name.c_str(), nullptr);
        benchmark::DoNotOptimize(value);
        g_free(value);
    }
    void lookUpValue(const std::string& name) const {
        gchar* const value = g_key_file_get_value(file, "settings", name.c_str(), nullptr);
        benchmark::DoNotOptimize(value);
        g_free(value);
    }

    GKeyFile* const file = g_key_file_new();
    const std::string saved;
};
#endif

using SharedSettings = std::shared_ptr<const Settings>;

std::size_t bytesInUse() {
    return mallinfo2().uordblks + mallinfo2().hblkhd;
}

// Measured once and before the others, so that neither side can reuse freed memory.
template <typename File>
Body memory(const Settings& settings) {
    const std::size_t before = bytesInUse();
    const auto loaded = std::make_unique<File>(settings);
    const double mebibytes = static_cast<double>(bytesInUse() - before) / 1024 / 1024;
    return [mebibytes](benchmark::State& state) {
        for (auto _ : state) {
        }
        state.counters["value"] = mebibytes;
        state.SetLabel("MiB");
    };
}

template <typename File>
Body load(const SharedSettings& settings) {
    return [settings](benchmark::State& state) {
        for (auto _ : state) {
            auto file = std::make_unique<File>(*settings);
            state.PauseTiming();
            file.reset();
            state.ResumeTiming();
        }
    };
}

template <typename File>
Body lookUp(const SharedSettings& settings, void (File::*ask)(const std::string& name) const = &File::lookUp) {
    return [settings, ask](benchmark::State& state) {
        const File file(*settings);
        for (auto _ : state) {
            for (const std::string& name : settings->names)
                (file.*ask)(name);
        }
    };
}

template <typename File>
Body firstSave(const SharedSettings& settings) {
    return [settings](benchmark::State& state) {
        for (auto _ : state) {
            state.PauseTiming();
            auto file = std::make_unique<File>(*settings);
            file->add("service50000.name");
            state.ResumeTiming();
            file->save();
            state.PauseTiming();
            file.reset();
            state.ResumeTiming();
        }
    };
}

template <typename File>
Body save(const SharedSettings& settings) {
    return [settings](benchmark::State& state) {
        File file(*settings);
        for (auto _ : state)
            file.save();
    };
}

// The bodies of the peer, GKeyFile.
struct Peer {
    Body load, lookUp, lookUpValue, firstSave, save;
};

#ifdef KEST_HAVE_GLIB
Body peerMemory(const Settings& settings) {
    return memory<KeyFile>(settings);
}
Peer peerOf(const SharedSettings& settings) {
    return {load<KeyFile>(settings), lookUp<KeyFile>(settings), lookUp<KeyFile>(settings, &KeyFile::lookUpValue),
            firstSave<KeyFile>(settings), save<KeyFile>(settings)};
}
#else
Body peerMemory(const Settings&) {
    return KestBench::kMissing;
}
Peer peerOf(const SharedSettings&) {
    return {};
}
#endif

void compare(const SharedSettings& settings, const std::string& order) {
    const std::string name = "GKeyFile";
    const Peer peer = peerOf(settings);
    Comparison("properties/load " + order).ours(load<OurFile>(settings)).peer(name, 0.5, peer.load);
    Comparison("properties/look up " + order)
        .ours(lookUp<OurFile>(settings))
        .peer(name, 0.35, peer.lookUp)
        .peer(name + " get_value", 0.35, peer.lookUpValue);
    Comparison("properties/first save after a change " + order)
        .ours(firstSave<OurFile>(settings))
        .peer(name, 1.0, peer.firstSave);
    Comparison("properties/save " + order).ours(save<OurFile>(settings)).peer(name, 0.6, peer.save);
}

SharedSettings settingsOf(int lines) {
    return std::make_shared<const Settings>(true, lines);
}

}  // namespace

void KestBench::registerBenches() {
    const auto sorted = std::make_shared<const Settings>(false, kLines);
    Comparison("properties/memory").ours(memory<OurFile>(*sorted)).peer("GKeyFile", 1.0, peerMemory(*sorted));
    compare(sorted, "sorted");
    compare(std::make_shared<const Settings>(true, kLines), "shuffled");

    const auto sizes = {100, 1000, 10000, 100000, 1000000};
    Growth("properties/load shuffled", "lines").limit(1.15).at(sizes, [](benchmark::State& state, int lines) {
        load<OurFile>(settingsOf(lines))(state);
    });
    Growth("properties/look up all shuffled", "lines").at(sizes, [](benchmark::State& state, int lines) {
        lookUp<OurFile>(settingsOf(lines))(state);
    });
    Growth("properties/first save after a change", "lines")
        .limit(1.15)
        .at(sizes, [](benchmark::State& state, int lines) { firstSave<OurFile>(settingsOf(lines))(state); });
}
