// SPDX-License-Identifier: GPL-2.0-only
// The probe's commands, shared with its user program, and what its files share.
#pragma once

enum probe_command : unsigned int {
    PROBE_BUFFER_LAYOUT = 1,
    PROBE_DEVICE_LAYOUT,
    PROBE_LOCKS,
    PROBE_MEMORY,
    PROBE_HEADER_FREED_ONCE,
    PROBE_HEADER_LENGTH,
    PROBE_ENTRIES,
    PROBE_USER_MEMORY,
    PROBE_TIMER,
    PROBE_REFUSED_DEVICE,
    PROBE_LOG,
    PROBE_STATIC_OBJECTS,
    PROBE_ADDRESS,
    PROBE_LAST_CHECK = PROBE_ADDRESS,

    PROBE_WAKE = 50,     // one more request to read
    PROBE_ALONE,         // sleeps a little; whether another command came in meanwhile
    PROBE_BUG,           // never returns
    PROBE_DEVICES,       // allocates and registers arg devices, unregisters them, frees none
    PROBE_REMOVE_DOOMED, // takes the proc entry "doomed" away
    PROBE_REFUSE_HEADER, // arg 1: header construction frees the buffer and fails
    PROBE_SENT,          // packets that left with header and payload as they should
    PROBE_SQUAT,         // arg 1: takes the name brim_sw/ipfc under /proc; 0: gives it back
};

#ifdef __KERNEL__
#include "kapi/netdevice.h"
#include "kapi/printk.h"
#include "kapi/proc_fs.h"
#include "kapi/spinlock.h"

// Ends a check, and names what did not hold.
#define PROBE_EXPECT(condition)                                                                    \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            printk("<3>kapi_probe: %s:%d: %s\n", __FILE__, __LINE__, #condition);                  \
            return -1;                                                                             \
        }                                                                                          \
    } while (false)

// What the device's header operation pushes, and what it says it did.
inline constexpr unsigned int PROBE_HEADER = 20;
inline constexpr int PROBE_CLAIMED = 60;

struct probe_private {
    net_device_stats stats;
    unsigned int good_packets;
    unsigned char zero[40];
};

int probe_buffer_layout();
int probe_device_layout(net_device* dev);
int probe_header_freed_once(net_device* dev);
int probe_header_length(net_device* dev);
int probe_refused_device(net_device* taken);
int probe_address(net_device* dev);
int probe_many_devices(unsigned long count);
net_device* probe_device_create(const char* name);
void probe_device_remove(net_device* dev);
extern bool probe_header_refused;

int probe_entries_create();
int probe_entries();
void probe_entries_remove_doomed();
void probe_entries_remove();
int probe_squat(bool on);

// A cache whose objects are constructed is not merged with another of about the same size.
void probe_constructed(void* object);
int probe_locks();
int probe_memory();
int probe_static_objects();
int probe_timer();
int probe_log();
int probe_user_memory(unsigned long page);
void probe_sleep(unsigned long ticks);
#endif
