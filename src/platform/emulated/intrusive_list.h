// A doubly linked list whose elements contain their own links. So nothing is allocated, and an element is removed in
// constant time. An element is in at most one list for each of its links.
#pragma once

namespace KestSupport::platform {

template <typename T>
struct ListLinks {
    T* previous = nullptr;
    T* next = nullptr;
};

template <typename T, ListLinks<T> T::*Links>
class IntrusiveList {
  public:
    T* first() const noexcept { return m_first; }
    static T* next(const T& element) noexcept { return (element.*Links).next; }
    bool isEmpty() const noexcept { return m_first == nullptr; }
    bool hasOne() const noexcept { return m_first != nullptr && m_first == m_last; }

    void pushFront(T& element) noexcept { insert(element, nullptr, m_first); }
    void pushBack(T& element) noexcept { insert(element, m_last, nullptr); }

    /// Does not change the links of the element, so a loop may remove the element that it visits.
    void remove(T& element) noexcept {
        const ListLinks<T>& links = element.*Links;
        after(links.previous) = links.next;
        before(links.next) = links.previous;
    }

  private:
    T*& after(T* element) noexcept { return element == nullptr ? m_first : (element->*Links).next; }
    T*& before(T* element) noexcept { return element == nullptr ? m_last : (element->*Links).previous; }

    void insert(T& element, T* previous, T* next) noexcept {
        element.*Links = {previous, next};
        after(previous) = &element;
        before(next) = &element;
    }

    T* m_first = nullptr;
    T* m_last = nullptr;
};

}  // namespace KestSupport::platform
