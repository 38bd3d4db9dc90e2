// SPDX-License-Identifier: GPL-2.0-only
// The probe's other side. Prints one line, "ok ..." or what did not hold; the exit status says the
// same.
#include "../probe.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char* what, long value)
{
    printf("%s: %ld (%s)\n", what, value, strerror(errno));
    exit(1);
}

int device(int flags = 0)
{
    const int fd = open("/dev/kapi_probe", O_RDWR | flags);
    if (fd < 0)
        fail("open", fd);
    return fd;
}

int command(unsigned int number, unsigned long arg = 0)
{
    const int fd = device();
    const int result = ioctl(fd, number, arg);
    close(fd);
    return result;
}

// The system call of a 32-bit program, whose arguments lie below 4 GiB.
int compat_ioctl(int fd, unsigned int number, unsigned int arg)
{
    constexpr int IOCTL_OF_I386 = 54;
    int result;
    asm volatile("int $0x80"
                 : "=a"(result)
                 : "a"(IOCTL_OF_I386), "b"(fd), "c"(number), "d"(arg)
                 : "memory", "r8", "r9", "r10", "r11");
    return result;
}

int checks()
{
    char* pages = static_cast<char*>(
        mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pages + 4096, 4096);
    for (unsigned int number = 1; number <= PROBE_LAST_CHECK; number++) {
        const int result = command(number, reinterpret_cast<unsigned long>(pages));
        if (result != 0)
            fail("check", number);
    }
    return PROBE_LAST_CHECK;
}

void* call_alone(void* compat)
{
    const int fd = device();
    long result = 0;
    for (int i = 0; i < 5 && result == 0; i++) {
        if (compat != nullptr)
            result = compat_ioctl(fd, PROBE_ALONE, 0) == 1000 ? 0 : 1;
        else
            result = ioctl(fd, PROBE_ALONE, 0);
    }
    close(fd);
    return reinterpret_cast<void*>(result);
}

// Commands of three threads, one of them a 32-bit caller.
int serialised()
{
    pthread_t threads[3];
    for (int i = 0; i < 3; i++)
        pthread_create(&threads[i], nullptr, call_alone, i == 0 ? threads : nullptr);
    long sum = 0;
    for (pthread_t thread : threads) {
        void* result;
        pthread_join(thread, &result);
        sum += reinterpret_cast<long>(result);
    }
    if (sum != 0)
        fail("two commands at once", sum);
    return 3;
}

void* wake_later(void*)
{
    usleep(200000);
    command(PROBE_WAKE);
    return nullptr;
}

// Waits by epoll and sleeps in read; a wake-up that comes from another thread ends both.
int wakes()
{
    const int fd = device();
    const int queue = epoll_create1(0);
    epoll_event event = {.events = EPOLLIN | EPOLLET, .data = {}};
    if (epoll_ctl(queue, EPOLL_CTL_ADD, fd, &event) != 0)
        fail("epoll_ctl", 0);
    if (epoll_wait(queue, &event, 1, 0) != 0)
        fail("event before its time", event.events);
    const int nonblocking = device(O_NONBLOCK);
    if (read(nonblocking, &event, 12) != -1 || errno != EAGAIN)
        fail("read without waiting", errno);
    pthread_t thread;
    pthread_create(&thread, nullptr, wake_later, nullptr);
    if (epoll_wait(queue, &event, 1, 10000) != 1 || (event.events & EPOLLIN) == 0)
        fail("no event", event.events);
    if (read(fd, &event, 12) != 0)
        fail("read of a waiting request", errno);
    pthread_join(thread, nullptr);
    pthread_create(&thread, nullptr, wake_later, nullptr);
    if (read(fd, &event, 12) != 0)
        fail("read that sleeps", errno);
    pthread_join(thread, nullptr);
    return 2;
}

// A datagram through a packet socket: the header in front, the payload behind, unharmed. A header
// that fails is an invalid argument to the sender, whatever the driver's error.
int packet(bool refused)
{
    const int fd = socket(AF_PACKET, SOCK_DGRAM, htons(0x0800));
    // Room for 12 bytes of address.
    union {
        sockaddr_ll link;
        char bytes[40];
    } to = {};
    to.link.sll_family = AF_PACKET;
    to.link.sll_protocol = htons(0x0800);
    to.link.sll_ifindex = static_cast<int>(if_nametoindex("kprobe0"));
    to.link.sll_halen = 12;
    char payload[100];
    memset(payload, 'P', sizeof payload);
    const int before = command(PROBE_SENT);
    command(PROBE_REFUSE_HEADER, refused);
    const ssize_t sent = sendto(fd, payload, sizeof payload, 0,
                                reinterpret_cast<sockaddr*>(to.bytes), sizeof to.link + 4);
    const int error = errno;
    command(PROBE_REFUSE_HEADER, 0);
    const int after = command(PROBE_SENT);
    errno = error;
    if (refused ? sent != -1 || error != EINVAL || after != before
                : sent != 100 || after != before + 1)
        fail("packet", sent);
    return after;
}

int read_at(const char* path, long long offset)
{
    char text[64];
    const int fd = open(path, O_RDONLY);
    const ssize_t length = pread(fd, text, sizeof text, offset);
    if (length < 0)
        fail("pread", length);
    return static_cast<int>(length);
}

// Opens, says so, and reads when the other file appears.
int hold(const char* path, const char* until)
{
    char text[64];
    const int fd = open(path, O_RDONLY);
    if (fd < 0 || read(fd, text, 4) != 4)
        fail("open or read", fd);
    close(open("/run/held", O_WRONLY | O_CREAT, 0600));
    while (access(until, F_OK) != 0)
        usleep(20000);
    const ssize_t length = pread(fd, text, sizeof text, 0);
    if (length != -1 || errno != EIO)
        fail("read after removal", length);
    return 0;
}

// Opens what lets nobody in, as fast as it goes, until the other file appears.
int knock(const char* path, const char* until)
{
    int times = 0;
    do {
        for (int i = 0; i < 100; i++) {
            const int fd = open(path, O_RDWR);
            if (fd >= 0 || errno != ENXIO)
                fail("open", fd);
        }
        times++;
    } while (access(until, F_OK) != 0);
    return times;
}

} // namespace

int main(int count, char** words)
{
    const char* what = count > 1 ? words[1] : "";
    int result = -1;
    if (!strcmp(what, "checks"))
        result = checks();
    else if (!strcmp(what, "ioctl") && count == 4)
        result = command(atoi(words[2]), atol(words[3]));
    else if (!strcmp(what, "compat"))
        result = compat_ioctl(device(), PROBE_LOCKS, 0);
    else if (!strcmp(what, "serialised"))
        result = serialised();
    else if (!strcmp(what, "wakes"))
        result = wakes();
    else if (!strcmp(what, "packet"))
        result = packet(false);
    else if (!strcmp(what, "refused-packet"))
        result = packet(true);
    else if (!strcmp(what, "pread") && count == 4)
        result = read_at(words[2], atoll(words[3]));
    else if (!strcmp(what, "open") && count == 3)
        result = open(words[2], O_RDWR) < 0 ? errno : 0;
    else if (!strcmp(what, "hold") && count == 4)
        result = hold(words[2], words[3]);
    else if (!strcmp(what, "knock") && count == 4)
        result = knock(words[2], words[3]);
    else
        fail("which check?", count);
    if (result < 0)
        fail(what, result);
    printf("ok %d\n", result);
    return 0;
}
