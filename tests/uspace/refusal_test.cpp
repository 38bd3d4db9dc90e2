// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/refusal.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

struct Row {
    uint32_t command;
    int number;
    std::string reason;
};

void PrintTo(const Row& row, std::ostream* stream)
{
    *stream << std::hex << row.command << ", errno " << std::dec << row.number;
}

struct Refusal : testing::TestWithParam<Row> {};

TEST_P(Refusal, IsExplainedInWordsThatFitTheCommand)
{
    EXPECT_EQ(ipfc::reason_of_refusal(GetParam().command, GetParam().number), GetParam().reason);
}

constexpr uint32_t kCreate = 0x4034500E;
constexpr uint32_t kDelete = 0x4034500F;
constexpr uint32_t kUpdate = 0x40345010;

INSTANTIATE_TEST_SUITE_P(
    Commands, Refusal,
    testing::Values(
        Row{kCreate, 22, "VSAN number above 4095"},
        Row{kCreate, 12, "no memory for a new interface"},
        Row{kDelete, 22, "VSAN number above 4095"},
        Row{kUpdate, 22, "VSAN does not exist or number above 4095"},
        Row{kUpdate, 98, "the FC-2 stack refused the N_Port: Address already in use"},
        Row{0x40105003, 1, "mapping stored, but no packet waits for it"},
        Row{0x40105003, 12, "no memory for a new mapping"},
        Row{0x40105003, 22, "VSAN number above 4095"}, Row{0x40105004, 6, "VSAN does not exist"},
        Row{0x40105004, 22, "VSAN number above 4095"}, Row{0x40105005, 6, "VSAN does not exist"},
        Row{0x40105005, 22, "VSAN number above 4095"},
        Row{0x40105006, 1, "no packet waits for this port name"},
        Row{0x40105006, 22, "VSAN number above 4095"}, Row{0xC0345007, 6, "VSAN does not exist"},
        Row{0xC0345007, 22, "VSAN number above 4095"}, Row{0xC0AC5008, 6, "VSAN does not exist"},
        Row{0xC0AC5008, 22, "VSAN number above 4095"}, Row{0x4034500A, 6, "VSAN does not exist"},
        Row{0x4034500A, 22, "VSAN number above 4095"}, Row{0x40145011, 6, "VSAN does not exist"},
        Row{0x40145011, 22, "VSAN number above 4095"},
        Row{0x4014500C, 12, "no memory for a new inter-VSAN host"},
        Row{kCreate, 14, "the driver could not reach the command's record"},
        Row{0x40045012, 25, "the device does not know this command"},
        Row{kDelete, 5, "Input/output error"}));

TEST(DeviceError, SaysTheReasonTheNumberAndItsName)
{
    const ipfc::DeviceError error("VSAN does not exist", 6);
    EXPECT_STREQ(error.what(), "VSAN does not exist (errno 6, ENXIO)");
    EXPECT_EQ(error.number(), 6);
    EXPECT_EQ(error.reason(), "VSAN does not exist");
}

TEST(DeviceError, ShowsANumberThatHasNoName)
{
    EXPECT_STREQ(ipfc::DeviceError("odd", 4000).what(), "odd (errno 4000, error 4000)");
}

} // namespace
