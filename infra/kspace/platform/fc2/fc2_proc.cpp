// SPDX-License-Identifier: GPL-2.0-only
// brim_sw/fc2: the stack's counters and its N_Ports, as text.
#include "platform/fc2/fc2_stack.h"

#include "platform/platform.h"
#include "platform/proc_text.h"

namespace {

inline constexpr char FILE_NAME[] = "fc2";

struct counter_line {
    const char* name;
    unsigned long fc2_counters::*counter;
};

constinit const counter_line LINES[] = {
    {"frames received", &fc2_counters::frames_received},
    {"frames sent", &fc2_counters::frames_sent},
    {"frames for others", &fc2_counters::not_for_us},
    {"malformed frames", &fc2_counters::malformed},
    {"frames with a bad CRC", &fc2_counters::bad_crc},
    {"sequences discarded", &fc2_counters::sequences_discarded},
    {"units delivered", &fc2_counters::delivered},
    {"units that no socket wants", &fc2_counters::unmatched},
    {"units dropped", &fc2_counters::overruns},
    {"logins refused", &fc2_counters::logins_refused},
    {"logins unanswered", &fc2_counters::logins_unanswered},
};

const char* word_for(fc2_login state)
{
    switch (state) {
    case fc2_login::pending:
        return "pending";
    case fc2_login::open:
        return "logged in";
    case fc2_login::refused:
        return "refused";
    case fc2_login::unreachable:
        return "unreachable";
    }
    return "";
}

void print_nport(proc_window* window, const fc2_nport* nport)
{
    const std::uint8_t* name = nport->plogi.nport_wwn.str;
    window->print("N_Port vsan %d fcid 0x%06x %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n",
                  nport->vsan, nport->fcid, name[0], name[1], name[2], name[3], name[4], name[5],
                  name[6], name[7]);
    const list_head* head = &nport->sessions;
    for (list_head* at = head->next; at != head && !window->is_full(); at = at->next) {
        const auto* session = list_entry(at, fc2_session, of_nport);
        window->print("  peer 0x%06x %s\n", session->peer, word_for(session->state));
    }
}

int read_report(char* buffer, char** start, off_t offset, int count, int* eof, void* data)
{
    auto* stack = static_cast<fc2_stack*>(data);
    proc_window window(buffer, offset, count);
    irqsave_guard guard(stack->lock);
    for (const counter_line& line : LINES)
        window.print("%-27s %lu\n", line.name, stack->counters.*line.counter);
    for (const list_head& bucket : stack->nports)
        for (list_head* at = bucket.next; at != &bucket && !window.is_full(); at = at->next)
            print_nport(&window, list_entry(at, fc2_nport, link));
    return window.finish(start, eof);
}

} // namespace

int fc2_proc_start(fc2_stack* stack)
{
    proc_dir_entry* entry = create_proc_entry(FILE_NAME, 0400, proc_brim_sw);
    if (entry == nullptr)
        return -ENOMEM;
    entry->data = stack;
    entry->read_proc = read_report;
    return 0;
}

void fc2_proc_stop()
{
    remove_proc_entry(FILE_NAME, proc_brim_sw);
}
