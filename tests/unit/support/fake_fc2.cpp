// SPDX-License-Identifier: GPL-2.0-only
#include "support/fake_platform.h"
#include "support/fake_state.h"

#include "records.h"
#include "twin.h"

#include <cstring>
#include <memory>
#include <mutex>

using namespace twin;

struct socket {
    fc2_data_ready_t data_ready;
    std::deque<IncomingIu> waiting;
};

namespace {

// Senders on several threads meet here.
std::recursive_mutex mutex;
std::vector<std::unique_ptr<socket>> sockets;

bool is_open(const socket* sock, const char* function)
{
    for (const auto& entry : sockets)
        if (entry.get() == sock)
            return true;
    fault(std::string(function) + " on a socket that is not open");
    return false;
}

std::string fcid_text(fcid_t fcid)
{
    return strf("%02x%02x%02x", fcid.domain, fcid.area, fcid.port);
}

template <typename T>
T take_or(std::deque<T>& scripted, T otherwise)
{
    if (scripted.empty())
        return otherwise;
    T next = std::move(scripted.front());
    scripted.pop_front();
    return next;
}

int locks_of_caller()
{
    return static_cast<int>(context().held.size());
}

// The stack may be entered with interrupts off and a lock held for broadcast replication alone.
void check_caller(const char* function)
{
    if (locks_of_caller() != 0 && !context().irqs_off)
        fault(std::string(function) + " under a lock with interrupts on");
}

SentIu record_of(const fc2_iuhdr_t* header, const sk_buff* skb)
{
    SentIu sent{};
    sent.header = *header;
    sent.bytes = skb_bytes(skb);
    sent.headroom = skb_headroom(skb);
    sent.tailroom = skb_tailroom(skb);
    sent.skb = skb;
    sent.locks = locks_of_caller();
    sent.irqs_off = context().irqs_off;
    sent.cloned = skb_cloned(skb);
    return sent;
}

} // namespace

void drop_sockets()
{
    RecordGuard guard(mutex);
    sockets.clear();
}

bool FakePlatform::deliver(IncomingIu iu) const
{
    socket* target;
    {
        RecordGuard guard(mutex);
        if (sock == nullptr)
            return false;
        target = sock;
        if (iu.header.length == 0)
            iu.header.length = static_cast<int>(iu.bytes.size());
    }
    const int length = iu.nbytes.value_or(static_cast<int>(iu.bytes.size()));
    {
        RecordGuard guard(mutex);
        target->waiting.push_back(std::move(iu));
    }
    raise_softirq([target, length] {
        journal().add(Source::platform, strf("data_ready %d", length));
        if (target->data_ready(target, length) != 0)
            fault("the data-ready callback's result is not 0");
    });
    return true;
}

int kfc2_sock_create(int arg, socket** sock, fc2_data_ready_t data_ready)
{
    might_sleep("kfc2_sock_create");
    RecordGuard guard(mutex);
    FakePlatform& fake = platform();
    int result = fake.sock_create_result;
    if (result == 0 && heap().attempt(Kind::platform, "kfc2_sock_create"))
        result = -12;
    journal().add(Source::platform, strf("kfc2_sock_create %d = %d", arg, result));
    if (result != 0)
        return result;
    sockets.push_back(std::make_unique<socket>(socket{data_ready, {}}));
    *sock = sockets.back().get();
    fake.sock = *sock;
    ++fake.open_sockets;
    return 0;
}

int kfc2_sock_bind(socket* sock, sockaddr_fc2* addr, int length)
{
    RecordGuard guard(mutex);
    FakePlatform& fake = platform();
    const int result = is_open(sock, "kfc2_sock_bind") ? fake.bind_result : -22;
    journal().add(Source::platform, strf("kfc2_sock_bind %d = %d", length, result));
    fake.binds.push_back(*addr);
    return result;
}

int kfc2_setsockopt(socket* sock, int level, int option, void* value, int length)
{
    might_sleep("kfc2_setsockopt");
    FakePlatform& fake = platform();
    SocketOption record{level, option, length, {}, 0};
    if (length == static_cast<int>(sizeof(record.value)))
        std::memcpy(&record.value, value, sizeof(record.value));
    else
        fault(strf("kfc2_setsockopt with a value of %d bytes", length));
    const char* const name = option == FC2_OPT_ADD_NPORT  ? "ADD_NPORT"
                             : option == FC2_OPT_RM_NPORT ? "RM_NPORT"
                                                          : "unknown option";
    std::function<void(const SocketOption&)> hook;
    {
        RecordGuard guard(mutex);
        is_open(sock, "kfc2_setsockopt");
        record.result = take_or(fake.option_results, 0);
        journal().add(Source::platform,
                      strf("kfc2_setsockopt %s vsan %u %s", name, record.value.vsan,
                           fcid_text(record.value.d_id).c_str()));
        fake.options.push_back(record);
        hook = fake.on_option;
    }
    if (hook)
        hook(record);
    return record.result;
}

int kfc2_recvskb(socket* sock, fc2_iuhdr_t* header, sk_buff** skb)
{
    RecordGuard guard(mutex);
    if (!is_open(sock, "kfc2_recvskb") || sock->waiting.empty()) {
        journal().add(Source::platform, "kfc2_recvskb, nothing waits");
        return -11;
    }
    const IncomingIu iu = std::move(sock->waiting.front());
    sock->waiting.pop_front();
    *header = iu.header;
    const int result = iu.recv_result.value_or(static_cast<int>(iu.bytes.size()));
    journal().add(Source::platform, strf("kfc2_recvskb = %d", result));
    if (iu.without_buffer)
        return result;
    *skb = make_skb(iu.bytes, iu.layout);
    if (iu.prepare)
        iu.prepare(*skb);
    return result;
}

int kfc2_sendskb(socket* sock, fc2_iuhdr_t* header, sk_buff* skb)
{
    check_caller("kfc2_sendskb");
    if (!skb_alive(skb)) {
        fault("kfc2_sendskb of no live buffer");
        return -22;
    }
    FakePlatform& fake = platform();
    SentIu sent = record_of(header, skb);
    std::function<void(const SentIu&)> hook;
    {
        RecordGuard guard(mutex);
        is_open(sock, "kfc2_sendskb");
        sent.result = take_or(fake.send_results, fake.send_result);
        journal().add(Source::platform,
                      strf("kfc2_sendskb vsan %u %s to %s, %zu bytes = %d", sent.header.vsan,
                           fcid_text(sent.header.s_id).c_str(), fcid_text(sent.header.d_id).c_str(),
                           sent.bytes.size(), sent.result));
        fake.sends.push_back(sent);
        hook = fake.on_send;
    }
    if (fake.on_header)
        fake.on_header(*header);
    dev_kfree_skb_any(skb);
    if (hook)
        hook(sent);
    return sent.result;
}

int kfc2_send_logo(socket* sock, uint16_t vsan, fcid_t s_id, fcid_t d_id, int arg1, int arg2,
                   int arg3, uint32_t arg4)
{
    check_caller("kfc2_send_logo");
    const SentLogo sent{vsan, s_id, d_id, arg1, arg2, arg3, arg4, locks_of_caller()};
    FakePlatform& fake = platform();
    std::function<void(const SentLogo&)> hook;
    {
        RecordGuard guard(mutex);
        is_open(sock, "kfc2_send_logo");
        journal().add(Source::platform, strf("kfc2_send_logo vsan %u %s to %s", vsan,
                                             fcid_text(s_id).c_str(), fcid_text(d_id).c_str()));
        fake.logos.push_back(sent);
        hook = fake.on_logo;
    }
    if (hook)
        hook(sent);
    return 0;
}

void kfc2_sock_close(socket* sock)
{
    might_sleep("kfc2_sock_close");
    RecordGuard guard(mutex);
    journal().add(Source::platform, "kfc2_sock_close");
    if (!is_open(sock, "kfc2_sock_close"))
        return;
    std::erase_if(sockets, [&](const auto& entry) { return entry.get() == sock; });
    FakePlatform& fake = platform();
    --fake.open_sockets;
    fake.sock = nullptr;
}

// Recognisable parameters: what the caller leaves alone shows in its record.
void fc2_default_plogi(els_plogi_t* plogi)
{
    std::memset(plogi, 0, sizeof(*plogi));
    plogi->common.fcph = 0x2020;
    plogi->common.common_features = 0x8800;
    plogi->common.buf2buf_size = 2112;
    plogi->class3.serv_opts = 0x8000;
    plogi->class3.recv_size = 2112;
}

int fc2_get_hdr_reserve()
{
    return platform().header_reserve;
}

int fc2_get_tlrlen()
{
    return platform().trailer_length;
}

int if_index_vsan_get_vsan(if_index_t ifindex, vsan_id_t* vsan)
{
    const FakePlatform& fake = platform();
    const auto found = fake.vsan_of_interface.find(ifindex);
    if (found == fake.vsan_of_interface.end())
        return -22;
    if (found->second < 0)
        return found->second;
    *vsan = found->second;
    return 0;
}
