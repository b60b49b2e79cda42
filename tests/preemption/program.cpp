// Uses each lock of the library in a program that has other classes with the names of the locks' classes.
#include <support/events.h>
#include <support/locks.h>
#include <support/properties.h>
#include <support/read_write_lock.h>

using namespace KestSupport;

int main() {
    KestCriticalSectionObject mutex, section(true);
    for (KestCriticalSectionObject* const lock : {&mutex, &section}) {
        const KestCriticalSection guard(*lock, true);
        KestCriticalSectionObject copy(*lock);
        if (!copy.testAndSet() || copy.lockCount() != 2) return 1;
        copy.unlock();
    }
    KestReadWriteLock shared;
    shared.readLock();
    if (shared.tryWriteLock()) return 2;
    shared.readUnLock();
    if (!KestReadWriteLock(shared).tryWriteLock()) return 3;
    shared.writeUnLock();
    KestEvent event;
    event.set();
    KestProperties<std::string> properties;
    properties.addProperty("name=value", '=');
    return event.wait(0) == 0 && properties.getProperty("name") == "value" ? 0 : 4;
}
