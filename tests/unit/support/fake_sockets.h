// SPDX-License-Identifier: GPL-2.0-only
// The fake FC-2 stack's sockets.
#pragma once

// Closes what is open, with the information units that wait in it.
void drop_sockets();
