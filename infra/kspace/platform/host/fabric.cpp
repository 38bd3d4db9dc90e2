// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/fabric.h"

#include "platform/platform.h"

#include "context.h"
#include "fault.h"

#include <algorithm>

brim_link::~brim_link()
{
    brim_link_detach(this);
}

namespace twin {
namespace {

brim_link* module_link = nullptr;

bool is_to_directory_server(const sk_buff* frame)
{
    static constexpr unsigned char address[] = {0x0E, 0xFC, 0x00, 0xFF, 0xFF, 0xFC};
    return frame->len >= sizeof address &&
           std::equal(std::begin(address), std::end(address), frame->data);
}

} // namespace

void Fabric::transmit(const brim_link* from, const sk_buff* frame)
{
    if (from->stack == nullptr)
        fault("a frame is sent over a link that is not attached");
    if (frame->data_len != 0)
        fault("a frame on the link is not linear");
    std::lock_guard guard(sending_);
    locks_held = std::max(locks_held, context().held.size());
    if (!from->plugged)
        return;
    if (!carries_names && is_to_directory_server(frame))
        return;
    in_flight.push_back({from, skb_bytes(frame)});
    seen.push_back(in_flight.back().bytes);
}

void Fabric::send(Bytes bytes)
{
    seen.push_back(bytes);
    in_flight.push_back({nullptr, std::move(bytes)});
}

bool Fabric::deliver_one()
{
    if (in_flight.empty())
        return false;
    const Frame frame = std::move(in_flight.front());
    in_flight.pop_front();
    const std::vector<brim_link*> ports = ports_;
    for (brim_link* port : ports)
        if (port != frame.from && port->plugged)
            raise_softirq([&frame, port] { fc2_link_receive(port->stack, make_skb(frame.bytes)); });
    return true;
}

void Fabric::deliver_all()
{
    while (deliver_one()) {
    }
}

int attach(brim_link* link, fc2_stack* stack)
{
    link->stack = stack;
    link->fabric.ports_.push_back(link);
    return 0;
}

void detach(brim_link* link)
{
    std::erase(link->fabric.ports_, link);
    link->stack = nullptr;
}

void set_module_link(brim_link* link)
{
    module_link = link;
}

} // namespace twin

void brim_link_transmit(brim_link* link, sk_buff* frame)
{
    link->fabric.transmit(link, frame);
    dev_kfree_skb_any(frame);
}

unsigned int brim_link_mtu(const brim_link* link)
{
    return link->mtu;
}

int brim_link_attach(brim_link* link, fc2_stack* stack)
{
    return twin::attach(link, stack);
}

void brim_link_detach(brim_link* link)
{
    twin::detach(link);
}

brim_link* brim_module_link()
{
    return twin::module_link;
}
