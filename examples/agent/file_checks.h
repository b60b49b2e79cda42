// Checks whether a file can be read or written. The errors contain the system's reason; those of the library's classes
// say only that a file could not be opened.
#pragma once

#include <string>

namespace agent {

/// Throws BadInput, whose text begins with `what`, unless the file is a readable regular file of at most 1 MiB without
/// NULs.
void requireReadableText(const std::string& what, const std::string& file);

/// Creates an empty file and replaces any file of that name. A link is replaced; its target does not change. Throws
/// BadInput, whose text begins with `what`, when that fails.
void makeEmptyFile(const std::string& what, const std::string& file);

/// Creates `probe` as makeEmptyFile does and removes it. Throws BadInput, whose text begins with `what`, on failure.
void requireCreatable(const std::string& what, const std::string& probe);

/// Throws BadInput, whose text begins with `what`, unless the file is a regular file that can be appended to, or does
/// not exist and can be created. Leaves no new file.
void requireAppendable(const std::string& what, const std::string& file);

}  // namespace agent
