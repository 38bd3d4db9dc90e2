// SPDX-License-Identifier: GPL-2.0-only
// Works a character device by a script on standard input, once or N times: device [N] < script.
// Prints one line for each line of the (last round of the) script.
//
//   open PATH [nonblock]        result
//   close                       result
//   ioctl CODE none             result; the argument is 0
//   ioctl CODE at ADDRESS       result; nothing is mapped by us
//   ioctl CODE edge HEX         result, then the bytes as they are afterwards; right behind the
//   last
//                               one the memory is not mapped
//   ioctl CODE readonly HEX     the same in memory that cannot be written
//   read COUNT edge HEX         as with ioctl
//   write COUNT edge HEX
//   poll                        the events there are now
//   take PATH                   what the file holds, "|" for line ends; then something is written
//   to
//                               it, which empties a history
//
// Numbers are in hexadecimal without a prefix, results in decimal: a negative one is an error
// number.
#include "bare.h"

static char script[65536];
static char output[1 << 17];
static unsigned long used;
static int device = -1;
static unsigned char* page; // what follows it is not mapped

static void put(char byte)
{
    if (used == sizeof output)
        quit(3);
    output[used++] = byte;
}

static void put_number(long value)
{
    char digits[24];
    int count = 0;
    unsigned long rest = value < 0 ? -(unsigned long)value : (unsigned long)value;
    if (value < 0)
        put('-');
    do
        digits[count++] = (char)('0' + rest % 10);
    while (rest /= 10);
    while (count)
        put(digits[--count]);
}

static void put_bytes(const unsigned char* from, long length)
{
    put(' ');
    for (long i = 0; i < length; i++) {
        put("0123456789abcdef"[from[i] >> 4]);
        put("0123456789abcdef"[from[i] & 15]);
    }
}

static int digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

static unsigned long number(const char* text)
{
    unsigned long value = 0;
    if (digit(*text) < 0)
        quit(4);
    for (; digit(*text) >= 0; text++)
        value = value << 4 | (unsigned long)digit(*text);
    return value;
}

static int same(const char* a, const char* b)
{
    while (*a && *a == *b)
        a++, b++;
    return *a == *b;
}

// Places the bytes at the end of the page; gives their number.
static long place(const char* hex, int writable)
{
    long length = 0;
    while (digit(hex[2 * length]) >= 0 && digit(hex[2 * length + 1]) >= 0)
        length++;
    if (length > PAGE)
        quit(5);
    call(SYS_mprotect, (long)page, PAGE, PROT_READ | PROT_WRITE, 0, 0, 0);
    for (long i = 0; i < length; i++)
        page[PAGE - length + i] = (unsigned char)(digit(hex[2 * i]) << 4 | digit(hex[2 * i + 1]));
    if (!writable)
        call(SYS_mprotect, (long)page, PAGE, PROT_READ, 0, 0, 0);
    return length;
}

static void with_bytes(long system_call, unsigned long number, char** words)
{
    long length = place(words[3], same(words[2], "edge"));
    unsigned char* bytes = page + PAGE - length;
    // ioctl takes code and address, read and write take address and count.
    if (system_call == SYS_ioctl)
        put_number(call(system_call, device, (long)number, (long)bytes, 0, 0, 0));
    else
        put_number(call(system_call, device, (long)bytes, (long)number, 0, 0, 0));
    put_bytes(bytes, length);
}

static void do_poll(void)
{
    struct {
        int fd;
        short events, revents;
    } asked = {device, 0x7fff, 0};
    long result = call(SYS_poll, (long)&asked, 1, 0, 0, 0, 0);
    put_number(result < 0 ? result : asked.revents);
}

static void do_take(const char* path)
{
    char text[1024];
    long file = call(SYS_open, (long)path, O_RDWR, 0, 0, 0, 0);
    long length;
    while ((length = call(SYS_read, file, (long)text, sizeof text, 0, 0, 0)) > 0)
        for (long i = 0; i < length; i++)
            put(text[i] == '\n' ? '|' : text[i]);
    if (call(SYS_write, file, (long)"0", 1, 0, 0, 0) != 1)
        quit(8);
    call(SYS_close, file, 0, 0, 0, 0, 0);
}

static void do_ioctl(char** words)
{
    unsigned long code = number(words[1]);
    if (same(words[2], "none"))
        put_number(call(SYS_ioctl, device, (long)code, 0, 0, 0, 0));
    else if (same(words[2], "at"))
        put_number(call(SYS_ioctl, device, (long)code, (long)number(words[3]), 0, 0, 0));
    else
        with_bytes(SYS_ioctl, code, words);
}

static void do_line(char** words)
{
    const char* verb = words[0];
    if (same(verb, "open")) {
        long flags = O_RDWR | (same(words[2], "nonblock") ? O_NONBLOCK : 0);
        long result = call(SYS_open, (long)words[1], flags, 0, 0, 0, 0);
        device = result < 0 ? -1 : (int)result;
        put_number(result < 0 ? result : 0);
    } else if (same(verb, "close")) {
        put_number(call(SYS_close, device, 0, 0, 0, 0, 0));
    } else if (same(verb, "ioctl")) {
        do_ioctl(words);
    } else if (same(verb, "read")) {
        with_bytes(SYS_read, number(words[1]), words);
    } else if (same(verb, "write")) {
        with_bytes(SYS_write, number(words[1]), words);
    } else if (same(verb, "poll")) {
        do_poll();
    } else if (same(verb, "take")) {
        do_take(words[1]);
    } else {
        quit(6);
    }
    put('\n');
}

// Splits a line in place; missing words are empty. Gives the beginning of the next line.
static char* split(char* line, char** words)
{
    static char none[] = "";
    for (int i = 0; i < 4; i++) {
        words[i] = *line && *line != '\n' ? line : none;
        while (*line && *line != ' ' && *line != '\n')
            line++;
        if (*line == ' ')
            *line++ = 0;
    }
    if (*line)
        *line++ = 0;
    return line;
}

static void run(const char* from, long length)
{
    static char copy[sizeof script + 1];
    char* words[4];
    for (long i = 0; i < length; i++)
        copy[i] = from[i];
    copy[length] = 0;
    used = 0;
    for (char* line = copy; *line;) {
        line = split(line, words);
        if (*words[0])
            do_line(words);
    }
}

int main(int count, char** arguments)
{
    unsigned long rounds = count > 1 ? number(arguments[1]) : 1;
    long length = 0;
    long part;
    while ((part = call(SYS_read, 0, (long)(script + length), (long)sizeof script - length, 0, 0,
                        0)) > 0)
        length += part;
    page = (unsigned char*)call(SYS_mmap, 0, 2 * PAGE, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if ((unsigned long)page > -(unsigned long)PAGE ||
        call(SYS_mprotect, (long)page + PAGE, PAGE, PROT_NONE, 0, 0, 0) != 0)
        return 2;
    while (rounds--)
        run(script, length);
    for (unsigned long done = 0; done < used;) {
        part = call(SYS_write, 1, (long)(output + done), (long)(used - done), 0, 0, 0);
        if (part <= 0)
            return 7;
        done += (unsigned long)part;
    }
    return 0;
}
