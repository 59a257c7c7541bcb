/* A case that the thread sanitizer itself keeps from working is skipped under it, and says why. */
#ifndef TESTS_SUPPORT_THREADSANITIZER_H
#define TESTS_SUPPORT_THREADSANITIZER_H

#ifdef __SANITIZE_THREAD__
#define SKIP_UNDER_THREAD_SANITIZER(why) GTEST_SKIP() << "under the thread sanitizer: " why
#else
#define SKIP_UNDER_THREAD_SANITIZER(why) static_cast<void>(0)
#endif

#endif
