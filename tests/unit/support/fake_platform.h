// SPDX-License-Identifier: GPL-2.0-only
// The platform below the module, for tests: it records every call, answers as the test has
// scripted, and hands up what the test injects. One object for the FC-2 stack, dbgtap, mip and the
// proc directory for switch modules.
#pragma once

#include "skb.h"

#include "brim/dbgtap_intf.h"
#include "brim/fc2_intf.h"
#include "brim/mip_intf.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// One call of kfc2_sendskb.
struct SentIu {
    fc2_iuhdr_t header;
    twin::Bytes bytes; // all of the buffer, network header first
    int result;
    unsigned headroom; // in front of the payload, for the stack
    int tailroom;
    const sk_buff* skb; // to compare only: the buffer is gone
    int locks;          // held by the caller
    bool irqs_off;
    bool cloned;
};

// One call of kfc2_send_logo.
struct SentLogo {
    std::uint16_t vsan;
    fcid_t s_id;
    fcid_t d_id;
    int arg1;
    int arg2;
    int arg3;
    std::uint32_t arg4;
    int locks;
};

// One call of kfc2_setsockopt.
struct SocketOption {
    int level;
    int option;
    int length;
    fc2_opt_nport_t value;
    int result;
};

struct IncomingIu {
    fc2_iuhdr_t header{};
    twin::Bytes bytes;
    twin::SkbLayout layout{.headroom = 64, .tailroom = 8}; // linear = n makes the rest paged
    std::optional<int> nbytes = {};                        // instead of the true length
    std::optional<int> recv_result = {};                   // likewise
    bool without_buffer = false;                           // *skb stays null
    std::function<void(sk_buff*)> prepare = {};            // last changes to the buffer
};

struct MipLookup {
    std::uint16_t ethertype;
    const void* packet;
    bool in_atomic;
};

struct MipAnswer {
    int result = 0; // non-zero: drop
    int flag = 0;   // 1: mapping holds a record
    mip_mapping_t mapping{};
};

struct DebugElement {
    bool history = true;
    bool log = false;
    std::vector<std::string> texts; // of the history, whole
};

class FakePlatform {
public:
    // A fresh platform: scripts gone, records empty, "brim_sw" in the proc tree.
    void reset();
    // Takes "brim_sw" away and drops what was not received.
    void close();
    // What a failed start-up left registered here goes, as the glue and the platform see to it.
    void release_leftovers();

    // ---- FC-2 stack: scripts ----
    int header_reserve = 64;
    int trailer_length = 8;
    int sock_create_result = 0;
    int bind_result = 0;
    std::deque<int> option_results;              // for the next calls; then 0
    int send_result = 0x1234;                    // once send_results is empty
    std::deque<int> send_results;                // for the next calls
    std::function<void(const SentIu&)> on_send;  // runs inside the send, before its result
    std::function<void(fc2_iuhdr_t&)> on_header; // likewise: what the stack writes into the header
    std::function<void(const SentLogo&)> on_logo;
    std::function<void(const SocketOption&)> on_option;
    std::map<if_index_t, int> vsan_of_interface; // absent, or negative: an error number

    // ---- FC-2 stack: records ----
    std::vector<SentIu> sends;
    std::vector<SentLogo> logos;
    std::vector<SocketOption> options;
    std::vector<sockaddr_fc2> binds;
    int open_sockets = 0;
    socket* sock = nullptr; // the open one

    // Hands an information unit to the data-ready callback, in softirq context. False when there
    // is no open socket.
    bool deliver(IncomingIu iu) const;

    // ---- dbgtap ----
    bool dbgtap_out_of_memory = false;
    std::map<int, DebugElement> elements; // filled by registration; settings made before it stay
    std::string module_name;
    std::string module_description;
    std::vector<std::string> element_descriptions;
    int registrations = 0; // open ones
    // The history of errors (100) or events (101), emptied.
    std::vector<std::string> take_texts(int element);
    bool has_text(int element, const std::string& text) const;

    // ---- mip ----
    int mip_register_result = 0;
    std::optional<opt_func_t> mip_callbacks; // while registered
    std::deque<MipAnswer> mip_answers;       // for the next lookups
    MipAnswer mip_answer;                    // once mip_answers is empty
    std::vector<MipLookup> mip_lookups;
};

FakePlatform& platform();
