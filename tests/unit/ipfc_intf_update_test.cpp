// SPDX-License-Identifier: GPL-2.0-only
// Updates of VSAN interfaces: FCID set and removed, administrative state.
#include "support/control.h"

#include <algorithm>

namespace {

class InterfaceUpdateTest : public ControlTest {
protected:
    static twin::Bytes address_of(const net_device* dev)
    {
        return {dev->dev_addr, dev->dev_addr + 12};
    }
};

TEST_F(InterfaceUpdateTest, vsan_4096_and_minus_1_give_minus_22_with_the_message)
{
    const struct {
        vsan_id_t vsan;
        const char* event;
    } rows[] = {{4096, "101 Updating VSAN Interface 4096\n"},
                {-1, "101 Updating VSAN Interface -1\n"}};
    for (const auto& row : rows) {
        EXPECT_EQ(ipfc_update_vsan_interface(row.vsan, OWN_FCID, 1, IPFC_UPD_INTF_SET_FCID), -22);
        EXPECT_EQ(take_messages(), (Texts{row.event, "100 VSAN number not valid\n"}));
    }
}

TEST_F(InterfaceUpdateTest, an_absent_interface_gives_minus_22_whatever_the_action)
{
    for (std::uint32_t action = 0; action < 6; ++action) {
        EXPECT_EQ(ipfc_update_vsan_interface(4095, OWN_FCID, 1, static_cast<upd_action_t>(action)),
                  -22);
        EXPECT_EQ(happened(), (Texts{"101 Updating VSAN Interface 4095\n",
                                     "100 VSAN Interface 4095 not exists\n"}));
        twin::journal().clear();
    }
}

TEST_F(InterfaceUpdateTest, setting_an_fcid_has_its_effects_in_order)
{
    net_device* const dev = make_interface(10);
    EXPECT_EQ(ipfc_update_vsan_interface(10, OWN_FCID, 7, IPFC_UPD_INTF_SET_FCID), 0);
    EXPECT_EQ(happened(), (Texts{
                              "101 Updating VSAN Interface 10\n",
                              "101 ipfc_dev_update_mac vsan: 10, fcid: 0xc0b0a00, addr_fcid: "
                              "0xc0b0a00 \n",
                              "kfc2_setsockopt ADD_NPORT vsan 10 0a0b0c",
                          }));
    EXPECT_EQ(ipfc_priv(dev)->fcid.num, OWN_FCID.num);
    EXPECT_EQ(address_of(dev), (twin::Bytes{0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00,
                                            0x0A, 0x0B, 0x0C}));
}

TEST_F(InterfaceUpdateTest, the_fcid_and_the_address_are_set_when_the_n_port_is_added)
{
    net_device* const dev = make_interface(10);
    int calls = 0;
    platform().on_option = [&](const SocketOption&) {
        ++calls;
        EXPECT_EQ(ipfc_priv(dev)->fcid.num, OWN_FCID.num);
        EXPECT_EQ(address_of(dev)[11], 0x0C);
    };
    EXPECT_EQ(ipfc_update_vsan_interface(10, OWN_FCID, 7, IPFC_UPD_INTF_SET_FCID), 0);
    platform().on_option = {};
    EXPECT_EQ(calls, 1);
}

TEST_F(InterfaceUpdateTest, the_fcid_goes_behind_the_n_port_and_before_the_exchanges)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    Texts seen;
    platform().on_option = [&](const SocketOption&) {
        seen.push_back(ipfc_priv(dev)->fcid.num == OWN_FCID.num ? "N_Port, still set" : "N_Port");
    };
    platform().on_logo = [&](const SentLogo&) {
        seen.push_back(ipfc_priv(dev)->fcid.num == 0 ? "LOGO, gone" : "LOGO");
    };
    EXPECT_EQ(ipfc_update_vsan_interface(10, NO_FCID, 0, IPFC_UPD_INTF_REM_FCID), 0);
    platform().on_option = {};
    platform().on_logo = {};
    EXPECT_EQ(seen, (Texts{"N_Port, still set", "LOGO, gone"}));
}

TEST_F(InterfaceUpdateTest, the_n_port_is_added_by_the_record_byte_for_byte)
{
    make_interface(0x123);
    EXPECT_EQ(ipfc_update_vsan_interface(0x123, OWN_FCID, 0x11223344, IPFC_UPD_INTF_SET_FCID), 0);
    ASSERT_EQ(platform().options.size(), 1u);
    const SocketOption& option = platform().options[0];
    EXPECT_EQ(option.level, 267);
    EXPECT_EQ(option.option, 1);
    EXPECT_EQ(option.length, 136);
    const twin::Bytes head = {
        10,   0,    0x23, 0x01, // flags, VSAN
        0x00, 0x0A, 0x0B, 0x0C, // FCID
        0x00, 0xFF, 0xFF, 0xFF, // mask
        0x44, 0x33, 0x22, 0x11, // source interface
        0,    0,    0,    0,    // code
        0x20, 0x20,             // the stack's FC-PH version
        0,    0,                // credit
        0x00, 0x8A,             // the stack's common features, 0x8800, and 0x200
        0x40, 0x08,             // the stack's receive size, 2112
        0,    0,    0,    0,    0,    0,    0,    0,
        0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, // port name
        0x10, 0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x08, // node name
    };
    twin::Bytes expected = head;
    expected.resize(136);
    expected[16 + 68 + 1] = 0x80; // class 3: service options 0x8000
    expected[16 + 68 + 6] = 0x40; // and receive size 2112
    expected[16 + 68 + 7] = 0x08;
    EXPECT_EQ(bytes_of(option.value), expected);
}

TEST_F(InterfaceUpdateTest, a_refused_n_port_gives_the_stacks_result_and_the_fcid_stays_set)
{
    const struct {
        int refusal;
        const char* number;
    } rows[] = {{-98, "100 error number -98\n"}, {22, "100 error number 22\n"}};
    net_device* const dev = make_interface(10);
    for (const auto& row : rows) {
        platform().option_results = {row.refusal};
        EXPECT_EQ(ipfc_update_vsan_interface(10, OWN_FCID, 1, IPFC_UPD_INTF_SET_FCID), row.refusal);
        EXPECT_EQ(happened(),
                  (Texts{
                      "101 Updating VSAN Interface 10\n",
                      "101 ipfc_dev_update_mac vsan: 10, fcid: 0xc0b0a00, addr_fcid: 0xc0b0a00 \n",
                      "kfc2_setsockopt ADD_NPORT vsan 10 0a0b0c",
                      "100 Failed to register te N_port for VSAN 10\n",
                      row.number,
                  }));
        EXPECT_EQ(ipfc_priv(dev)->fcid.num, OWN_FCID.num);
        EXPECT_EQ(address_of(dev)[11], 0x0C);
        forget_so_far();
    }
}

TEST_F(InterfaceUpdateTest, setting_another_fcid_removes_no_n_port_and_keeps_the_table)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID);
    EXPECT_EQ(ipfc_update_vsan_interface(10, NEW_FCID, 1, IPFC_UPD_INTF_SET_FCID), 0);
    EXPECT_EQ(twin::journal().texts({twin::Source::platform}),
              Texts{"kfc2_setsockopt ADD_NPORT vsan 10 111213"});
    EXPECT_EQ(mapped_to(dev, PEER_NAME), PEER_FCID.num);
    EXPECT_EQ(address_of(dev)[9], 0x11);
}

TEST_F(InterfaceUpdateTest, updating_the_address_of_a_missing_device_is_an_error)
{
    ipfc_dev_update_mac(10, OWN_FCID);
    EXPECT_EQ(take_messages(), Texts{"100 ipfc_dev_update_mac No device found for vsan: 10 \n"});
}

TEST_F(InterfaceUpdateTest, removing_the_fcid_has_its_effects_in_order)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID, /*open=*/true);
    EXPECT_EQ(ipfc_update_vsan_interface(10, NEW_FCID, 7, IPFC_UPD_INTF_REM_FCID), 0);
    EXPECT_EQ(happened_with_locks(),
              (Texts{
                  "101 Updating VSAN Interface 10\n",
                  "kfc2_setsockopt RM_NPORT vsan 10 0a0b0c",
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
                  "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0xf0e0d00 \n",
                  "101 fc2 send logo for VSAN Interface 10 s_id 0xc0b0a00 d_id 0xf0e0d00 \n",
                  "kfc2_send_logo vsan 10 0a0b0c to 0d0e0f",
                  "write_lock_bh hash_lock",
                  "write_unlock_bh hash_lock",
              }));
    EXPECT_EQ(ipfc_priv(dev)->fcid.num, 0u);
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
    EXPECT_EQ(num_mapping_obj, 0);
    EXPECT_EQ(num_exch_obj, 0);
}

TEST_F(InterfaceUpdateTest, the_n_port_is_removed_by_a_record_with_three_fields)
{
    make_interface(0x123, OWN_FCID);
    EXPECT_EQ(ipfc_update_vsan_interface(0x123, NEW_FCID, 7, IPFC_UPD_INTF_REM_FCID), 0);
    ASSERT_EQ(platform().options.size(), 1u);
    EXPECT_EQ(platform().options[0].level, 267);
    EXPECT_EQ(platform().options[0].option, 2);
    EXPECT_EQ(platform().options[0].length, 136);
    twin::Bytes expected = {0,    0,    0x23, 0x01, 0x00, 0x0A,
                            0x0B, 0x0C, 0x00, 0xFF, 0xFF, 0xFF}; // then zero
    expected.resize(136);
    EXPECT_EQ(bytes_of(platform().options[0].value), expected);
}

TEST_F(InterfaceUpdateTest, the_n_port_is_removed_even_when_no_fcid_is_set)
{
    make_interface(10);
    EXPECT_EQ(ipfc_update_vsan_interface(10, NO_FCID, 0, IPFC_UPD_INTF_REM_FCID), 0);
    EXPECT_EQ(happened(), (Texts{"101 Updating VSAN Interface 10\n",
                                 "kfc2_setsockopt RM_NPORT vsan 10 000000"}));
}

TEST_F(InterfaceUpdateTest, a_refused_removal_is_reported_and_otherwise_ignored)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    put_mapping(dev, PEER_NAME, PEER_FCID);
    platform().option_results = {-98};
    EXPECT_EQ(ipfc_update_vsan_interface(10, NO_FCID, 0, IPFC_UPD_INTF_REM_FCID), 0);
    EXPECT_EQ(happened(), (Texts{
                              "101 Updating VSAN Interface 10\n",
                              "kfc2_setsockopt RM_NPORT vsan 10 0a0b0c",
                              "100 Remove fcid - Failed to Unregister the N_port for VSAN 10\n",
                              "101 clear fc2 exch-status for VSAN Intf 10 dst fcid 0xf0e0d00 \n",
                          }));
    EXPECT_EQ(ipfc_priv(dev)->fcid.num, 0u);
    EXPECT_EQ(mapped_to(dev, PEER_NAME), 0u);
}

TEST_F(InterfaceUpdateTest, after_the_removal_the_hardware_address_still_shows_the_old_fcid)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    EXPECT_EQ(ipfc_update_vsan_interface(10, NO_FCID, 0, IPFC_UPD_INTF_REM_FCID), 0);
    EXPECT_EQ(address_of(dev), (twin::Bytes{0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00,
                                            0x0A, 0x0B, 0x0C}));
    EXPECT_EQ(ipfc_update_vsan_interface(10, NEW_FCID, 1, IPFC_UPD_INTF_SET_FCID), 0);
    EXPECT_EQ(address_of(dev), (twin::Bytes{0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00,
                                            0x11, 0x12, 0x13}));
}

TEST_F(InterfaceUpdateTest, the_administrative_state_is_set_up_and_down_and_nothing_else_changes)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    EXPECT_EQ(ipfc_priv(dev)->intf_adm_status, IPFC_INTF_ADMIN_DOWN);
    const twin::Bytes before = bytes_of(*ipfc_priv(dev));
    const struct {
        upd_action_t action;
        std::uint32_t state;
    } rows[] = {{IPFC_UPD_INTF_SET_ADM_UP, 1},
                {IPFC_UPD_INTF_SET_ADM_UP, 1},
                {IPFC_UPD_INTF_SET_ADM_DOWN, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(ipfc_update_vsan_interface(10, NEW_FCID, 7, row.action), 0);
        EXPECT_EQ(ipfc_priv(dev)->intf_adm_status, row.state);
        EXPECT_EQ(happened(), Texts{"101 Updating VSAN Interface 10\n"});
        twin::journal().clear();
    }
    EXPECT_EQ(bytes_of(*ipfc_priv(dev)), before);
}

TEST_F(InterfaceUpdateTest, any_other_action_returns_0_and_changes_nothing)
{
    net_device* const dev = make_interface(10, OWN_FCID);
    const twin::Bytes before = bytes_of(*ipfc_priv(dev));
    for (const std::uint32_t action : {4u, 100u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ipfc_update_vsan_interface(10, NEW_FCID, 7, static_cast<upd_action_t>(action)),
                  0);
        EXPECT_EQ(happened(), Texts{"101 Updating VSAN Interface 10\n"});
        twin::journal().clear();
    }
    EXPECT_EQ(bytes_of(*ipfc_priv(dev)), before);
}

} // namespace
