// SPDX-License-Identifier: GPL-2.0-only
// System calls and a start without a C library, for programs that are built for 64 and for 32 bits
// on a computer that has the library for 64 bits only. Calls return what the kernel returns: a
// result or a negative error number.
#pragma once

#ifdef __x86_64__
enum {
    SYS_read = 0,
    SYS_write = 1,
    SYS_open = 2,
    SYS_close = 3,
    SYS_poll = 7,
    SYS_mmap = 9,
    SYS_mprotect = 10,
    SYS_ioctl = 16,
    SYS_exit = 60
};
#else
enum {
    SYS_exit = 1,
    SYS_read = 3,
    SYS_write = 4,
    SYS_open = 5,
    SYS_close = 6,
    SYS_ioctl = 54,
    SYS_mprotect = 125,
    SYS_poll = 168,
    SYS_mmap = 192 // mmap2, whose offset counts pages
};
#endif

enum { PROT_NONE = 0, PROT_READ = 1, PROT_WRITE = 2, MAP_PRIVATE = 2, MAP_ANONYMOUS = 0x20 };
enum { O_RDWR = 2, O_NONBLOCK = 04000 };
enum { PAGE = 4096 };

#ifdef __x86_64__
static long call(long number, long a, long b, long c, long d, long e, long f)
{
    register long r10 __asm__("r10") = d;
    register long r8 __asm__("r8") = e;
    register long r9 __asm__("r9") = f;
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
}
#else
static long call(long number, long a, long b, long c, long d, long e, long f)
{
    // The sixth argument travels in the frame pointer.
    long arguments[] = {b, f};
    long result;
    __asm__ volatile("push %%ebx\n\tpush %%ecx\n\tpush %%ebp\n\t"
                     "mov 4(%%ebx), %%ebp\n\tmov (%%ebx), %%ebx\n\t"
                     "xchg %%ebx, %%ecx\n\tint $0x80\n\t"
                     "pop %%ebp\n\tpop %%ecx\n\tpop %%ebx"
                     : "=a"(result)
                     : "a"(number), "b"(arguments), "c"(a), "d"(c), "S"(d), "D"(e)
                     : "memory");
    return result;
}
#endif

__attribute__((noreturn)) static void quit(int status)
{
    call(SYS_exit, status, 0, 0, 0, 0, 0);
    __builtin_unreachable();
}

void* memset(void* to, int value, __SIZE_TYPE__ length)
{
    unsigned char* at = to;
    while (length--)
        *at++ = (unsigned char)value;
    return to;
}

int main(int count, char** arguments);

__attribute__((used, noreturn)) static void begin(long* stack)
{
    quit(main((int)stack[0], (char**)(stack + 1)));
}

#ifdef __x86_64__
__asm__(".globl _start\n_start: mov %rsp, %rdi\n\tand $-16, %rsp\n\tcall begin");
#else
__asm__(".globl _start\n_start: mov %esp, %eax\n\tand $-16, %esp\n\tsub $12, %esp\n\t"
        "push %eax\n\tcall begin");
#endif
