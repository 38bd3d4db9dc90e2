// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/names.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

template <typename T>
Bytes bytes_of(const T& value)
{
    Bytes bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

/// The complaint of a parser, or "accepted".
std::string complaint(const std::function<void()>& parse)
{
    try {
        parse();
    } catch (const ipfc::BadArgument& error) {
        return error.what();
    }
    return "accepted";
}

template <typename Row>
struct ParserTable : testing::TestWithParam<Row> {
};

struct Accepted {
    std::string text;
    Bytes bytes;
};

struct Refused {
    std::string text;
    std::string complaint;
};

void PrintTo(const Accepted& row, std::ostream* stream)
{
    *stream << '"' << row.text << '"';
}

void PrintTo(const Refused& row, std::ostream* stream)
{
    *stream << '"' << row.text << '"';
}

struct AcceptedWwn : ParserTable<Accepted> {};
TEST_P(AcceptedWwn, KeepsItsBytesInTheOrderWritten)
{
    EXPECT_EQ(bytes_of(ipfc::parse_wwn("WWN", GetParam().text)), GetParam().bytes);
}
INSTANTIATE_TEST_SUITE_P(
    Names, AcceptedWwn,
    testing::Values(Accepted{"10:00:00:11:22:33:44:55", {0x10, 0, 0, 0x11, 0x22, 0x33, 0x44, 0x55}},
                    Accepted{"2100e08B01020Aff", {0x21, 0, 0xE0, 0x8B, 1, 2, 0x0A, 0xFF}},
                    Accepted{"FF:ff:FF:ff:FF:ff:FF:ff", Bytes(8, 0xFF)},
                    Accepted{"00:00:00:00:00:00:00:01", {0, 0, 0, 0, 0, 0, 0, 1}},
                    Accepted{"0000000000000001", {0, 0, 0, 0, 0, 0, 0, 1}}));

struct RefusedWwn : ParserTable<Refused> {};
TEST_P(RefusedWwn, IsRefusedWithWhatIsWrong)
{
    EXPECT_EQ(complaint([] { ipfc::parse_wwn("--wwpn", GetParam().text); }), GetParam().complaint);
}
INSTANTIATE_TEST_SUITE_P(
    Names, RefusedWwn,
    testing::Values(
        Refused{"10:00:00:11:22:33:44",
                "--wwpn \"10:00:00:11:22:33:44\": 7 bytes where there must be 8"},
        Refused{"10:00:00:11:22:33:44:55:66",
                "--wwpn \"10:00:00:11:22:33:44:55:66\": 9 bytes where there must be 8"},
        Refused{"10:00:00:11:22:33:44:5",
                "--wwpn \"10:00:00:11:22:33:44:5\": \"5\" is not a byte of two hexadecimal digits"},
        Refused{"10:00:00:11:22:33:44:055", "--wwpn \"10:00:00:11:22:33:44:055\": \"055\" is not a "
                                            "byte of two hexadecimal digits"},
        Refused{"10:00:00:11:22:33:44:5g", "--wwpn \"10:00:00:11:22:33:44:5g\": \"5g\" is not a "
                                           "byte of two hexadecimal digits"},
        Refused{"10:00:00:11:22:33:44:+5", "--wwpn \"10:00:00:11:22:33:44:+5\": \"+5\" is not a "
                                           "byte of two hexadecimal digits"},
        Refused{":00:00:11:22:33:44:55",
                "--wwpn \":00:00:11:22:33:44:55\": \"\" is not a byte of two hexadecimal digits"},
        Refused{"100000112233445",
                "--wwpn \"100000112233445\": 15 hexadecimal digits where there must be 16"},
        Refused{"10000011223344556",
                "--wwpn \"10000011223344556\": 17 hexadecimal digits where there must be 16"},
        Refused{"", "--wwpn \"\": a world-wide name is written 10:00:00:11:22:33:44:55 or as 16 "
                    "hexadecimal digits"},
        Refused{"0x1000001122334455", "--wwpn \"0x1000001122334455\": a world-wide name is written "
                                      "10:00:00:11:22:33:44:55 or as 16 hexadecimal digits"},
        Refused{"10-00-00-11-22-33-44-55",
                "--wwpn \"10-00-00-11-22-33-44-55\": a world-wide name is written "
                "10:00:00:11:22:33:44:55 or as 16 hexadecimal digits"},
        Refused{" 1000001122334455", "--wwpn \" 1000001122334455\": a world-wide name is written "
                                     "10:00:00:11:22:33:44:55 or as 16 hexadecimal digits"},
        Refused{"00:00:00:00:00:00:00:00", "--wwpn \"00:00:00:00:00:00:00:00\": a world-wide name "
                                           "of all zeros names no port"}));

struct AcceptedFcid : ParserTable<Accepted> {};
TEST_P(AcceptedFcid, IsAZeroByteThenDomainAreaAndPort)
{
    EXPECT_EQ(bytes_of(ipfc::parse_fcid("FCID", GetParam().text)), GetParam().bytes);
}
INSTANTIATE_TEST_SUITE_P(Names, AcceptedFcid,
                         testing::Values(Accepted{"0x0a0b0c", {0, 0x0A, 0x0B, 0x0C}},
                                         Accepted{"0x0A0B0C", {0, 0x0A, 0x0B, 0x0C}},
                                         Accepted{"0a.0b.0c", {0, 0x0A, 0x0B, 0x0C}},
                                         Accepted{"0a:0b:0c", {0, 0x0A, 0x0B, 0x0C}},
                                         Accepted{"FF.FF.FF", {0, 0xFF, 0xFF, 0xFF}},
                                         Accepted{"0x000001", {0, 0, 0, 1}}));

struct RefusedFcid : ParserTable<Refused> {};
TEST_P(RefusedFcid, IsRefusedWithWhatIsWrong)
{
    EXPECT_EQ(complaint([] { ipfc::parse_nport_fcid("FCID", GetParam().text); }),
              GetParam().complaint);
}
INSTANTIATE_TEST_SUITE_P(
    Names, RefusedFcid,
    testing::Values(
        Refused{"", "FCID \"\": an FCID is written 0x0a0b0c or 0a.0b.0c"},
        Refused{"657931", "FCID \"657931\": an FCID is written 0x0a0b0c or 0a.0b.0c"},
        Refused{"0X0a0b0c", "FCID \"0X0a0b0c\": an FCID is written 0x0a0b0c or 0a.0b.0c"},
        Refused{"0xa0b0c", "FCID \"0xa0b0c\": 0x must be followed by six hexadecimal digits"},
        Refused{"0x000a0b0c", "FCID \"0x000a0b0c\": 0x must be followed by six hexadecimal digits"},
        Refused{"0x0a.0b.0c", "FCID \"0x0a.0b.0c\": 0x must be followed by six hexadecimal digits"},
        Refused{"0x", "FCID \"0x\": 0x must be followed by six hexadecimal digits"},
        Refused{"0a.0b", "FCID \"0a.0b\": 2 bytes where there must be 3"},
        Refused{"0a.0b.0c.0d", "FCID \"0a.0b.0c.0d\": 4 bytes where there must be 3"},
        Refused{"a.b.c", "FCID \"a.b.c\": \"a\" is not a byte of two hexadecimal digits"},
        Refused{"0a.0b:0c", "FCID \"0a.0b:0c\": 2 bytes where there must be 3"},
        Refused{"0a.0b.", "FCID \"0a.0b.\": \"\" is not a byte of two hexadecimal digits"},
        Refused{"0x000000", "FCID \"0x000000\": zero stands for no FCID at all"},
        Refused{"0xffffff", "FCID \"0xffffff\": the broadcast address belongs to no port"}));

TEST(Vsan, IsAcceptedFromTheLowestToTheHighest)
{
    EXPECT_EQ(ipfc::parse_vsan("VSAN", "0"), 0);
    EXPECT_EQ(ipfc::parse_vsan("VSAN", "10"), 10);
    EXPECT_EQ(ipfc::parse_vsan("VSAN", "4095"), 4095);
}

struct RefusedVsan : ParserTable<Refused> {};
TEST_P(RefusedVsan, IsRefusedWithWhatIsWrong)
{
    EXPECT_EQ(complaint([] { ipfc::parse_vsan("VSAN", GetParam().text); }), GetParam().complaint);
}
INSTANTIATE_TEST_SUITE_P(
    Names, RefusedVsan,
    testing::Values(Refused{"4096", "VSAN \"4096\": the highest VSAN is 4095"},
                    Refused{"4294967296", "VSAN \"4294967296\": the highest VSAN is 4095"},
                    Refused{"18446744073709551626",
                            "VSAN \"18446744073709551626\": the highest VSAN is 4095"},
                    Refused{"-1", "VSAN \"-1\": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"+1", "VSAN \"+1\": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"0x10", "VSAN \"0x10\": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"1 ", "VSAN \"1 \": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"", "VSAN \"\": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"vsan10", "VSAN \"vsan10\": a VSAN is a decimal number from 0 to 4095"},
                    Refused{"010", "VSAN \"010\": a VSAN is written without leading zeros"}));

TEST(InterfaceIndex, IsDecimalOrHexadecimalWithin32Bits)
{
    EXPECT_EQ(ipfc::parse_ifindex("--ifindex", "0"), 0u);
    EXPECT_EQ(ipfc::parse_ifindex("--ifindex", "4294967295"), 4294967295u);
    EXPECT_EQ(ipfc::parse_ifindex("--ifindex", "0xFFFFffff"), 4294967295u);
    EXPECT_EQ(ipfc::parse_ifindex("--ifindex", "0x8000a"), 0x8000Au);
}

struct RefusedIndex : ParserTable<Refused> {};
TEST_P(RefusedIndex, IsRefusedWithWhatIsWrong)
{
    EXPECT_EQ(complaint([] { ipfc::parse_ifindex("--ifindex", GetParam().text); }),
              GetParam().complaint);
}
INSTANTIATE_TEST_SUITE_P(
    Names, RefusedIndex,
    testing::Values(
        Refused{"4294967296",
                "--ifindex \"4294967296\": the highest interface index is 4294967295"},
        Refused{"0x100000000",
                "--ifindex \"0x100000000\": the highest interface index is 4294967295"},
        Refused{"-1", "--ifindex \"-1\": an interface index is a decimal number, or 0x and "
                      "hexadecimal digits"},
        Refused{"eth0", "--ifindex \"eth0\": an interface index is a decimal number, or 0x and "
                        "hexadecimal digits"},
        Refused{"0x", "--ifindex \"0x\": an interface index is a decimal number, or 0x and "
                      "hexadecimal digits"},
        Refused{"", "--ifindex \"\": an interface index is a decimal number, or 0x and "
                    "hexadecimal digits"}));

struct AcceptedAddress : ParserTable<Accepted> {};
TEST_P(AcceptedAddress, IsItsTypeThenItsBytesThenZeros)
{
    EXPECT_EQ(bytes_of(ipfc::parse_inet_addr("ADDRESS", GetParam().text)), GetParam().bytes);
}
INSTANTIATE_TEST_SUITE_P(
    Names, AcceptedAddress,
    testing::Values(
        Accepted{"10.1.2.3", {1, 0, 0, 0, 10, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        Accepted{"0.0.0.0", {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        Accepted{"2001:db8::ff",
                 {2, 0, 0, 0, 0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF}}));

TEST(Address, IsRefusedWhenItIsOfNeitherVersion)
{
    const std::array<std::string, 6> texts{"",     "10.1.2",      "10.1.2.256",
                                           "host", "10.1.2.3/24", ":::"};
    for (const std::string& text : texts) {
        EXPECT_EQ(complaint([&] { ipfc::parse_inet_addr("ADDRESS", text); }),
                  "ADDRESS \"" + text + "\": neither an IPv4 nor an IPv6 address");
    }
}

TEST(Address, WithAnEmbeddedZeroByteIsNotTakenForWhatStandsBeforeIt)
{
    const std::string text("10.1.2.3\0x", 10);
    EXPECT_THROW(ipfc::parse_inet_addr("ADDRESS", text), ipfc::BadArgument);
    EXPECT_THROW(ipfc::parse_ipv4("ADDRESS", text), ipfc::BadArgument);
}

TEST(Address, OfVersionFourAloneIsInNetworkOrder)
{
    EXPECT_EQ(bytes_of(ipfc::parse_ipv4("HOST", "10.1.2.3")), (Bytes{10, 1, 2, 3}));
    EXPECT_EQ(complaint([] { ipfc::parse_ipv4("HOST", "2001:db8::1"); }),
              "HOST \"2001:db8::1\": not an IPv4 address");
}

TEST(Text, OfAWorldWideNameIsItsBytesWithColons)
{
    EXPECT_EQ(ipfc::to_text(wwn_t{{0x10, 0x00, 0x00, 0x11, 0xAA, 0xBB, 0xCC, 0x05}}),
              "10:00:00:11:aa:bb:cc:05");
}

TEST(Text, OfAnFcidIsSixDigits)
{
    EXPECT_EQ(ipfc::to_text(fcid_t{{0, 0x0A, 0x0B, 0x0C}}), "0x0a0b0c");
    EXPECT_EQ(ipfc::to_text(fcid_t{{0, 0, 0, 0}}), "0x000000");
}

TEST(Text, OfAnAddressFollowsItsType)
{
    EXPECT_EQ(ipfc::to_text(ipfc::parse_inet_addr("A", "192.0.2.1")), "192.0.2.1");
    EXPECT_EQ(ipfc::to_text(ipfc::parse_inet_addr("A", "2001:DB8:0::1")), "2001:db8::1");
    inet_addr_t unset;
    std::memset(&unset, 0, sizeof(unset));
    EXPECT_EQ(ipfc::to_text(unset), "-");
    unset.addr_type = static_cast<inet_addr_type_t>(3);
    EXPECT_EQ(ipfc::to_text(unset), "-");
}

} // namespace
