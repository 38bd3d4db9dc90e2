// SPDX-License-Identifier: GPL-2.0-only
// Character devices with 2.6.27's operations.
//
// Registration reserves the number at once; the device answers when the module's start-up is over.
// The kernel's own register_chrdev() would let openers in before. They hold references to the
// module, but the loader frees one whose start-up failed without a look at those.
#include <linux/cdev.h>
#include <linux/compat.h>
#include <linux/device.h>
#include <linux/err.h>
#include <linux/kdev_t.h>
#include <linux/mutex.h>

#include "kapi/linux/kapi_glue.h"

#define MINORS 256

struct chrdev {
    struct list_head link;
    dev_t number;
    const struct kapi_file_operations* operations;
    struct cdev* cdev; /* null until the start-up is over */
    struct class* class;
    char name[];
};

static LIST_HEAD(chrdevs);
static DEFINE_MUTEX(chrdevs_lock);

// One command at a time, whoever calls: the driver is written for a kernel that saw to that.
static DEFINE_MUTEX(command_lock);
static struct task_struct* command_owner;

bool kapi_command_running(void)
{
    return READ_ONCE(command_owner) == current;
}

static int command_begin(void)
{
    if (mutex_lock_killable(&command_lock))
        return -EINTR;
    WRITE_ONCE(command_owner, current);
    return 0;
}

static void command_end(void)
{
    WRITE_ONCE(command_owner, NULL);
    mutex_unlock(&command_lock);
}

void kapi_command_abandon(void)
{
    if (kapi_command_running() && !in_interrupt())
        command_end();
}

static const struct kapi_file_operations* operations_of(const struct file* filp)
{
    const struct chrdev* own = filp->private_data;

    return own->operations;
}

static int chr_open(struct inode* node, struct file* filp)
{
    struct chrdev* own;
    struct chrdev* found = NULL;

    mutex_lock(&chrdevs_lock);
    list_for_each_entry(own, &chrdevs, link)
    {
        if (MAJOR(own->number) == imajor(node))
            found = own;
    }
    mutex_unlock(&chrdevs_lock);
    if (!found)
        return -ENODEV;
    filp->private_data = found;
    return found->operations->open ? found->operations->open(node, filp) : 0;
}

static int chr_release(struct inode* node, struct file* filp)
{
    const struct kapi_file_operations* operations = operations_of(filp);

    return operations->release ? operations->release(node, filp) : 0;
}

static ssize_t chr_read(struct file* filp, char __user* buffer, size_t count, loff_t* position)
{
    const struct kapi_file_operations* operations = operations_of(filp);

    return operations->read ? operations->read(filp, buffer, count, position) : -EINVAL;
}

static ssize_t chr_write(struct file* filp, const char __user* buffer, size_t count,
                         loff_t* position)
{
    const struct kapi_file_operations* operations = operations_of(filp);

    return operations->write ? operations->write(filp, buffer, count, position) : -EINVAL;
}

static long chr_ioctl(struct file* filp, unsigned int cmd, unsigned long arg)
{
    const struct kapi_file_operations* operations = operations_of(filp);
    long result;

    if (!operations->ioctl)
        return -ENOTTY;
    result = command_begin();
    if (result < 0)
        return result;
    result = operations->ioctl(file_inode(filp), filp, cmd, arg);
    kapi_proc_publish();
    command_end();
    return result;
}

#ifdef CONFIG_COMPAT
static long chr_compat_ioctl(struct file* filp, unsigned int cmd, unsigned long arg)
{
    const struct kapi_file_operations* operations = operations_of(filp);
    long result;

    if (!operations->compat_ioctl)
        return -ENOTTY;
    result = command_begin();
    if (result < 0)
        return result;
    result = operations->compat_ioctl(filp, cmd, arg);
    kapi_proc_publish();
    command_end();
    return result;
}
#endif

#ifndef KAPI_HAVE_POLL_T
typedef unsigned int __poll_t;
#endif

// The driver names its queues under its own lock, where the kernel's registration could not sleep.
// What happens between the first call and the registration shows in the second call's mask.
static __poll_t chr_poll(struct file* filp, poll_table* table)
{
    const struct kapi_file_operations* operations = operations_of(filp);
    struct kapi_poll_record record = {};
    unsigned int i;

    if (!operations->poll)
        return (__force __poll_t)(POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
    if (!poll_does_not_wait(table)) {
        operations->poll(filp, &record);
        for (i = 0; i < record.count; i++)
            poll_wait(filp, record.queue[i], table);
    }
    return (__force __poll_t)operations->poll(filp, NULL);
}

#ifdef KAPI_HAVE_IOCTL_WITH_INODE
static int chr_ioctl_with_inode(struct inode* node, struct file* filp, unsigned int cmd,
                                unsigned long arg)
{
    return chr_ioctl(filp, cmd, arg);
}
#endif

static const struct file_operations glue_file_operations = {
    .owner = THIS_MODULE,
    .open = chr_open,
    .release = chr_release,
    .read = chr_read,
    .write = chr_write,
    .poll = chr_poll,
#ifdef KAPI_HAVE_IOCTL_WITH_INODE
    .ioctl = chr_ioctl_with_inode,
#else
    .unlocked_ioctl = chr_ioctl,
#endif
#ifdef CONFIG_COMPAT
    .compat_ioctl = chr_compat_ioctl,
#endif
};

// The node under /dev is a convenience: without it one can be made by hand.
static void make_node(struct chrdev* own)
{
    struct device* device;

#ifdef KAPI_HAVE_CLASS_CREATE_WITHOUT_OWNER
    own->class = class_create(own->name);
#else
    own->class = class_create(THIS_MODULE, own->name);
#endif
    if (IS_ERR(own->class)) {
        own->class = NULL;
        return;
    }
    device = device_create(own->class, NULL, own->number, NULL, "%s", own->name);
    if (IS_ERR(device)) {
        class_destroy(own->class);
        own->class = NULL;
    }
}

static int bring_to_life(struct chrdev* own)
{
    int result;

    own->cdev = cdev_alloc();
    if (!own->cdev)
        return -ENOMEM;
    own->cdev->owner = THIS_MODULE;
    own->cdev->ops = &glue_file_operations;
    result = cdev_add(own->cdev, own->number, MINORS);
    if (result < 0) {
        kobject_put(&own->cdev->kobj);
        own->cdev = NULL;
        return result;
    }
    make_node(own);
    return 0;
}

static void remove_chrdev(struct chrdev* own)
{
    list_del(&own->link);
    if (own->class) {
        device_destroy(own->class, own->number);
        class_destroy(own->class);
    }
    if (own->cdev)
        cdev_del(own->cdev);
    unregister_chrdev_region(own->number, MINORS);
    kfree(own);
}

int kapi_register_chrdev(unsigned int major, const char* name,
                         const struct kapi_file_operations* operations)
{
    struct chrdev* own = kzalloc(sizeof(*own) + strlen(name) + 1, GFP_KERNEL);
    int result;

    if (!own)
        return -ENOMEM;
    strcpy(own->name, name);
    own->operations = operations;
    own->number = MKDEV(major, 0);
    if (MAJOR(own->number) != major)
        result = -EINVAL;
    else if (major)
        result = register_chrdev_region(own->number, MINORS, own->name);
    else
        result = alloc_chrdev_region(&own->number, 0, MINORS, own->name);
    if (result < 0) {
        kfree(own);
        return result;
    }

    mutex_lock(&chrdevs_lock);
    list_add(&own->link, &chrdevs);
    if (kapi_started)
        result = bring_to_life(own);
    if (result < 0)
        remove_chrdev(own);
    else if (!major)
        result = MAJOR(own->number);
    mutex_unlock(&chrdevs_lock);
    return result;
}

void kapi_unregister_chrdev(unsigned int major, const char* name)
{
    struct chrdev* own;
    struct chrdev* next;

    mutex_lock(&chrdevs_lock);
    list_for_each_entry_safe(own, next, &chrdevs, link)
    {
        if (MAJOR(own->number) == major && !strcmp(own->name, name))
            remove_chrdev(own);
    }
    mutex_unlock(&chrdevs_lock);
}

struct inode* kapi_file_inode(const struct file* filp)
{
    return file_inode(filp);
}

int kapi_chrdev_start(void)
{
    struct chrdev* own;
    int result = 0;

    mutex_lock(&chrdevs_lock);
    list_for_each_entry(own, &chrdevs, link)
    {
        result = bring_to_life(own);
        if (result < 0)
            break;
    }
    mutex_unlock(&chrdevs_lock);
    return result;
}

void kapi_chrdev_release(void)
{
    struct chrdev* own;
    struct chrdev* next;

    mutex_lock(&chrdevs_lock);
    list_for_each_entry_safe(own, next, &chrdevs, link) remove_chrdev(own);
    mutex_unlock(&chrdevs_lock);
}
