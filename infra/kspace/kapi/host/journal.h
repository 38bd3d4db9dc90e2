// SPDX-License-Identifier: GPL-2.0-only
// The order of effects: one list over the kernel's calls and, in the tests, the platform's.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace twin {

enum class Source {
    chrdev,   // "register_chrdev 0 ipfc", "unregister_chrdev 254 ipfc"
    slab,     // "kmem_cache_create NAME", "kmem_cache_destroy NAME"
    proc,     // "proc_mkdir DIR/NAME", "create_proc_entry DIR/NAME", "remove_proc_entry DIR/NAME"
    netdev,   // "register_netdevice NAME", "unregister_netdevice NAME"
    rtnl,     // "rtnl_lock", "rtnl_unlock"
    lock,     // "write_lock_bh NAME", ... ; NAME as given to name_lock
    net,      // "netif_rx NAME", "dev_queue_xmit NAME", "arp_find"
    wait,     // "wake_up_interruptible"
    printk,   // the text, level included
    message,  // a debug message that reached the history: "100 TEXT"
    platform, // the calls of the FC-2 stack, dbgtap and mip
    test,     // what a test adds itself
};

struct Event {
    Source source;
    std::string text;
};

class Journal {
public:
    void add(Source source, std::string text);
    void clear();

    std::vector<Event> events() const;
    // Texts alone; without sources: every one but lock.
    std::vector<std::string> texts() const;
    std::vector<std::string> texts(std::initializer_list<Source> sources) const;
};

Journal& journal();

} // namespace twin
