// SPDX-License-Identifier: GPL-2.0-only
// The fabric's name server: which port name is at which address, in every VSAN, kept by every
// switch for itself from what the others announce.
//
// A switch announces each of its N_Ports when it registers it and every FC2_NAME_INTERVAL after
// that, by an RPN_ID to the directory server's address; it withdraws it by a DA_ID (FC-GS, name
// service). Every switch takes in what is sent to that address. A port that nobody announces any
// longer is forgotten, and whoever hears of a new port soon announces its own: so a switch that
// joins knows all at once, and one that stops without a word is gone after FC2_NAME_LIFETIME.
#pragma once

#include "kapi/jiffies.h"
#include "kapi/list.h"
#include "kapi/skbuff.h"

#include "platform/fc2/fc2_frame.h"

struct fc2_stack;

inline constexpr unsigned int FC2_NAMES_MAX = 16384;
inline constexpr unsigned int FC2_NAME_BUCKETS = 1024;
inline constexpr unsigned int FC2_NAMES_PER_TICK = 128; // announcements in one go
inline constexpr unsigned long FC2_NAME_INTERVAL = 5 * HZ;
inline constexpr unsigned long FC2_NAME_LIFETIME = 16 * HZ;

struct fc2_name {
    list_head bucket; // by VSAN and port name
    list_head order;  // fc2_names.own or .others: the next one due first
    std::uint16_t vsan;
    bool own;
    std::uint32_t fcid;
    wwn_t portname;
    unsigned long due; // own: of the next announcement; others': of being forgotten
};

// Guarded by the stack's lock.
struct fc2_names {
    list_head buckets[FC2_NAME_BUCKETS];
    list_head own;
    list_head others;
    unsigned int num;
    unsigned int num_own;
    unsigned int hurry;    // so many own ones are announced before they are due
    std::uint16_t ox_id;   // exchanges with the directory server are numbered by themselves
    unsigned long version; // changes whenever a reader would see something else
};

// Takes the names in; before anything else that is below.
void fc2_names_init(fc2_names* names);
// Process context; nothing else may use the stack any more.
void fc2_names_free(fc2_names* names);

// An own N_Port comes and goes. A table that is full leaves it out: nobody learns of it.
void fc2_name_register(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname);
void fc2_name_withdraw(fc2_stack* stack, std::uint16_t vsan, std::uint32_t fcid, wwn_t portname);

// Whether the frame is one for the directory server, and what to do with it then; owns the buffer,
// whose data alone are left. Every byte is untrusted.
bool fc2_is_for_names(const fc2_frame& frame);
void fc2_names_receive(fc2_stack* stack, const fc2_frame& frame, sk_buff* skb);

// Announces what is due and forgets what nobody announces. Softirq context.
void fc2_names_tick(fc2_stack* stack);

// brim_sw/name_server: a line for every port, "VSAN PORTNAME FCID". Process context.
int fc2_names_proc_start(fc2_stack* stack);
void fc2_names_proc_stop();
// Wakes those who poll the file.
void fc2_names_changed();
