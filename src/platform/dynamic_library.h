// Shared libraries that are loaded while the program runs.
//
// Each load returns a handle. A library stays loaded until unloadLibrary was called for each of its handles. Any thread
// may call these functions. Loading and unloading run code of the library, which may do anything.
#pragma once

#include <string>

namespace KestSupport::platform {

using LibraryHandle = void*;

/// Loads a library by a path, or by a name that the system searches for. The name is not empty. If that fails, returns
/// null and stores the system's text in `message`. A library with an undefined symbol is refused.
LibraryHandle loadLibrary(const std::string& name, std::string& message);

/// Loads a loaded library once more, even if its file has been replaced or removed. If that fails, returns null and
/// stores a text in `message`.
LibraryHandle loadAgain(LibraryHandle library, std::string& message);

/// Returns the address of a symbol that the library exports, or null. A back end may also find symbols of the libraries
/// that it depends on.
void* findSymbol(LibraryHandle library, const std::string& name) noexcept;

/// Ends one load.
void unloadLibrary(LibraryHandle library) noexcept;

}  // namespace KestSupport::platform
