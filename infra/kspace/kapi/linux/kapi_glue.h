/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The glue between the seam's C++ headers (kapi/) and a real kernel: the records that both sides
 * read, and the functions under the names that the C++ side's symbols carry. A module links a copy
 * of its own.
 */
#pragma once

#include <linux/fs.h>
#include <linux/jiffies.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/poll.h>
#include <linux/proc_fs.h>
#include <linux/sched.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/timer.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

#include "kapi/linux/kapi_compat.h"
#include "kapi_features.h"

#ifdef KAPI_HAVE_WAIT_QUEUE_ENTRY
typedef struct wait_queue_entry kapi_wait_entry_t;
#else
typedef wait_queue_t kapi_wait_entry_t;
#endif

/* ---- records that the C++ side lays out alike (kapi_layout_check.cpp) ---- */

struct kapi_file_operations {
    ssize_t (*read)(struct file* filp, char __user* buffer, size_t count, loff_t* position);
    ssize_t (*write)(struct file* filp, const char __user* buffer, size_t count, loff_t* position);
    unsigned int (*poll)(struct file* filp, void* table);
    int (*ioctl)(struct inode* node, struct file* filp, unsigned int cmd, unsigned long arg);
    long (*compat_ioctl)(struct file* filp, unsigned int cmd, unsigned long arg);
    int (*open)(struct inode* node, struct file* filp);
    int (*release)(struct inode* node, struct file* filp);
};

#ifdef KAPI_HAVE_HEADER_REBUILD
#define kapi_header_ops header_ops
#else
struct kapi_header_ops {
    int (*create)(struct sk_buff* skb, struct net_device* dev, unsigned short type,
                  const void* daddr, const void* saddr, unsigned int len);
    int (*parse)(const struct sk_buff* skb, unsigned char* address);
    int (*rebuild)(struct sk_buff* skb);
    int (*cache)(const void* neighbour, void* header);
    void (*cache_update)(void* header, const struct net_device* dev, const unsigned char* address);
};
#endif

/*
 * Lies at the start of what the kernel takes for the driver's private area; the driver's own
 * follows. What a device lost when its callbacks moved out of it is in here.
 */
struct kapi_netdev {
    const struct kapi_header_ops* header_ops;
#ifdef KAPI_HAVE_NET_DEVICE_OPS
    struct net_device_stats* (*get_stats)(struct net_device* dev);
    int (*open)(struct net_device* dev);
    int (*stop)(struct net_device* dev);
    int (*hard_start_xmit)(struct sk_buff* skb, struct net_device* dev);
    int (*change_mtu)(struct net_device* dev, int mtu);
    void (*destructor)(struct net_device* dev);
    void* priv;
    unsigned long trans_start;
    unsigned long last_rx;
    unsigned short type; /* the device's own, while it is being registered */
#else
    struct header_ops with_our_create; /* the driver's other operations as they are */
#endif
    struct list_head link; /* kapi_netdevs, until the module goes */
    struct net_device* dev;
} __aligned(64);

static inline struct kapi_netdev* kapi_netdev(const struct net_device* dev)
{
    return netdev_priv(dev);
}

/* What the driver holds, with read_proc and data in it. */
struct kapi_pde;
#ifdef KAPI_HAVE_READ_PROC
typedef struct proc_dir_entry kapi_proc_handle_t;
#else
typedef struct kapi_pde kapi_proc_handle_t;
#endif

/* What the glue knows of an entry under /proc. */
struct kapi_pde {
#ifndef KAPI_HAVE_READ_PROC
    int (*read_proc)(char* buffer, char** start, off_t offset, int count, int* eof, void* data);
    int (*write_proc)(struct file* filp, const char __user* buffer, unsigned long count,
                      void* data);
    void* data;
#endif
    size_t (*size)(void* data);  /* what the whole text needs, in bytes; null: a page */
    wait_queue_head_t* watchers; /* null: not to be polled */
    unsigned long (*version)(void* data);
    struct list_head link;         /* kapi_entries */
    struct proc_dir_entry* entry;  /* the kernel's; null: removed, only the address still counts */
    kapi_proc_handle_t* handle;    /* what the driver holds */
    struct proc_dir_entry* parent; /* as the driver named it: a handle, or the kernel's */
    bool directory;
    bool ready; /* the command that makes it is over: the driver has filled it in */
    char name[];
};

struct kapi_timer {
    struct timer_list timer;
    void (*function)(void* argument);
    void* argument;
};

/* One queue at most is polled in a call; room for a few. */
struct kapi_poll_record {
    unsigned int count;
    wait_queue_head_t* queue[4];
};

/* ---- the module's own start and end, in C++ ---- */

int kapi_module_init(void);
void kapi_module_exit(void);

/* Set once kapi_module_init has returned 0, cleared before kapi_module_exit runs. */
extern bool kapi_started;

/* What a module leaves with other modules; empty unless its folder defines it. */
void kapi_platform_release(void);

/* ---- between the files of the glue ---- */

int kapi_chrdev_start(void);
void kapi_chrdev_release(void);
bool kapi_command_running(void);
void kapi_command_abandon(void);

#ifdef KAPI_HAVE_PROC_OPS
extern const struct proc_ops kapi_proc_operations;
#else
extern const struct file_operations kapi_proc_operations;
#endif
struct kapi_pde* kapi_proc_entry_of(const struct file* filp);
void kapi_proc_publish(void);
void kapi_proc_release(void);

void kapi_netdev_release(void);
bool kapi_skb_being_built(const struct sk_buff* skb);

void kapi_caches_release(void);

void kapi_bh_disable(void);
void kapi_bh_enable(void);

/* ---- what the C++ side calls; its headers say what each does ---- */

int kapi_printk(const char* format, ...);
void kapi_bug(const char* file, int line);

void kapi_spin_lock_init(spinlock_t* lock);
void kapi_spin_lock_init_static(void* object);
void kapi_spin_lock(spinlock_t* lock);
void kapi_spin_unlock(spinlock_t* lock);
void kapi_spin_lock_bh(spinlock_t* lock);
void kapi_spin_unlock_bh(spinlock_t* lock);
unsigned long kapi_spin_lock_irqsave(spinlock_t* lock);
void kapi_spin_unlock_irqrestore(spinlock_t* lock, unsigned long flags);
void kapi_rwlock_init(rwlock_t* lock);
void kapi_read_lock_bh(rwlock_t* lock);
void kapi_read_unlock_bh(rwlock_t* lock);
void kapi_write_lock_bh(rwlock_t* lock);
void kapi_write_unlock_bh(rwlock_t* lock);

void* kapi_kmalloc(size_t size, gfp_t flags);
void* kapi_kzalloc(size_t size, gfp_t flags);
void kapi_kfree(const void* block);
void* kapi_vmalloc(unsigned long size);
void kapi_vfree(const void* block);
struct kmem_cache* kapi_kmem_cache_create(const char* name, size_t size, size_t align,
                                          unsigned long flags, void (*ctor)(void*));
void kapi_kmem_cache_destroy(struct kmem_cache* cache);
void* kapi_kmem_cache_alloc(struct kmem_cache* cache, gfp_t flags);
void kapi_kmem_cache_free(struct kmem_cache* cache, void* object);

struct sk_buff* kapi_alloc_skb(unsigned int size, gfp_t flags);
bool kapi_pskb_may_pull(struct sk_buff* skb, unsigned int length);
bool kapi_skb_shared(const struct sk_buff* skb);
bool kapi_skb_cloned(const struct sk_buff* skb);
void kapi_kfree_skb(struct sk_buff* skb);
void kapi_dev_kfree_skb_any(struct sk_buff* skb);
void kapi_skb_reserve(struct sk_buff* skb, int length);
int kapi_dev_queue_xmit(struct sk_buff* skb);

struct net_device* kapi_alloc_etherdev_mq(int priv_size, unsigned int queues);
int kapi_register_netdevice(struct net_device* dev);
void kapi_unregister_netdevice(struct net_device* dev);
void kapi_dev_addr_mod(struct net_device* dev, unsigned int offset, const void* address,
                       size_t length);
int kapi_arp_find(unsigned char* to, struct sk_buff* skb);

int kapi_register_chrdev(unsigned int major, const char* name,
                         const struct kapi_file_operations* operations);
void kapi_unregister_chrdev(unsigned int major, const char* name);
struct inode* kapi_file_inode(const struct file* filp);

kapi_proc_handle_t* kapi_proc_mkdir(const char* name, struct proc_dir_entry* parent);
kapi_proc_handle_t* kapi_create_proc_entry(const char* name, unsigned int mode,
                                           struct proc_dir_entry* parent);
void kapi_remove_proc_entry(const char* name, struct proc_dir_entry* parent);
void kapi_proc_set_size(kapi_proc_handle_t* entry, size_t (*size)(void* data));
void kapi_proc_set_poll(kapi_proc_handle_t* entry, wait_queue_head_t* queue,
                        unsigned long (*version)(void* data));
size_t kapi_proc_room(const char* buffer);

bool kapi_access_ok(int type, const void* address, unsigned long size);
unsigned long kapi_copy_to_user(void* to, const void* from, unsigned long length);
unsigned long kapi_copy_from_user(void* to, const void* from, unsigned long length);

void kapi_init_waitqueue_head(wait_queue_head_t* queue);
void kapi_init_waitqueue_head_static(void* object);
void kapi_init_waitqueue_entry(kapi_wait_entry_t* entry);
void kapi_add_wait_queue(wait_queue_head_t* queue, kapi_wait_entry_t* entry);
void kapi_remove_wait_queue(wait_queue_head_t* queue, kapi_wait_entry_t* entry);
void kapi_wake_up_interruptible(wait_queue_head_t* queue);
void kapi_set_current_interruptible(void);
void kapi_set_current_running(void);
void kapi_schedule(void);
bool kapi_signal_pending(void);
void kapi_poll_wait(struct file* filp, wait_queue_head_t* queue, struct kapi_poll_record* table);

void kapi_timer_setup(struct kapi_timer* timer, void (*function)(void*), void* argument);
int kapi_mod_timer(struct kapi_timer* timer, unsigned long expires);
int kapi_del_timer_sync(struct kapi_timer* timer);
