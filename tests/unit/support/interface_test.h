// SPDX-License-Identifier: GPL-2.0-only
// An interface that is ready to send and receive, and what tests of the data path say: names and
// bytes as text, and the order of effects.
#pragma once

#include "support/module_test.h"

#include "ipfc.h"

#include <string_view>

// "10 00 0a": bytes as a person writes them down, and back.
twin::Bytes bytes(std::string_view text);
std::string hex(std::span<const std::uint8_t> data);
twin::Bytes joined(std::initializer_list<twin::Bytes> parts);

wwn_t wwn(const char* text);        // "20:00:00:5e:bf:01:02:03"
fcid_t fcid(std::uint32_t address); // 0x0a0b0c
std::string text_of(wwn_t name);
std::string text_of(fcid_t address);

// What happened since the last call: platform calls, what reached the network stack, and debug
// messages as "100 TEXT" (errors) or "101 TEXT" (events). Both outlets must be on: a message that
// is not in the kernel log as well, behind "<7><{ipfc}>" and next after the history, fails the
// test.
std::vector<std::string> effects();
// The messages among them.
std::vector<std::string> messages();

// The interface under test and its peer. As numbers in messages the names are 0x30201bf5e000020
// and 0x10b0abf5e000010, the FCIDs 0xc0b0a00 and 0x16151400.
inline constexpr vsan_id_t own_vsan = 10;
inline constexpr wwn_t own_port = {.str = {0x20, 0x00, 0x00, 0x5E, 0xBF, 0x01, 0x02, 0x03}};
inline constexpr wwn_t own_node = {.str = {0x20, 0x01, 0x00, 0x5E, 0xBF, 0x01, 0x02, 0x03}};
inline constexpr fcid_t own_fcid = {.str = {0x00, 0x0a, 0x0b, 0x0c}};
inline constexpr wwn_t peer_port = {.str = {0x10, 0x00, 0x00, 0x5E, 0xBF, 0x0a, 0x0b, 0x01}};
inline constexpr fcid_t peer_fcid = {.str = {0x00, 0x14, 0x15, 0x16}};
inline constexpr fcid_t broadcast_fcid = {.str = {0x00, 0xFF, 0xFF, 0xFF}};

// Null when creation failed, as it may without memory.
net_device* create_interface(vsan_id_t vsan_id, wwn_t port, fcid_t address);

// Enter the interface's table directly; not numbered as allocations.
kpn_to_fcid_t* add_mapping(kvsan_interface_priv_t* priv, wwn_t port, fcid_t address);
fc2_exch_status_t* add_exchange(kvsan_interface_priv_t* priv, kpn_to_fcid_t* mapping, fcid_t source,
                                std::int32_t handle);
// Take everything out of the table, telling nobody.
void drop_mappings(kvsan_interface_priv_t* priv);

// The table as lines "BUCKET WWN > FCID [SOURCE=HANDLE ...]", in chain order.
std::vector<std::string> table_of(kvsan_interface_priv_t* priv);

// The module with one interface up on own_vsan, both outlets of both elements on.
class InterfaceTest : public UnloadedModuleTest {
protected:
    void SetUp() override;
    void tidy() override; // hooks end with the test's body

    kpn_to_fcid_t* add(wwn_t port, fcid_t address) { return add_mapping(priv, port, address); }
    kpn_to_fcid_t* add_peer() { return add(peer_port, peer_fcid); }

    net_device* dev = nullptr;
    kvsan_interface_priv_t* priv = nullptr;
};

// hash_lock, for a test's own changes.
class TableLock {
public:
    explicit TableLock(kvsan_interface_priv_t* owner) : priv(owner)
    {
        write_lock_bh(&priv->hash_lock);
    }
    ~TableLock() { write_unlock_bh(&priv->hash_lock); }
    TableLock(const TableLock&) = delete;

private:
    kvsan_interface_priv_t* priv;
};
