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

// Out of line, so that the program exports it.
#define KEST_NEVER_CALLED(function) \
    function {                      \
        std::abort();               \
    }
KEST_NEVER_CALLED(LockBase::~LockBase())
KEST_NEVER_CALLED(unsigned long LockBase::addRef())
KEST_NEVER_CALLED(unsigned long LockBase::release())
KEST_NEVER_CALLED(LockImplementation::LockImplementation(bool))
KEST_NEVER_CALLED(LockImplementation::~LockImplementation())
KEST_NEVER_CALLED(void LockImplementation::lock())
KEST_NEVER_CALLED(void LockImplementation::unlock())
KEST_NEVER_CALLED(bool LockImplementation::testAndSet())
KEST_NEVER_CALLED(RwLockImplementation::RwLockImplementation())
KEST_NEVER_CALLED(RwLockImplementation::~RwLockImplementation())
KEST_NEVER_CALLED(void RwLockImplementation::readLock())
KEST_NEVER_CALLED(void RwLockImplementation::readUnLock())
KEST_NEVER_CALLED(bool RwLockImplementation::tryWriteLock())
KEST_NEVER_CALLED(void RwLockImplementation::writeUnLock())
