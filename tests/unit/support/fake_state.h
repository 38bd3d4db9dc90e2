// SPDX-License-Identifier: GPL-2.0-only
// What the fake platform's parts hold for the module, and forget.
#pragma once

// Closes what is open, with the information units that wait in it.
void drop_sockets();
// Closes the debug registrations.
void drop_registrations();
