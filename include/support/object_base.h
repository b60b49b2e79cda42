// The root of the library's reference-counted objects, and the pointer that holds them.
//
//   KestObjectBase    an object that counts its references and deletes itself at the last release
//   KestSmartPointer  one reference
//   kestMake          creates an object and returns its first reference
//
// Threads: any thread may call addRef and release. The count is atomic, and the thread that releases the last reference
// sees everything that other threads did before they released theirs. One smart pointer object must not be written by
// two threads at once; different smart pointers to one target may.
//
// Lifetime: an object that smart pointers hold is made with new. An object on the stack, inside another object or in
// static storage is never given to a smart pointer, because the last release would delete it.
#pragma once

#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "support/export.h"

namespace KestSupport {

/// The base of all objects that are shared by pointer. A new object has the count 0.
class KEST_SUPPORT_EXPORT KestObjectBase {
  public:
    KestObjectBase() noexcept = default;
    /// The count is not copied: a copy starts at 0.
    KestObjectBase(const KestObjectBase&) noexcept {}
    /// The count is not assigned: it stays the number of references to this object.
    KestObjectBase& operator=(const KestObjectBase&) noexcept { return *this; }
    virtual ~KestObjectBase();

    /// Adds a reference and returns the new count. A class may override addRef and release. A smart pointer may not
    /// call them if it received the object before the constructor of that class had begun.
    virtual unsigned long addRef();
    /// Releases one reference that addRef added, and returns the new count. At 0 the object deletes itself while no
    /// lock of the library is held, and the caller must not use it again.
    virtual unsigned long release();
    /// Returns the number of references. With several threads it may be out of date at once.
    virtual unsigned long refCount() const;
    /// Returns whether `name` is, byte by byte, the name of the most derived class as KestObjectBase::getClassName
    /// returns it. False for the name of a base class.
    virtual bool isA(const std::string& name) const;
    /// Returns the name of the most derived class with its namespaces, for example "KestSupport::KestThread".
    virtual std::string getClassName() const;

  protected:
    /// Returns the text after the first blank, or the whole text when it has none. Some platforms put a keyword before
    /// a name: "class KestSupport::KestThread" becomes "KestSupport::KestThread".
    static std::string normalizeClassName(const std::string& s);

    std::atomic<std::uint32_t> m_refCount{0};  ///< the number of references

  private:
    template <typename>
    friend class KestSmartPointer;

    // For smart pointers: addRef and release, which are virtual calls only if the class of some object overrides them.
    // A virtual call reads the object before it changes the count. While two threads use the object, its cache line
    // then comes twice: 140 instead of 72 ns for a copy and its end (bench/object_base).
    void hold() {
        if (m_hasOverrides.isSet.load(std::memory_order_relaxed)) {
            addRef();
        } else {
            m_refCount.fetch_add(1, std::memory_order_relaxed);
        }
    }
    void drop() {
        if (m_hasOverrides.isSet.load(std::memory_order_relaxed)) {
            release();
        } else if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }
    // Called when a smart pointer receives an object, before hold and drop.
    void noteOverrides() const noexcept;

    struct alignas(64) Flag {  // alone in its cache line, since all threads read it often
        std::atomic<bool> isSet{false};
    };
    // Set before the first smart pointer has an object whose class overrides addRef or release. Another thread gets
    // such a pointer only after that.
    static Flag m_hasOverrides;
};

/// Holds one reference to a T, which is KestObjectBase or derives from it. Dereferencing does not check for null. The
/// order and the hash are those of the address.
template <typename T>
class KestSmartPointer {
  public:
    /// Null.
    KestSmartPointer() noexcept = default;
    /// Adds a reference, so a new object has the count 1. The target may be null: nullptr, NULL or 0.
    KestSmartPointer(T* target)  // NOLINT(google-explicit-constructor)
        : m_pTarget(receive(target)) {
        hold(m_pTarget);
    }
    KestSmartPointer(const KestSmartPointer& other) : m_pTarget(other.m_pTarget) { hold(m_pTarget); }
    /// Moves the reference; `other` becomes null, and the count does not change.
    KestSmartPointer(KestSmartPointer&& other) noexcept : m_pTarget(other.m_pTarget) { other.m_pTarget = nullptr; }
    /// Shares or moves the reference of a pointer to a derived class.
    template <typename U>
    requires(!std::same_as<U, T> && std::convertible_to<U*, T*>)
        KestSmartPointer(const KestSmartPointer<U>& other)  // NOLINT(google-explicit-constructor)
        : KestSmartPointer(static_cast<T*>(other.get())) {}
    template <typename U>
    requires(!std::same_as<U, T> && std::convertible_to<U*, T*>) KestSmartPointer(KestSmartPointer<U>&& other)
    noexcept  // NOLINT(google-explicit-constructor)
        : m_pTarget(receive(std::exchange(other.m_pTarget, nullptr))) {}
    ~KestSmartPointer() { drop(m_pTarget); }

    KestSmartPointer& operator=(const KestSmartPointer& other) {
        if (this == &other || m_pTarget == other.m_pTarget) return *this;
        T* const target = other.m_pTarget;
        clear();
        m_pTarget = target;
        hold(m_pTarget);
        return *this;
    }
    KestSmartPointer& operator=(KestSmartPointer&& other) noexcept {
        if (this == &other) return *this;
        T* const target = other.m_pTarget;
        other.m_pTarget = nullptr;
        if (target == m_pTarget) {
            drop(target);
            return *this;
        }
        clear();
        m_pTarget = target;
        return *this;
    }
    /// Releases the old target and then adds a reference to the new one; does nothing when they are the same. A new
    /// target that only the old one keeps alive needs another reference during this call.
    KestSmartPointer& operator=(T* target) {
        if (target == m_pTarget) return *this;
        clear();
        m_pTarget = receive(target);
        hold(m_pTarget);
        return *this;
    }

    /// The target. A null pointer is not checked.
    T* operator->() const noexcept { return m_pTarget; }
    T& operator*() const noexcept { return *m_pTarget; }
    /// The target, which may be null.
    T* get() const noexcept { return m_pTarget; }
    /// Whether there is no target.
    bool isNull() const noexcept { return m_pTarget == nullptr; }
    /// Whether there is a target.
    explicit operator bool() const noexcept { return m_pTarget != nullptr; }

    /// Compare the addresses of the targets.
    friend bool operator==(const KestSmartPointer& a, const KestSmartPointer& b) noexcept {
        return a.m_pTarget == b.m_pTarget;
    }
    friend bool operator==(const KestSmartPointer& a, const T* b) noexcept { return a.m_pTarget == b; }
    friend std::strong_ordering operator<=>(const KestSmartPointer& a, const KestSmartPointer& b) noexcept {
        return std::compare_three_way()(a.m_pTarget, b.m_pTarget);
    }

  private:
    template <typename>
    friend class KestSmartPointer;

    // Whether T leaves addRef and release as they are. A class derived from T may still override them.
    static constexpr bool inheritsCount() {
        using Count = unsigned long (KestObjectBase::*)();
        return requires(T * target) {
            requires std::same_as<decltype(&T::addRef), Count>;
            requires std::same_as<decltype(&T::release), Count>;
            static_cast<KestObjectBase*>(target);
        };
    }
    static T* receive(T* target) noexcept {
        if constexpr (inheritsCount())
            if (target != nullptr) static_cast<KestObjectBase*>(target)->noteOverrides();
        return target;
    }
    static void hold(T* target) {
        if (target == nullptr) return;
        if constexpr (inheritsCount()) {
            static_cast<KestObjectBase*>(target)->hold();
        } else {
            target->addRef();
        }
    }
    static void drop(T* target) {
        if (target == nullptr) return;
        if constexpr (inheritsCount()) {
            static_cast<KestObjectBase*>(target)->drop();
        } else {
            target->release();
        }
    }
    // The pointer is cleared first, because the target's destructor may use this smart pointer.
    void clear() { drop(std::exchange(m_pTarget, nullptr)); }

    T* m_pTarget = nullptr;
};

/// Creates a T from the arguments and returns the first reference to it:
///
///     const auto thread = kestMake<Worker>("reader");
template <typename T, typename... Arguments>
KestSmartPointer<T> kestMake(Arguments&&... arguments) {
    return KestSmartPointer<T>(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace KestSupport

template <typename T>
struct std::hash<KestSupport::KestSmartPointer<T>> {
    std::size_t operator()(const KestSupport::KestSmartPointer<T>& pointer) const noexcept {
        return std::hash<T*>()(pointer.get());
    }
};
