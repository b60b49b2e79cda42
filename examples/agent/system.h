// What differs between the systems besides the figures (machine_figures.h). The folder of each system implements it.
#pragma once

#include <filesystem>
#include <string>

namespace agent {

/// The folder of this program; empty when the system does not tell it.
std::string programFolder();

/// Convert a path from and to the text that the library and the C library take. On Windows that text is in the user's
/// code page, and std::filesystem takes and returns texts in other ones.
std::filesystem::path pathOf(const std::string& text);
std::string textOf(const std::filesystem::path& path);

}  // namespace agent
