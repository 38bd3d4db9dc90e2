// SPDX-License-Identifier: GPL-2.0-only
// The text of a proc report and the reader's window over it, by the rewinding scheme of read_proc:
// what lies before the reader's offset is overwritten, but only where the report says so.
#pragma once

#include "kapi/proc_fs.h"
#include "kapi/types.h"

class ipfc_report {
public:
    // length bytes from off on are wanted; room bytes may be written at buf.
    ipfc_report(char* buf, std::size_t room, off_t off, int length)
        : buf(buf), room(room), off(off), length(length)
    {
    }

    // Never writes beyond the room; text that does not fit is lost.
    void append(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // After a piece behind which the window is checked: true when the reader has enough.
    bool window_full();

    // The handler's result; *start is where the reader's bytes begin.
    int finish(char** start) const;

private:
    char* buf;
    std::size_t room;
    off_t off;
    int length;
    std::size_t len = 0;  // characters now at buf
    std::int64_t pos = 0; // characters produced in all
};
