// SPDX-License-Identifier: GPL-2.0-only
// Linked into every program that uses the C library: room in the code for the harness's
// oldcalls.py, since what is left of the code's last page is a matter of luck.
__asm__(".text\n\t.fill 2048, 1, 0xcc");
