// SPDX-License-Identifier: GPL-2.0-only
// Error numbers of Linux on x86. Plain names, as <errno.h> has them; both may be included.
#pragma once

#ifndef EPERM
#define EPERM 1
#define ENXIO 6
#define EAGAIN 11
#define ENOMEM 12
#define EFAULT 14
#define EBUSY 16
#define EEXIST 17
#define ENODEV 19
#define EINVAL 22
#define ENOTTY 25
#define ENOSPC 28
#define EBADE 52
#define EMSGSIZE 90
#define EADDRNOTAVAIL 99
#define ENOBUFS 105
#define ECONNREFUSED 111
#define EHOSTUNREACH 113
#endif
#ifndef ERESTARTSYS
#define ERESTARTSYS 512 // never seen by user space
#endif
