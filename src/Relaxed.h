// Atomic access to plain fields that several threads read and write without a lock.
//
// The fields keep their plain type, width and place (programs know the records around them), so
// std::atomic cannot be used for them. Relaxed accesses promise that a reader sees some value that
// was stored, never a mixture; they order nothing else. Where a store publishes other data, use
// ReleaseStore and AcquireLoad. Nothing wider than a pointer is accepted: a 32-bit target would
// need a lock for it.

#ifndef KELVIK_RELAXED_H_
#define KELVIK_RELAXED_H_

#include <cstdint>
#include <type_traits>

#ifdef __SANITIZE_THREAD__
#define KELVIK_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KELVIK_THREAD_SANITIZER 1
#endif
#endif
#ifndef KELVIK_THREAD_SANITIZER
#define KELVIK_THREAD_SANITIZER 0
#endif

namespace Kelvik {

// The value parameters of the helpers are not deduced, so that a literal converts to the field's
// own type: RelaxedStore(m_LogTerminal, 1).
template <class T>
struct tagSame {
  using type = T;
};

template <class T>
constexpr bool kIsLockFreeField = (std::is_integral<T>::value || std::is_enum<T>::value ||
                                   std::is_pointer<T>::value) &&
                                  sizeof(T) <= sizeof(void*);

template <class T>
inline T RelaxedLoad(const T& value) {
  static_assert(kIsLockFreeField<T>, "a field no wider than a pointer");
  return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

template <class T>
inline void RelaxedStore(T& target, typename tagSame<T>::type value) {
  static_assert(kIsLockFreeField<T>, "a field no wider than a pointer");
  __atomic_store_n(&target, value, __ATOMIC_RELAXED);
}

// Adds to an integer field (wrapping at its width) and returns what stood there before.
template <class T>
inline T RelaxedAdd(T& target, typename tagSame<T>::type value) {
  static_assert(kIsLockFreeField<T>, "a field no wider than a pointer");
  return __atomic_fetch_add(&target, value, __ATOMIC_RELAXED);
}

// Sets the given bits of a mask, leaving the others to whoever changes them at the same time.
inline void RelaxedOr(uint8_t& target, uint8_t bits) {
  __atomic_fetch_or(&target, bits, __ATOMIC_RELAXED);
}

// Keeps only the given bits of a mask.
inline void RelaxedAnd(uint8_t& target, uint8_t bits) {
  __atomic_fetch_and(&target, bits, __ATOMIC_RELAXED);
}

// Sees everything that the thread wrote before the ReleaseStore of the value that is returned.
template <class T>
inline T AcquireLoad(const T& value) {
  static_assert(kIsLockFreeField<T>, "a field no wider than a pointer");
  return __atomic_load_n(&value, __ATOMIC_ACQUIRE);
}

// Publishes everything that this thread wrote before to whoever AcquireLoads the value.
template <class T>
inline void ReleaseStore(T& target, typename tagSame<T>::type value) {
  static_assert(kIsLockFreeField<T>, "a field no wider than a pointer");
  __atomic_store_n(&target, value, __ATOMIC_RELEASE);
}

// The loads before it come before the loads behind it, and the stores likewise. For fields that are
// all read and written through the helpers above: the thread sanitizer does not know these two, and
// needs no more.
inline void OrderLoads() {
#if !KELVIK_THREAD_SANITIZER
  __atomic_thread_fence(__ATOMIC_ACQUIRE);
#endif
}

inline void OrderStores() {
#if !KELVIK_THREAD_SANITIZER
  __atomic_thread_fence(__ATOMIC_RELEASE);
#endif
}

}  // namespace Kelvik

#endif  // KELVIK_RELAXED_H_
