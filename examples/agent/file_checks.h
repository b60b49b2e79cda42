// Whether a file can be read or written, with the system's reason when it cannot: the library's classes say only that
// it could not be opened.
#pragma once

#include <string>

namespace agent {

/// Throws BadInput, beginning with `what`, unless the file is a regular one that can be read, of at most 1 MiB and
/// without NULs.
void requireReadableText(const std::string& what, const std::string& file);

/// Makes an empty file in place of what has that name; a link is replaced and what it leads to is left alone. Throws
/// BadInput, beginning with `what`, when that fails.
void makeEmptyFile(const std::string& what, const std::string& file);

/// Throws BadInput, beginning with `what`, unless `probe` can be made as makeEmptyFile does. It is removed afterwards.
void requireCreatable(const std::string& what, const std::string& probe);

}  // namespace agent
