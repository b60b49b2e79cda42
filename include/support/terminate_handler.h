// Shows the text of a KestException that no handler catches.
#pragma once

#include "support/export.h"

namespace KestSupport {

/// Installs a terminate handler for the whole process. If a KestException ends the process, the handler writes a line
/// to standard error, "Uncaught " with the class, the text and the code:
///
///     Uncaught KestSupport::KestPropertyNotFound: Property not found: port (code 0)
///
/// In every case it then calls the handler that was installed before, which ends the process. A second call does
/// nothing. Call it at the beginning of main. Do not call it in a library that can be unloaded.
KEST_SUPPORT_EXPORT void kestShowUncaughtExceptions() noexcept;

}  // namespace KestSupport
