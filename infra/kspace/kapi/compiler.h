// SPDX-License-Identifier: GPL-2.0-only
// What the other headers of the seam are written with.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kapi_target.h"

// A function of the glue: its symbol carries a prefix, so that the glue's C can define it beside a
// kernel macro or inline function of the same name. Functions without it are the kernel's exports.
#define KAPI_GLUE(name) __asm__("kapi_" #name)

// Members at the places that the target's compiler gave them (kapi_target.h). Each is an anonymous
// structure of its own inside an anonymous union, so that access is one plain load or store.
#define KAPI_MEMBER(offset, type, name)                                                            \
    struct {                                                                                       \
        unsigned char kapi_before_##name[offset];                                                  \
        type name;                                                                                 \
    }
#define KAPI_ARRAY(offset, type, name, count)                                                      \
    struct {                                                                                       \
        unsigned char kapi_before_##name[offset];                                                  \
        type name[count];                                                                          \
    }

// Clang's thread-safety analysis, run on the host build; other compilers see nothing.
#if defined(__clang__)
#define KAPI_TSA(x) __attribute__((x))
#else
#define KAPI_TSA(x)
#endif
#define KAPI_CAPABILITY(name) KAPI_TSA(capability(name))
#define KAPI_GUARDED_BY(lock) KAPI_TSA(guarded_by(lock))
#define KAPI_PT_GUARDED_BY(lock) KAPI_TSA(pt_guarded_by(lock))
#define KAPI_ACQUIRE(...) KAPI_TSA(acquire_capability(__VA_ARGS__))
#define KAPI_RELEASE(...) KAPI_TSA(release_capability(__VA_ARGS__))
#define KAPI_ACQUIRE_SHARED(...) KAPI_TSA(acquire_shared_capability(__VA_ARGS__))
#define KAPI_RELEASE_SHARED(...) KAPI_TSA(release_shared_capability(__VA_ARGS__))
#define KAPI_REQUIRES(...) KAPI_TSA(requires_capability(__VA_ARGS__))
#define KAPI_REQUIRES_SHARED(...) KAPI_TSA(requires_shared_capability(__VA_ARGS__))
#define KAPI_EXCLUDES(...) KAPI_TSA(locks_excluded(__VA_ARGS__))
#define KAPI_ACQUIRED_BEFORE(...) KAPI_TSA(acquired_before(__VA_ARGS__))
#define KAPI_RETURN_CAPABILITY(lock) KAPI_TSA(lock_returned(lock))
#define KAPI_SCOPED_CAPABILITY KAPI_TSA(scoped_lockable)
#define KAPI_NO_TSA KAPI_TSA(no_thread_safety_analysis)
