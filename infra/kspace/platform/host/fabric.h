// SPDX-License-Identifier: GPL-2.0-only
// The link on the twin: an Ethernet segment in memory that joins any number of stacks. Frames stay
// on it until a test lets them arrive, so that it can look at them, lose, double and reorder them.
#pragma once

#include "skb.h"

#include "platform/link.h"

#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace twin {
class Fabric;
}

// A port of the segment. Carries what is sent once its stack is attached.
struct brim_link {
    explicit brim_link(twin::Fabric& joined) : fabric(joined) {}
    ~brim_link();
    brim_link(const brim_link&) = delete;

    twin::Fabric& fabric;
    fc2_stack* stack = nullptr;
    unsigned int mtu = 2500;
    bool plugged = true;
};

namespace twin {

class Fabric {
public:
    struct Frame {
        const brim_link* from; // null: a foreign station
        Bytes bytes;
    };

    // Sent and not yet arrived, oldest first.
    std::deque<Frame> in_flight;
    // Everything that was ever sent.
    std::vector<Bytes> seen;

    // Frames to the directory server, which come with every N_Port and by the clock; false keeps
    // them off the segment where they are not what a test is about.
    bool carries_names = true;

    // The most locks that a sender held.
    std::size_t locks_held = 0;

    // Sends a frame of a station that is no stack.
    void send(Bytes bytes);

    // Lets the oldest frame arrive at every other port, in a softirq of its own; false when there
    // is none.
    bool deliver_one();
    // Lets frames arrive until there are none, those included that are sent in answer.
    void deliver_all();
    // Loses what is in flight.
    void lose_all() { in_flight.clear(); }

private:
    friend struct ::brim_link;
    friend void ::brim_link_transmit(brim_link* link, sk_buff* frame);
    friend int attach(brim_link* link, fc2_stack* stack);
    friend void detach(brim_link* link);

    void transmit(const brim_link* from, const sk_buff* frame);

    std::mutex sending_; // stacks may send from several threads; all else is one thread's
    std::vector<brim_link*> ports_;
};

// The segment's port that a module under test attaches to.
void set_module_link(brim_link* link);

} // namespace twin
