// Which sanitizers this test program is built with: each macro is 1 or 0, whichever compiler it is.

#ifndef KELVIK_SANITIZERS_H_
#define KELVIK_SANITIZERS_H_

#if defined(__SANITIZE_ADDRESS__)
#define KELVIK_TEST_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELVIK_TEST_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef KELVIK_TEST_ADDRESS_SANITIZER
#define KELVIK_TEST_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__)
#define KELVIK_TEST_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KELVIK_TEST_THREAD_SANITIZER 1
#endif
#endif
#ifndef KELVIK_TEST_THREAD_SANITIZER
#define KELVIK_TEST_THREAD_SANITIZER 0
#endif

// Either of the two: they bring their own allocator, and take most of the time.
#define KELVIK_TEST_SANITIZED (KELVIK_TEST_ADDRESS_SANITIZER || KELVIK_TEST_THREAD_SANITIZER)

#endif  // KELVIK_SANITIZERS_H_
