// The sanitizer of this build.
#pragma once

namespace KestSupport::platform {

/// ThreadSanitizer delivers signals at safe places only.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitizerDefersSignals = true;
#elif defined(__has_feature)
inline constexpr bool kSanitizerDefersSignals = __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitizerDefersSignals = false;
#endif

}  // namespace KestSupport::platform
