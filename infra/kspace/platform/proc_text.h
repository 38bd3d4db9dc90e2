// SPDX-License-Identifier: GPL-2.0-only
// The two ends of a text file under /proc: a report of any length seen through the reader's window,
// and the short line that a writer hands over.
#pragma once

#include "kapi/proc_fs.h"
#include "kapi/string.h"

// Takes a whole report bit by bit and keeps what lies in the window.
class proc_window {
public:
    proc_window(char* buffer, off_t offset, int count)
        : buffer_(buffer), skip_(offset), room_(count)
    {
    }

    void put(const char* text, std::size_t length)
    {
        if (skip_ >= static_cast<off_t>(length)) {
            skip_ -= static_cast<off_t>(length);
            return;
        }
        text += skip_;
        length -= static_cast<std::size_t>(skip_);
        skip_ = 0;
        if (length > static_cast<std::size_t>(room_))
            length = static_cast<std::size_t>(room_);
        memcpy(buffer_ + filled_, text, length);
        filled_ += static_cast<int>(length);
        room_ -= static_cast<int>(length);
    }

    // One line of at most 127 characters.
    void print(const char* format, ...) __attribute__((format(printf, 2, 3)))
    {
        char line[128];
        __builtin_va_list arguments;
        __builtin_va_start(arguments, format);
        const int length = vsnprintf(line, sizeof line, format, arguments);
        __builtin_va_end(arguments);
        put(line, length < static_cast<int>(sizeof line) ? static_cast<std::size_t>(length)
                                                         : sizeof line - 1);
    }

    bool is_full() const { return room_ == 0; }

    // The result of read_proc.
    int finish(char** start, int* eof) const
    {
        *start = buffer_;
        if (room_ != 0)
            *eof = 1;
        return filled_;
    }

private:
    char* buffer_;
    off_t skip_;
    int room_;
    int filled_ = 0;
};

// Copies a writer's line without its end, and ends it with 0: 0, -EINVAL when it does not fit,
// -EFAULT.
int proc_take_line(char* to, std::size_t size, const char* user, unsigned long length);

// A writer's "0" or "1": the number, or negative.
int proc_take_switch(const char* user, unsigned long length);
