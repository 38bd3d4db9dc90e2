// SPDX-License-Identifier: GPL-2.0-only
// What each call hands to the driver, byte for byte, and what it makes of the driver's answers.
#include "libipfc/control_device.h"
#include "libipfc/refusal.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

/// Bytes the driver copies for each command that the library may send.
const std::map<unsigned long, size_t> kRecordSizes{
    {0x40105003, 16},  {0x40105004, 16}, {0x40105005, 16}, {0x40105006, 16}, {0xC0345007, 52},
    {0xC0AC5008, 172}, {0x00005009, 0},  {0x4034500A, 52}, {0x4014500C, 20}, {0x4014500D, 20},
    {0x4034500E, 52},  {0x4034500F, 52}, {0x40345010, 52}, {0x40145011, 52}, {0x40045012, 4}};

/// A driver that keeps the one command it gets, and answers as it is told.
struct FakeDriver {
    int calls = 0;
    unsigned long command = 0;
    Bytes record;
    int error = 0;           ///< positive: the call fails with it
    int positive_result = 0; ///< of a call that does not fail
    Bytes stored;            ///< goes into the caller's record
    std::function<ssize_t(void*, size_t)> reader;

    ipfc::DeviceCalls calls_of_driver()
    {
        return {[this](int, unsigned long code, void* data) { return ioctl(code, data); },
                [this](int, void* buffer, size_t count) { return reader(buffer, count); }};
    }

private:
    int ioctl(unsigned long code, void* data)
    {
        ++calls;
        command = code;
        const size_t size = kRecordSizes.at(code);
        const auto* bytes = static_cast<const uint8_t*>(data);
        record.assign(bytes, bytes + size);
        if (error != 0) {
            errno = error;
            return -1;
        }
        if (!stored.empty()) {
            EXPECT_EQ(stored.size(), size);
            std::memcpy(data, stored.data(), stored.size());
        }
        return positive_result;
    }
};

struct ControlDevice : testing::Test {
    void expect_sent(unsigned long command, const Bytes& record) const
    {
        EXPECT_EQ(driver.calls, 1);
        EXPECT_EQ(driver.command, command);
        EXPECT_EQ(driver.record, record);
    }

    /// Every byte of the stack is set first, so that a byte left unset shows.
    __attribute__((noinline)) static void dirty_stack()
    {
        volatile uint8_t junk[4096];
        for (volatile uint8_t& byte : junk) {
            byte = 0xA5;
        }
    }

    void SetUp() override { dirty_stack(); }

    static ipfc::DeviceError refusal(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const ipfc::DeviceError& error) {
            return error;
        }
        ADD_FAILURE() << "the call was not refused";
        return {"", 0};
    }

    FakeDriver driver;
    ipfc::ControlDevice device{ipfc::FileDescriptor(), driver.calls_of_driver()};
};

constexpr wwn_t kPort{{0x10, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
constexpr wwn_t kNode{{0x20, 0x01, 0x00, 0x66, 0x77, 0x88, 0x99, 0xAA}};
constexpr fcid_t kFcid{{0x00, 0x0A, 0x0B, 0x0C}};

/// 52 bytes of an interface record without names and address.
Bytes interface_record(const Bytes& vsan_and_fcid, const Bytes& ifindex_and_action)
{
    Bytes record(52, 0);
    std::copy(vsan_and_fcid.begin(), vsan_and_fcid.end(), record.begin());
    std::copy(ifindex_and_action.begin(), ifindex_and_action.end(), record.begin() + 24);
    return record;
}

TEST_F(ControlDevice, CreateSendsVsanAndBothNames)
{
    device.create_vsan(4095, kPort, kNode);
    expect_sent(0x4034500E, {0xFF, 0x0F, 0x00, 0x00,                         // VSAN
                             0x00, 0x00, 0x00, 0x00,                         // FCID
                             0x10, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, // port name
                             0x20, 0x01, 0x00, 0x66, 0x77, 0x88, 0x99, 0xAA, // node name
                             0x00, 0x00, 0x00, 0x00,                         // interface index
                             0x00, 0x00, 0x00, 0x00,                         // action
                             0x00, 0x00, 0x00, 0x00,                         // address: type
                             0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                             0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
}

TEST_F(ControlDevice, DeleteSendsTheVsan)
{
    device.delete_vsan(10);
    expect_sent(0x4034500F, interface_record({10, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ControlDevice, SetFcidSendsFcidIndexAndActionOne)
{
    device.set_fcid(10, kFcid, 0x01020304);
    expect_sent(0x40345010, interface_record({10, 0, 0, 0, 0x00, 0x0A, 0x0B, 0x0C},
                                             {0x04, 0x03, 0x02, 0x01, 1, 0, 0, 0}));
}

TEST_F(ControlDevice, RemoveFcidSendsActionZero)
{
    device.remove_fcid(10);
    expect_sent(0x40345010, interface_record({10, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ControlDevice, SetUpSendsActionTwo)
{
    device.set_up(10);
    expect_sent(0x40345010, interface_record({10, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 2, 0, 0, 0}));
}

TEST_F(ControlDevice, SetDownSendsActionThree)
{
    device.set_down(10);
    expect_sent(0x40345010, interface_record({10, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 3, 0, 0, 0}));
}

TEST_F(ControlDevice, SetIpSendsTheWholeInterfaceRecord)
{
    inet_addr_t address;
    std::memset(&address, 0, sizeof(address));
    address.addr_type = INET_ADDR_TYPE_IPV4;
    const uint8_t bytes[4] = {10, 1, 2, 3};
    std::memcpy(&address.a.ipv4_addr, bytes, sizeof(bytes));
    device.set_ip(7, address);
    Bytes expected(52, 0);
    expected[0] = 7;
    expected[32] = 1;
    expected[36] = 10;
    expected[37] = 1;
    expected[38] = 2;
    expected[39] = 3;
    expect_sent(0x40145011, expected);
}

TEST_F(ControlDevice, CleanUpSendsNoRecord)
{
    device.clean_up();
    expect_sent(0x00005009, {});
}

TEST_F(ControlDevice, HeaderRoomIsWhatTheDriverStores)
{
    driver.stored = {0x5C, 0x00, 0x00, 0x00};
    EXPECT_EQ(device.header_room(), 92);
    expect_sent(0x40045012, {0, 0, 0, 0});
}

TEST_F(ControlDevice, ClearStatsSendsTheVsan)
{
    device.clear_stats(3);
    expect_sent(0x4034500A, interface_record({3, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ControlDevice, InfoIsReadFromItsPlaces)
{
    driver.stored = {10,   0,    0,    0,                            // VSAN
                     1,    0,    0,    0,                            // administratively up
                     0x10, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, // port name
                     0x20, 0x01, 0x00, 0x66, 0x77, 0x88, 0x99, 0xAA, // node name
                     0x00, 0x0A, 0x0B, 0x0C,                         // FCID
                     2,    0,    0,    0,                            // secondary addresses
                     1,    0,    0,    0,    10,   1,    2,    3,    0, 0,
                     0,    0,    0,    0,    0,    0,    0,    0,    0, 0};
    const ipfc_get_intf_ioctl_t info = device.get_info(10);
    Bytes sent(52, 0);
    sent[0] = 10;
    expect_sent(0xC0345007, sent);
    EXPECT_EQ(info.intf_adm_status, 1u);
    EXPECT_EQ(std::memcmp(info.ww_portname.str, kPort.str, 8), 0);
    EXPECT_EQ(std::memcmp(info.ww_nodename.str, kNode.str, 8), 0);
    EXPECT_EQ(std::memcmp(info.fcid.str, kFcid.str, 4), 0);
    EXPECT_EQ(info.num_sec_ip_addr, 2);
    EXPECT_EQ(info.ip_addr.addr_type, 1u);
    EXPECT_EQ(info.ip_addr.a.ipv4_addr.s_addr, 0x0302010Au);
}

TEST_F(ControlDevice, StatisticsAreAskedWithoutOrWithTheSnapshot)
{
    Bytes sent(172, 0);
    sent[0] = 5;
    (void)device.get_stats(5, ipfc::Counters::since_clear);
    expect_sent(0xC0AC5008, sent);
    driver.calls = 0;
    sent[4] = 1;
    (void)device.get_stats(5, ipfc::Counters::snmp);
    expect_sent(0xC0AC5008, sent);
}

TEST_F(ControlDevice, StatisticsAreReadFromTheirPlaces)
{
    // Each counter holds the offset of its first byte.
    driver.stored.assign(172, 0);
    for (const uint8_t offset : {8,  16,  24,  32,  40,  48,  56,  64,  72,  80,  88, 92,
                                 96, 100, 104, 112, 120, 128, 136, 144, 152, 160, 168}) {
        driver.stored[offset] = offset;
    }
    const ipfc_intf_stats_ioctl_t stats = device.get_stats(5, ipfc::Counters::since_clear);
    EXPECT_EQ(stats.rx_packets, 8u);
    EXPECT_EQ(stats.tx_packets, 16u);
    EXPECT_EQ(stats.rx_bytes, 24u);
    EXPECT_EQ(stats.tx_bytes, 32u);
    EXPECT_EQ(stats.rx_errors, 40u);
    EXPECT_EQ(stats.tx_errors, 48u);
    EXPECT_EQ(stats.rx_dropped, 56u);
    EXPECT_EQ(stats.tx_dropped, 64u);
    EXPECT_EQ(stats.multicast, 72u);
    EXPECT_EQ(stats.collisions, 80u);
    EXPECT_EQ(stats.ifInMulticastPkts, 88u);
    EXPECT_EQ(stats.ifInBroadcastPkts, 92u);
    EXPECT_EQ(stats.ifOutMulticastPkts, 96u);
    EXPECT_EQ(stats.ifOutBroadcastPkts, 100u);
    EXPECT_EQ(stats.ifHCInOctets, 104u);
    EXPECT_EQ(stats.ifHCInUcastPkts, 112u);
    EXPECT_EQ(stats.ifHCInMulticastPkts, 120u);
    EXPECT_EQ(stats.ifHCInBroadcastPkts, 128u);
    EXPECT_EQ(stats.ifHCOutOctets, 136u);
    EXPECT_EQ(stats.ifHCOutUcastPkts, 144u);
    EXPECT_EQ(stats.ifHCOutMulticastPkts, 152u);
    EXPECT_EQ(stats.ifHCOutBroadcastPkts, 160u);
    EXPECT_EQ(stats.ifInUnknownProtos, 168u);
}

const Bytes kMappingRecord{10,   0,    0,    0,    0x10, 0x00, 0x00, 0x11,
                           0x22, 0x33, 0x44, 0x55, 0x00, 0x0A, 0x0B, 0x0C};
const Bytes kMappingRecordWithoutFcid{10,   0,    0,    0,    0x10, 0x00, 0x00, 0x11,
                                      0x22, 0x33, 0x44, 0x55, 0x00, 0x00, 0x00, 0x00};

TEST_F(ControlDevice, AddMappingSendsNameAndFcid)
{
    EXPECT_EQ(device.add_mapping(10, kPort, kFcid), ipfc::Parked::handled);
    expect_sent(0x40105003, kMappingRecord);
}

TEST_F(ControlDevice, DeleteMappingSendsTheName)
{
    device.delete_mapping(10, kPort);
    expect_sent(0x40105004, kMappingRecordWithoutFcid);
}

TEST_F(ControlDevice, UpdateMappingSendsNameAndFcid)
{
    device.update_mapping(10, kPort, kFcid);
    expect_sent(0x40105005, kMappingRecord);
}

TEST_F(ControlDevice, NotFoundSendsTheName)
{
    EXPECT_EQ(device.mapping_not_found(10, kPort), ipfc::Parked::handled);
    expect_sent(0x40105006, kMappingRecordWithoutFcid);
}

TEST_F(ControlDevice, AnswerWithoutAWaitingPacketIsNoError)
{
    driver.error = 1;
    EXPECT_EQ(device.add_mapping(10, kPort, kFcid), ipfc::Parked::none);
    EXPECT_EQ(device.mapping_not_found(10, kPort), ipfc::Parked::none);
}

TEST_F(ControlDevice, AnswerThatTheDriverRefusesIsAnError)
{
    driver.error = 22;
    EXPECT_EQ(refusal([&] { device.add_mapping(10, kPort, kFcid); }).number(), 22);
    EXPECT_EQ(refusal([&] { device.mapping_not_found(10, kPort); }).number(), 22);
}

TEST_F(ControlDevice, InterVsanHostIsSentWithItsVsanInNetworkOrder)
{
    const uint8_t address[4] = {10, 1, 2, 3};
    ipfc::InterVsanHost host{};
    std::memcpy(&host.ip_addr, address, sizeof(address));
    host.pwwn = kPort;
    host.fcid = kFcid;
    host.vsan = 0x0102;
    device.add_inter_vsan_host(host);
    expect_sent(0x4014500C, {10,   1,    2,    3,    0x10, 0x00, 0x00, 0x11, 0x22, 0x33,
                             0x44, 0x55, 0x00, 0x0A, 0x0B, 0x0C, 0x00, 0x00, 0x01, 0x02});
}

TEST_F(ControlDevice, InterVsanHostIsDeletedByFcidAndVsan)
{
    device.delete_inter_vsan_host(kFcid, 5);
    expect_sent(0x4014500D,
                {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0A, 0x0B, 0x0C, 0x00, 0, 0, 5});
}

TEST_F(ControlDevice, RefusalCarriesTheReasonOfItsCommand)
{
    driver.error = 22;
    EXPECT_EQ(refusal([&] { device.create_vsan(10, kPort, kNode); }).reason(),
              "VSAN number above 4095");
    EXPECT_EQ(refusal([&] { device.set_up(10); }).reason(),
              "VSAN does not exist or number above 4095");
    driver.error = 6;
    EXPECT_EQ(refusal([&] { device.delete_mapping(10, kPort); }).reason(), "VSAN does not exist");
    EXPECT_EQ(refusal([&] { (void)device.get_info(10); }).reason(), "VSAN does not exist");
}

TEST_F(ControlDevice, PositiveResultOfTheFc2StackIsARefusal)
{
    driver.positive_result = 98;
    const ipfc::DeviceError error = refusal([&] { device.set_fcid(10, kFcid, 0); });
    EXPECT_EQ(error.number(), 98);
    EXPECT_EQ(error.reason(), "the FC-2 stack refused the N_Port: Address already in use");
}

TEST_F(ControlDevice, RequestIsReadWhenNothingWasLeftUncopied)
{
    driver.reader = [](void* buffer, size_t count) -> ssize_t {
        EXPECT_EQ(count, 12u);
        const Bytes bytes{10, 0, 0, 0, 0x10, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
        std::memcpy(buffer, bytes.data(), bytes.size());
        return 0;
    };
    const auto request = device.read_request();
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->vsan_id, 10);
    EXPECT_EQ(std::memcmp(request->ww_portname.str, kPort.str, 8), 0);
}

TEST_F(ControlDevice, EmptyQueueGivesNoRequest)
{
    driver.reader = [](void*, size_t) -> ssize_t {
        errno = EAGAIN;
        return -1;
    };
    EXPECT_FALSE(device.read_request().has_value());
}

TEST_F(ControlDevice, RequestThatWasNotCopiedWholeIsAnError)
{
    driver.reader = [](void*, size_t) -> ssize_t { return 12; };
    EXPECT_EQ(refusal([&] { (void)device.read_request(); }).number(), EFAULT);
}

TEST_F(ControlDevice, FailedReadIsAnErrorWithItsNumber)
{
    driver.reader = [](void*, size_t) -> ssize_t {
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(refusal([&] { (void)device.read_request(); }).number(), EINTR);
}

TEST(ControlDeviceOpen, TakesTheExplicitPath)
{
    ipfc::ControlDevice device = ipfc::ControlDevice::open("/dev/null");
    EXPECT_GE(device.fd(), 0);
    // A device of another driver knows none of the commands, and the real call says so.
    try {
        (void)device.header_room();
        ADD_FAILURE() << "/dev/null answered";
    } catch (const ipfc::DeviceError& error) {
        EXPECT_EQ(error.number(), ENOTTY);
    }
}

} // namespace
