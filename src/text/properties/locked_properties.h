// Look-ups of several names of a KestProperties under one lock, without a copy of the values.
#pragma once

#include "support/locks.h"
#include "support/properties.h"
#include "text/properties/property_table.h"

namespace KestSupport::internal {

/// Holds the lock of the properties during its life. Calls no foreign code and writes no record until its end.
template <typename StringType>
class LockedProperties {
  public:
    explicit LockedProperties(const KestProperties<StringType>& properties)
        : m_guard(properties.m_lock, true), m_table(*properties.m_pTable) {}

    /// Returns the first value of the name, or null if it is absent.
    const StringType* find(typename PropertyTable<StringType>::View name) const {
        const auto* const entry = m_table.find(typename PropertyTable<StringType>::Key(name));
        return entry == nullptr ? nullptr : &entry->value;
    }

  private:
    const KestCriticalSection m_guard;
    const PropertyTable<StringType>& m_table;
};

}  // namespace KestSupport::internal
