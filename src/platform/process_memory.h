// Memory that is created when it is first needed and exists until the library is unloaded.
//
//   ProcessObject<T>   one object
//   ProcessList<T>     a list that only grows; its entries never change
//
// No operation takes a lock, so a thread that is terminated or forked leaves no lock locked. If two threads create the
// same object, the first one publishes it and the other deletes its own.
//
// Lifetime: both are constant-initialised variables at namespace scope. At the end of the process nothing is deleted,
// since static destructors of the program and running threads may use it. When the library is unloaded from a process
// that continues, all of it is deleted after the static objects of the library, the latest first.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

namespace KestSupport::platform {

/// Back end: deletes all ProcessMemory if the library is being unloaded, else does nothing. No code of the library runs
/// afterwards.
void deleteProcessMemory() noexcept;

class ProcessMemory {
  public:
    ProcessMemory(const ProcessMemory&) = delete;
    ProcessMemory& operator=(const ProcessMemory&) = delete;

    /// Deletes the memory of every object.
    static void deleteAll() noexcept;

  protected:
    using Delete = void (*)(ProcessMemory&) noexcept;

    constexpr explicit ProcessMemory(Delete deleteMemory) noexcept : m_delete(deleteMemory) {}
    ~ProcessMemory() = default;

    /// Called after the first memory was published.
    void remember() noexcept;

  private:
    const Delete m_delete;
    ProcessMemory* m_next = nullptr;  // the one that was remembered before
};

template <typename T>
class ProcessObject : ProcessMemory {
  public:
    constexpr ProcessObject() noexcept : ProcessMemory(&deleteObject) {}

    /// Returns the object. If there is none, `make` creates it; it returns a std::unique_ptr<T>.
    template <typename Make>
    T& get(const Make& make) {
        T* const made = m_object.load(std::memory_order_acquire);
        return made != nullptr ? *made : publish(make());
    }
    T& get() {
        return get([] { return std::make_unique<T>(); });
    }

  private:
    T& publish(std::unique_ptr<T> made) noexcept {
        T* published = nullptr;
        if (!m_object.compare_exchange_strong(published, made.get(), std::memory_order_acq_rel)) return *published;
        remember();
        return *made.release();
    }

    static void deleteObject(ProcessMemory& self) noexcept {
        delete static_cast<ProcessObject&>(self).m_object.exchange(nullptr);
    }

    std::atomic<T*> m_object{nullptr};
};

template <typename T>
class ProcessList : ProcessMemory {
  public:
    struct Entry {
        const T value;
        std::uint32_t number = 0;  ///< counted from 0 in the order of publication
        const Entry* next = nullptr;
    };

    constexpr ProcessList() noexcept : ProcessMemory(&deleteEntries) {}

    /// Returns the first entry that the predicate accepts, or null.
    template <typename Accepts>
    const Entry* find(const Accepts& accepts) const {
        return findFrom(m_latest.load(std::memory_order_acquire), accepts);
    }

    /// Adds an entry unless the predicate accepts one of the list. Returns the entry of the list.
    template <typename Accepts>
    const Entry& add(const Accepts& accepts, T value) {
        std::unique_ptr<Entry> added(new Entry{std::move(value)});
        const Entry* latest = m_latest.load(std::memory_order_acquire);
        do {
            if (const Entry* const known = findFrom(latest, accepts)) return *known;
            added->number = latest == nullptr ? 0 : latest->number + 1;
            added->next = latest;
        } while (!m_latest.compare_exchange_weak(latest, added.get(), std::memory_order_acq_rel));
        if (latest == nullptr) remember();
        return *added.release();
    }

    /// Returns the value of an entry. Requires that the list has the number.
    const T& at(std::uint32_t number) const noexcept {
        const Entry* entry = m_latest.load(std::memory_order_acquire);
        while (entry->number != number)
            entry = entry->next;
        return entry->value;
    }

    std::uint32_t size() const noexcept {
        const Entry* const latest = m_latest.load(std::memory_order_acquire);
        return latest == nullptr ? 0 : latest->number + 1;
    }

  private:
    template <typename Accepts>
    static const Entry* findFrom(const Entry* entry, const Accepts& accepts) {
        while (entry != nullptr && !accepts(entry->value))
            entry = entry->next;
        return entry;
    }

    static void deleteEntries(ProcessMemory& self) noexcept {
        const Entry* entry = static_cast<ProcessList&>(self).m_latest.exchange(nullptr);
        while (entry != nullptr)
            delete std::exchange(entry, entry->next);
    }

    std::atomic<const Entry*> m_latest{nullptr};
};

}  // namespace KestSupport::platform
