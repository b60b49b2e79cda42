// A value, or the error number that says why there is none.
//
//   const Result<Folder> folder = parent.openFolder("agent");
//   if (!folder) return folder.failure();
//   folder->flush();
//
// A function without a value returns an ErrorCode, 0 for success.
#pragma once

#include <optional>
#include <utility>

#include "platform/error.h"

namespace KestSupport::platform {

/// Why an operation failed. It converts to its number, so functions of both kinds can return it.
struct Failure {
    ErrorCode code;  ///< not errorSuccess

    constexpr operator ErrorCode() const noexcept { return code; }
};

template <typename Value>
class [[nodiscard]] Result {
  public:
    constexpr Result(Value value) noexcept : m_value(std::move(value)) {}
    constexpr Result(Failure failure) noexcept : m_error(failure.code) {}

    constexpr explicit operator bool() const noexcept { return m_value.has_value(); }
    /// errorSuccess when there is a value.
    constexpr ErrorCode error() const noexcept { return m_error; }
    /// Requires that there is no value.
    constexpr Failure failure() const noexcept { return {m_error}; }

    // These require a value.
    constexpr Value& operator*() & noexcept { return *m_value; }
    constexpr const Value& operator*() const& noexcept { return *m_value; }
    constexpr Value&& operator*() && noexcept { return *std::move(m_value); }
    constexpr Value* operator->() noexcept { return &*m_value; }
    constexpr const Value* operator->() const noexcept { return &*m_value; }

  private:
    std::optional<Value> m_value;
    ErrorCode m_error = errorSuccess;
};

}  // namespace KestSupport::platform
