// Shared libraries that are loaded while the program runs.
//
// A handle stands for one load; the library stays as long as one of its loads is not given back. Threads: any. Loading
// and unloading run the library's own code, which may do anything.
#pragma once

#include <string>

namespace KestSupport::platform {

using LibraryHandle = void*;

/// Loads a library by a path, or by a name that is looked for where the system looks for libraries. Null, and the
/// system's text in `message`, when that fails. A library with symbols that nobody has is refused.
LibraryHandle loadLibrary(const std::string& name, std::string& message);

/// One more load of a loaded library, whatever file lies at its path by now. Null, with a text, when that fails.
LibraryHandle loadAgain(LibraryHandle library, std::string& message);

/// The address of a symbol that the library exports, or null. A back end may find those of the libraries that it needs.
void* findSymbol(LibraryHandle library, const std::string& name) noexcept;

/// Gives back one load.
void unloadLibrary(LibraryHandle library) noexcept;

}  // namespace KestSupport::platform
