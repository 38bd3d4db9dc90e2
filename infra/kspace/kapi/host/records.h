// SPDX-License-Identifier: GPL-2.0-only
// The lock of what the twin writes down about the module's doings.
#pragma once

#include "sanitizers.h"

#if TWIN_TSAN
extern "C" {
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
}
#endif

namespace twin {

// Between its two ends ThreadSanitizer takes no notice of the calling thread. On a real kernel no
// such record exists, so it must not put the module's threads in order either: nearly every call
// into the twin makes one, and hardly a race would be left to see.
class UnseenScope {
public:
#if TWIN_TSAN
    UnseenScope()
    {
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    }
    ~UnseenScope()
    {
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    }
#else
    UnseenScope() = default;
#endif
    UnseenScope(const UnseenScope&) = delete;
};

// Holds the mutex of a record, unseen.
template <typename Mutex>
class RecordGuard {
public:
    explicit RecordGuard(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
    ~RecordGuard() { mutex_.unlock(); }

private:
    UnseenScope unseen_; // around the lock and the unlock
    Mutex& mutex_;
};

} // namespace twin
