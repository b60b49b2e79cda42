// The seam between the library and the operating system. A back end calls it before each step whose failure matters.
// So a test can make the Nth such step fail, once or from then on. Without a hook the call costs one load.
//
// A step has the name of the contract function that it belongs to ("createThread", "loadLibrary", "makeDirectory"), the
// same in every back end. Where one name would be too coarse, the steps have these names:
//
//   contract          steps
//   console.h         openConsoleEvents: catches one kind of event; startConsoleThread: the thread that runs handlers
//   file_stream.h     openStream, readStream, writeStream, closeStream
//   file_replacement.h  openReplacement, copyAccess, flushReplacement, replaceFile
//   files.h           FileSearch, TreeWalk: openDirectory, readDirectory, entryKind, identifyDirectory, removeEntry
//   orphans.h         adoptOrphans
//   output_capture.h  openCapture
//   process.h         Process::start: currentDirectory, passHandle (of a standard handle), startProcess, startDetached,
//                     openProcess (the system's handle); Process::wait: waitForProcess, for a detached program only
//   record_file.h     openRecordFile, emptyRecordFile, renameRecordFile, writeRecords
//   registry.h        findRegistry, openRegistry, readRegistry
//   services/         system.h: openFolder, openFile, readFile, writeFile, lockByte, findLock, folderAccess,
//                     makeFolder, replaceFile, renameFile, removeEntry, fileFacts, flush, lockFolder, openNullDevice,
//                     installForkHandlers;
//                     channel.h: openChannel, connectChannel, takeStandardInput, sendMessage, awaitMessage,
//                     receiveMessage, peerUser, listen, acceptChannel, makeWakeUp
//   state_directory.h homeDirectory, makeDirectory, isDirectory
//   supervisor.h      connectSupervisor, tellSupervisor
//   text.h            openCharacterSet, allocateWideString
//   thread.h          prepareThreads: once for each process; createThread; inheritScheduling: on the new thread;
//                     setThreadPriority; interruptThread: one request to suspend or terminate
//   wait.h            createEvent, createMutex, createWaitableTimer, setWaitableTimer; attachThread: the first use of
//                     the waits by a thread
//
// Threads: a thread that calls the hook may hold internal locks. So the hook must take no lock of the library and call
// no function of it.
#pragma once

#include <atomic>

namespace KestSupport::platform {

/// Returns 0 to run the named step, or the errno value with which it fails.
using FaultHook = int (*)(const char* step) noexcept;

namespace internal {
inline std::atomic<FaultHook> g_faultHook{nullptr};
}  // namespace internal

/// Installs the hook for the whole process; null removes it.
inline void setFaultHook(FaultHook hook) noexcept {
    internal::g_faultHook.store(hook, std::memory_order_release);
}

/// Returns the errno value with which the named step fails, or 0.
inline int injectedFault(const char* step) noexcept {
    const FaultHook hook = internal::g_faultHook.load(std::memory_order_acquire);
    return hook == nullptr ? 0 : hook(step);
}

}  // namespace KestSupport::platform
