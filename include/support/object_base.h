// The root of the library's reference-counted objects and the pointer that holds them.
//
//   KestObjectBase    an object that carries the number of its holders and deletes itself when the last one lets go
//   KestSmartPointer  one holder
//
// Threads: addRef and release may be called from any thread; the count is atomic, and the thread that drops the last
// reference sees everything that other holders did before they dropped theirs. One smart pointer object must not be
// written by two threads at once; different smart pointers to one target may.
//
// Lifetime: an object that smart pointers hold lives on the heap, made with new. An object on the stack, inside another
// object or in static storage is never handed to a smart pointer: its last release would delete it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "support/export.h"

namespace KestSupport {

/// Base of everything that is shared by pointer. A new object has no holder (count 0).
class KEST_SUPPORT_EXPORT KestObjectBase {
  public:
    KestObjectBase() noexcept = default;
    /// The count belongs to the object: a copy starts at 0.
    KestObjectBase(const KestObjectBase&) noexcept {}
    /// Leaves the count alone, so that it stays the number of holders of this object.
    KestObjectBase& operator=(const KestObjectBase&) noexcept { return *this; }
    virtual ~KestObjectBase();

    /// Adds a holder and returns the count that this made.
    virtual unsigned long addRef();
    /// Gives up one reference taken by addRef. At 0 the object deletes itself, and nothing of it may be touched again;
    /// no lock of the library is held meanwhile. Returns the count that is left.
    virtual unsigned long release();
    /// The number of holders; with several threads it may be out of date at once.
    virtual unsigned long refCount() const;
    /// True exactly when name is what KestObjectBase::getClassName says of the most derived class: byte by byte, and
    /// false for the name of any base.
    virtual bool isA(const std::string& name) const;
    /// The namespace-qualified name of the most derived class, as "KestSupport::KestThread".
    virtual std::string getClassName() const;

  protected:
    /// The text behind the first blank; the whole text when it has none. For names that begin with a keyword, as some
    /// platforms spell them ("class KestSupport::KestThread").
    static std::string normalizeClassName(const std::string& s);

    std::atomic<std::uint32_t> m_refCount{0};
};

/// Holds one reference to a T, which is KestObjectBase or derives from it. Dereferencing checks nothing.
template <typename T>
class KestSmartPointer {
  public:
    KestSmartPointer() noexcept = default;
    KestSmartPointer(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
    /// Takes a reference of its own; a new object's first smart pointer brings its count to 1.
    KestSmartPointer(T* target) : m_pTarget(target) {  // NOLINT(google-explicit-constructor)
        if (m_pTarget != nullptr) m_pTarget->addRef();
    }
    KestSmartPointer(const KestSmartPointer& other) : KestSmartPointer(other.m_pTarget) {}
    /// Takes over the reference of other, which is left empty; the count does not change.
    KestSmartPointer(KestSmartPointer&& other) noexcept : m_pTarget(other.m_pTarget) { other.m_pTarget = nullptr; }
    ~KestSmartPointer() {
        if (m_pTarget != nullptr) m_pTarget->release();
    }

    KestSmartPointer& operator=(const KestSmartPointer& other) {
        if (this != &other) *this = other.m_pTarget;
        return *this;
    }
    KestSmartPointer& operator=(KestSmartPointer&& other) noexcept {
        if (this == &other) return *this;
        T* const target = other.m_pTarget;
        other.m_pTarget = nullptr;
        if (target == m_pTarget) {
            if (target != nullptr) target->release();
            return *this;
        }
        drop();
        m_pTarget = target;
        return *this;
    }
    /// Releases the old target, then holds the new one; nothing happens when they are the same. A new target that
    /// nothing but the old one keeps alive needs another holder meanwhile.
    KestSmartPointer& operator=(T* target) {
        if (target == m_pTarget) return *this;
        drop();
        m_pTarget = target;
        if (m_pTarget != nullptr) m_pTarget->addRef();
        return *this;
    }

    T* operator->() const noexcept { return m_pTarget; }
    T& operator*() const noexcept { return *m_pTarget; }
    T* get() const noexcept { return m_pTarget; }
    bool isNull() const noexcept { return m_pTarget == nullptr; }
    explicit operator bool() const noexcept { return m_pTarget != nullptr; }

    friend bool operator==(const KestSmartPointer& a, const KestSmartPointer& b) noexcept {
        return a.m_pTarget == b.m_pTarget;
    }
    friend bool operator==(const KestSmartPointer& a, const T* b) noexcept { return a.m_pTarget == b; }
    friend bool operator==(const KestSmartPointer& a, std::nullptr_t) noexcept { return a.m_pTarget == nullptr; }

  private:
    // The pointer is cleared first: the target's destructor may come back to this holder.
    void drop() {
        T* const old = m_pTarget;
        m_pTarget = nullptr;
        if (old != nullptr) old->release();
    }

    T* m_pTarget = nullptr;
};

}  // namespace KestSupport
