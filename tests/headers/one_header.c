/* SPDX-License-Identifier: GPL-2.0-only */
/* One shared header alone, in the language and for the machine that the command line names. */
#include BRIM_HEADER
#include BRIM_HEADER

extern int brim_header_compiled;
