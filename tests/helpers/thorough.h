// How much of a long test a build does.
#pragma once

namespace povmesh::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
#else
inline constexpr bool kIsSanitized = false;
#endif

/// Sanitizers take five to twenty times as long and look at every access: they get a fifth of the
/// trials that the build that ships makes.
template <typename Number>
constexpr Number trials(Number count) {
    return kIsSanitized ? (count + 4) / 5 : count;
}

}  // namespace povmesh::test
