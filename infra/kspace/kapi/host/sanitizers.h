// SPDX-License-Identifier: GPL-2.0-only
// Which sanitizer this is built with: 1 or 0. The compilers say it in different ways.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define TWIN_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TWIN_ASAN 1
#endif
#endif
#ifndef TWIN_ASAN
#define TWIN_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__)
#define TWIN_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TWIN_TSAN 1
#endif
#endif
#ifndef TWIN_TSAN
#define TWIN_TSAN 0
#endif
