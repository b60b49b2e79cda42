// Doubly linked lists whose elements contain their own links. So nothing is allocated, and an element is removed in
// constant time. An element is in at most one list for each of its links.
//
//   IntrusiveList    knows both ends
//   IntrusiveStack   knows the first element only, and takes half the memory: for tables of many lists
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

template <typename T, ListLinks<T> T::*Links>
class IntrusiveStack {
  public:
    T* first() const noexcept { return m_first; }
    static T* next(const T& element) noexcept { return (element.*Links).next; }

    void push(T& element) noexcept {
        element.*Links = {nullptr, m_first};
        if (m_first != nullptr) (m_first->*Links).previous = &element;
        m_first = &element;
    }

    /// Does not change the links of the element, so a loop may remove the element that it visits.
    void remove(T& element) noexcept {
        const ListLinks<T>& links = element.*Links;
        (links.previous == nullptr ? m_first : (links.previous->*Links).next) = links.next;
        if (links.next != nullptr) (links.next->*Links).previous = links.previous;
    }

  private:
    T* m_first = nullptr;
};

}  // namespace KestSupport::platform
