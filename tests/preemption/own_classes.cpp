// Classes of a program with the names of classes of the library. The library must call none of their functions.
#include <cstdlib>

class LockBase {
  public:
    virtual ~LockBase();
    virtual unsigned long addRef();
    virtual unsigned long release();
};

class LockImplementation : public LockBase {
  public:
    explicit LockImplementation(bool open);
    ~LockImplementation() override;
    void lock();
    void unlock();
    bool testAndSet();
};

class RwLockImplementation {
  public:
    RwLockImplementation();
    virtual ~RwLockImplementation();
    void readLock();
    void readUnLock();
    bool tryWriteLock();
    void writeUnLock();
};

LockBase::~LockBase() {
    std::abort();
}
unsigned long LockBase::addRef() {
    std::abort();
}
unsigned long LockBase::release() {
    std::abort();
}
LockImplementation::LockImplementation(bool) {
    std::abort();
}
LockImplementation::~LockImplementation() {
    std::abort();
}
void LockImplementation::lock() {
    std::abort();
}
void LockImplementation::unlock() {
    std::abort();
}
bool LockImplementation::testAndSet() {
    std::abort();
}
RwLockImplementation::RwLockImplementation() {
    std::abort();
}
RwLockImplementation::~RwLockImplementation() {
    std::abort();
}
void RwLockImplementation::readLock() {
    std::abort();
}
void RwLockImplementation::readUnLock() {
    std::abort();
}
bool RwLockImplementation::tryWriteLock() {
    std::abort();
}
void RwLockImplementation::writeUnLock() {
    std::abort();
}
