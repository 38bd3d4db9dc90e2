// SPDX-License-Identifier: GPL-2.0-only
// Waits for mapping requests on the control device, in all the ways in which one can wait.
//
//   waiter poll|select|epoll|edge|read COUNT   takes COUNT requests and answers each with "not
//                                              found"; prints "ready", then each request as it was
//                                              read, then "done"
//   waiter interrupted   a reader in its sleep gets a signal; prints the error number of its read
//   waiter idle          what poll, select and epoll say while nothing waits; prints the three
//
// A wait that takes longer than a minute is a lost wake-up and prints "lost".
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "brim/ipfc_intf.h"

enum { PATIENCE = 60 /* seconds */ };

static int device;

static void die(const char* what)
{
    perror(what);
    exit(1);
}

static int wait_poll(int milliseconds)
{
    struct pollfd asked = {.fd = device, .events = POLLIN};
    int count = poll(&asked, 1, milliseconds);
    if (count < 0)
        die("poll");
    return count == 0 ? 0 : asked.revents;
}

static int wait_select(int milliseconds)
{
    struct timeval limit = {milliseconds / 1000, milliseconds % 1000 * 1000};
    fd_set readers;
    fd_set writers;
    FD_ZERO(&readers);
    FD_ZERO(&writers);
    FD_SET(device, &readers);
    int count = select(device + 1, &readers, NULL, NULL, &limit);
    if (count < 0)
        die("select");
    // Nothing can ever be written.
    struct timeval now = {0, 0};
    FD_SET(device, &writers);
    if (select(device + 1, NULL, &writers, NULL, &now) != 0)
        count += 100;
    return count;
}

static int wait_epoll(int milliseconds, unsigned int how)
{
    static int set = -1;
    struct epoll_event event = {.events = EPOLLIN | how};
    if (set < 0) {
        set = epoll_create1(0);
        if (set < 0 || epoll_ctl(set, EPOLL_CTL_ADD, device, &event) != 0)
            die("epoll_ctl");
    }
    int count = epoll_wait(set, &event, 1, milliseconds);
    if (count < 0)
        die("epoll_wait");
    return count == 0 ? 0 : (int)event.events;
}

// Answers everything that is there; gives the number of requests.
static unsigned int take_all(void)
{
    unsigned int count = 0;
    req_mapping_t request;
    for (;;) {
        memset(&request, 0xEE, sizeof request);
        ssize_t result = read(device, &request, sizeof request);
        if (result < 0 && errno == EAGAIN)
            return count;
        if (result != 0)
            die("read");
        printf("%d ", request.vsan_id);
        for (unsigned int i = 0; i < sizeof request.ww_portname; i++)
            printf("%02x", request.ww_portname.str[i]);
        putchar('\n');
        pn_to_fcid_ioctl_t answer = {.vsan_id = request.vsan_id,
                                     .ww_portname = request.ww_portname};
        if (ioctl(device, IPFC_IOC_MAPPING_NOT_FOUND, &answer) != 0)
            die("the answer");
        count++;
        // A blocking reader looks at one at a time.
        if ((fcntl(device, F_GETFL) & O_NONBLOCK) == 0)
            return count;
    }
}

static int wait_once(const char* how)
{
    if (strcmp(how, "poll") == 0)
        return wait_poll(PATIENCE * 1000);
    if (strcmp(how, "select") == 0)
        return wait_select(PATIENCE * 1000);
    if (strcmp(how, "epoll") == 0)
        return wait_epoll(PATIENCE * 1000, 0);
    return wait_epoll(PATIENCE * 1000, EPOLLET);
}

static int serve(const char* how, unsigned int wanted)
{
    int blocking = strcmp(how, "read") == 0;
    device = open("/dev/ipfc", O_RDWR | (blocking ? 0 : O_NONBLOCK));
    if (device < 0)
        die("/dev/ipfc");
    if (!blocking && strcmp(how, "edge") == 0)
        wait_epoll(0, EPOLLET);
    puts("ready");
    fflush(stdout);
    while (wanted > 0) {
        if (blocking)
            alarm(PATIENCE); // which ends us
        else if (wait_once(how) == 0) {
            puts("lost");
            return 1;
        }
        unsigned int count = take_all();
        if (count > wanted) {
            puts("too many");
            return 1;
        }
        wanted -= count;
        fflush(stdout);
    }
    puts("done");
    return 0;
}

static void on_alarm(int number)
{
    (void)number;
}

static int interrupted(void)
{
    struct sigaction action = {.sa_handler = on_alarm};
    req_mapping_t request;
    device = open("/dev/ipfc", O_RDWR);
    sigaction(SIGALRM, &action, NULL);
    alarm(1);
    ssize_t result = read(device, &request, sizeof request);
    printf("%zd %s\n", result, result < 0 && errno == EINTR ? "EINTR" : "other");
    return 0;
}

static int idle(void)
{
    device = open("/dev/ipfc", O_RDWR);
    printf("%d %d %d\n", wait_poll(0), wait_select(0), wait_epoll(0, 0));
    return 0;
}

int main(int count, char** words)
{
    if (count == 2 && strcmp(words[1], "interrupted") == 0)
        return interrupted();
    if (count == 2 && strcmp(words[1], "idle") == 0)
        return idle();
    if (count == 3)
        return serve(words[1], (unsigned int)strtoul(words[2], NULL, 10));
    fputs("waiter: see its source\n", stderr);
    return 1;
}
