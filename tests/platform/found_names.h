// The names that a search pattern matches, for tests.
#pragma once

#include <set>

#include "kit/temporary_folder.h"
#include "platform/files.h"

namespace {

// Returns the names that match, each followed by a blank.
std::string found(const std::string& pattern) {
    std::set<std::string> names;
    KestSupport::platform::FileSearch search;
    EXPECT_EQ(search.start(pattern), 0);
    for (std::string name; search.next(name);)
        names.insert(name + ' ');
    std::string all;
    for (const std::string& name : names)
        all += name;
    return all;
}

}  // namespace
