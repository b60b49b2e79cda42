// The process-wide reference-count lock, under which lock implementations are created. (The counts themselves are
// atomic and do without it.) Created when the library is loaded, or earlier if another static object locks first;
// deleted when the library is unloaded; both by the module data (os/module_data.cpp), which owns it.
#pragma once

#include "support/locks.h"

namespace KestSupport::internal {

/// The lock, null before it is created and after it is deleted.
KestCriticalSectionObject* referenceCountLock() noexcept;
/// Creates the lock if there is none. Not for two threads at once.
void createReferenceCountLock();
void deleteReferenceCountLock() noexcept;

}  // namespace KestSupport::internal
