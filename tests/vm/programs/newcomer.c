// SPDX-License-Identifier: GPL-2.0-only
// newcomer PROGRAM [ARGUMENT]...: the first process of a machine whose kernel is older than this
// computer's C library. Runs the program, and gives everything that comes of it what the library
// takes for granted:
//   - 16 random bytes, handed over at the start of a program;
//   - a kernel that calls itself 3.2 or newer when the library asks, which it does once, early.
// It watches the start of each program as a debugger does (ptrace). After that the program runs by
// itself, but for its signals. Programs for 32 bits run as they are. When the first program ends,
// so does this process, with the same status.
#ifndef __x86_64__
#error "for 64 bits only"
#endif
#include "bare.h"

enum {
    SYS_getpid = 39,
    SYS_fork = 57,
    SYS_execve = 59,
    SYS_wait4 = 61,
    SYS_kill = 62,
    SYS_uname = 63,
    SYS_ptrace = 101,
};

enum {
    PTRACE_TRACEME = 0,
    PTRACE_PEEKDATA = 2,
    PTRACE_POKEDATA = 5,
    PTRACE_CONT = 7,
    PTRACE_GETREGS = 12,
    PTRACE_SETREGS = 13,
    PTRACE_SYSCALL = 24,
    PTRACE_SETOPTIONS = 0x4200,
};

// System calls are told from signals; children, threads and new programs are followed.
enum {
    OPTIONS = 0x01 | 0x02 | 0x04 | 0x08 | 0x10,
    EVENT_EXEC = 4,
    SYSCALL_STOP = 5 | 0x80,
};

enum { SIGTRAP = 5, SIGSTOP = 19, WALL = 0x40000000, EINTR = 4 };
enum { AT_NULL = 0, AT_IGNORE = 1, AT_RANDOM = 25, AT_SYSINFO_EHDR = 33 };
enum { LONG_MODE = 0x33, WORD = 8 };

struct registers {
    unsigned long r15, r14, r13, r12, rbp, rbx, r11, r10, r9, r8, rax, rcx, rdx, rsi, rdi;
    unsigned long orig_rax, rip, cs, eflags, rsp, ss, fs_base, gs_base, ds, es, fs, gs;
};

// The library asks among its first system calls, each of which stops twice.
enum { STOPS_AT_START = 40 };

// What is known of a task. Numbers of tasks are below this on such a kernel.
enum { TASKS = 32768 };
struct task {
    unsigned char known;  // its first stop has been seen
    unsigned char start;  // stops still to come at which the library may ask
    unsigned char inside; // a system call is under way
};
static struct task tasks[TASKS];
static int random_source;

static long trace(long request, int pid, long address, long data)
{
    return call(SYS_ptrace, request, pid, address, data, 0, 0);
}

static unsigned long peek(int pid, unsigned long address)
{
    unsigned long word = 0;
    trace(PTRACE_PEEKDATA, pid, (long)address, (long)&word);
    return word;
}

static void poke(int pid, unsigned long address, unsigned long word)
{
    trace(PTRACE_POKEDATA, pid, (long)address, (long)word);
}

static unsigned long random_word(void)
{
    unsigned long word = 0;
    call(SYS_read, random_source, (long)&word, sizeof word, 0, 0, 0);
    return word;
}

// The address of the auxiliary vector: count of arguments, arguments, 0 and environment, 0 lie
// below.
static unsigned long auxiliary_vector(int pid, unsigned long stack)
{
    for (int zeroes = 0; zeroes < 2;) {
        stack += WORD;
        zeroes += peek(pid, stack) == 0;
    }
    return stack + WORD;
}

// The vector's pair of a kind; the last pair when there is no such.
static unsigned long find_pair(int pid, unsigned long vector, unsigned long kind)
{
    unsigned long found = peek(pid, vector);
    while (found != kind && found != AT_NULL) {
        vector += 2 * WORD;
        found = peek(pid, vector);
    }
    return vector;
}

// Everything up to the vector's end moves down by four words. One more pair and the random bytes go
// into the gap. The kernel's own code page is hidden: the library would read the version there.
static void hand_over_random_bytes(int pid)
{
    struct registers regs;
    trace(PTRACE_GETREGS, pid, 0, (long)&regs);
    if (regs.cs != LONG_MODE)
        return;
    const unsigned long vector = auxiliary_vector(pid, regs.rsp);
    const unsigned long end = find_pair(pid, vector, AT_NULL);
    if (find_pair(pid, vector, AT_RANDOM) != end)
        return;
    const unsigned long code_page = find_pair(pid, vector, AT_SYSINFO_EHDR);
    if (code_page != end)
        poke(pid, code_page, AT_IGNORE);

    for (unsigned long at = regs.rsp; at < end; at += WORD)
        poke(pid, at - 4 * WORD, peek(pid, at));
    poke(pid, end - 4 * WORD, AT_RANDOM);
    poke(pid, end - 3 * WORD, end);
    poke(pid, end - 2 * WORD, AT_NULL);
    poke(pid, end - WORD, 0);
    poke(pid, end, random_word());
    poke(pid, end + WORD, random_word());
    regs.rsp -= 4 * WORD;
    trace(PTRACE_SETREGS, pid, 0, (long)&regs);
}

// Whether the call just done was the question. struct utsname has fields of 65 bytes; the third is
// the release, of which eight bytes will do.
static int call_it_newer(int pid)
{
    const union {
        char text[8];
        unsigned long word;
    } release = {"3.2.0"};
    struct registers regs;
    trace(PTRACE_GETREGS, pid, 0, (long)&regs);
    if (regs.cs != LONG_MODE || regs.orig_rax != SYS_uname)
        return 0;
    poke(pid, regs.rdi + 2 * 65, release.word);
    return 1;
}

// The signal that the task is to have when it goes on.
static int handle_stop(struct task* task, int pid, int status)
{
    const int signal = status >> 8 & 0xFF;

    if (signal == SYSCALL_STOP) {
        task->inside = !task->inside;
        if (task->start > 0)
            task->start--;
        if (!task->inside && call_it_newer(pid))
            task->start = 0;
        return 0;
    }
    if (signal == SIGTRAP && status >> 16) {
        if (status >> 16 == EVENT_EXEC) {
            hand_over_random_bytes(pid);
            task->start = STOPS_AT_START;
            task->inside = 1; // the end of execve is the next stop
        }
        return 0;
    }
    if (!task->known) {
        task->known = 1;
        if (signal == SIGSTOP)
            return 0;
    }
    return signal;
}

static int watch(int first)
{
    int status = 0;
    call(SYS_wait4, first, (long)&status, WALL, 0, 0, 0);
    trace(PTRACE_SETOPTIONS, first, 0, OPTIONS);
    tasks[first % TASKS].known = 1;
    trace(PTRACE_CONT, first, 0, 0);
    while (1) {
        const int pid = (int)call(SYS_wait4, -1, (long)&status, WALL, 0, 0, 0);
        if (pid == -EINTR)
            continue;
        if (pid < 0)
            return 126;
        struct task* task = &tasks[pid % TASKS];
        if ((status & 0xFF) == 0x7F) {
            const int signal = handle_stop(task, pid, status);
            trace(task->start ? PTRACE_SYSCALL : PTRACE_CONT, pid, 0, signal);
            continue;
        }
        memset(task, 0, sizeof *task);
        if (pid == first)
            return status & 0x7F ? 128 + (status & 0x7F) : status >> 8 & 0xFF;
    }
}

int main(int count, char** arguments)
{
    if (count < 2)
        return 2;
    random_source = (int)call(SYS_open, (long)"/dev/urandom", 0, 0, 0, 0, 0);
    const int pid = (int)call(SYS_fork, 0, 0, 0, 0, 0, 0);
    if (pid < 0)
        return 126;
    if (pid == 0) {
        char** environment = arguments + count + 1;
        call(SYS_ptrace, PTRACE_TRACEME, 0, 0, 0, 0, 0);
        call(SYS_kill, call(SYS_getpid, 0, 0, 0, 0, 0, 0), SIGSTOP, 0, 0, 0, 0);
        call(SYS_execve, (long)arguments[1], (long)(arguments + 1), (long)environment, 0, 0, 0);
        return 127;
    }
    return watch(pid);
}
