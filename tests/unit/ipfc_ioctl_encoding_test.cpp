// SPDX-License-Identifier: GPL-2.0-only
// The checks of a command's code and address, in their order, before any record is touched.
#include "support/control.h"

namespace {

// Where user space ends on x86-64: one page below the hole.
constexpr unsigned long USER_END = 0x00007ffffffff000;

const char MAGIC[] = "100 ipfc_chr_ioctl: Invalid Ioctl magic\n";
const char NUMBER[] = "100 ipfc_chr_ioctl: Invalid Ioctl cmd\n";
const char DIRECTION[] = "100 ipfc_chr_ioctl: Invalid Ioctl direction\n";

// Every command of the device by its number.
constexpr unsigned all_codes[] = {
    0x40245000, 0x40245001, 0x40245002, 0x40105003, 0x40105004, 0x40105005, 0x40105006,
    0xC0345007, 0xC0AC5008, 0x00005009, 0x4034500A, 0x4004500B, 0x4014500C, 0x4014500D,
    0x4034500E, 0x4034500F, 0x40345010, 0x40145011, 0x40045012,
};

std::string received(unsigned number)
{
    return "101 ipfc_chr_ioctl: Ioctl received - cmd: " + std::to_string(number) + "\n";
}

class CommandEncodingTest : public OpenDeviceTest {
protected:
    // The result; nothing may have been copied, or tried to be, by then.
    long without_a_copy(unsigned code, unsigned long argument)
    {
        const twin::UserCopies before = twin::user_copies();
        const long result = opened->ioctl(code, argument);
        const twin::UserCopies after = twin::user_copies();
        EXPECT_EQ(before.from_user, after.from_user);
        EXPECT_EQ(before.to_user, after.to_user);
        EXPECT_EQ(before.faults, after.faults);
        return result;
    }
};

TEST_F(CommandEncodingTest, a_code_of_type_0x51_gives_minus_25_with_the_magic_message)
{
    EXPECT_EQ(without_a_copy(0x40105103, 0), -25);
    EXPECT_EQ(take_messages(), (Texts{received(3), MAGIC}));
    EXPECT_EQ(twin::log().raw(), (Texts{"<7><{ipfc}>ipfc_chr_ioctl: Ioctl received - cmd: 3\n",
                                        "<7><{ipfc}>ipfc_chr_ioctl: Invalid Ioctl magic\n"}));
}

TEST_F(CommandEncodingTest, every_other_type_is_refused_whatever_the_number)
{
    for (unsigned type = 0; type < 256; ++type) {
        if (type == 0x50)
            continue;
        EXPECT_EQ(without_a_copy(0x40100000 | type << 8 | 4, 0), -25) << type;
        EXPECT_EQ(take_messages(), (Texts{received(4), MAGIC})) << type;
    }
}

TEST_F(CommandEncodingTest, number_19_gives_minus_25_with_the_command_message)
{
    EXPECT_EQ(without_a_copy(0x40105013, 0), -25);
    EXPECT_EQ(take_messages(), (Texts{received(19), NUMBER}));
}

TEST_F(CommandEncodingTest, every_number_above_18_is_refused)
{
    for (unsigned number = 19; number < 256; ++number) {
        EXPECT_EQ(without_a_copy(0x40105000 | number, 0), -25) << number;
        EXPECT_EQ(take_messages(), (Texts{received(number), NUMBER})) << number;
    }
}

TEST_F(CommandEncodingTest, the_type_is_checked_before_the_number_and_the_number_before_the_range)
{
    EXPECT_EQ(without_a_copy(0x401051FF, ~0ul), -25);
    EXPECT_EQ(take_messages(), (Texts{received(255), MAGIC}));
    EXPECT_EQ(without_a_copy(0x40105013, ~0ul), -25);
    EXPECT_EQ(take_messages(), (Texts{received(19), NUMBER}));
}

TEST_F(CommandEncodingTest, number_7_with_write_direction_and_16_bytes_gives_minus_25_silently)
{
    const twin::UserMemory record(16);
    EXPECT_EQ(without_a_copy(0x40105007, record.argument()), -25);
    EXPECT_EQ(take_messages(), Texts{received(7)});
}

TEST_F(CommandEncodingTest, a_valid_number_with_another_size_gives_minus_25_silently)
{
    const twin::UserMemory record(16384);
    for (const unsigned code : all_codes) {
        for (const unsigned size_bit : {1u << 16, 1u << 20, 1u << 29}) {
            EXPECT_EQ(without_a_copy(code ^ size_bit, record.argument()), -25) << std::hex << code;
            EXPECT_EQ(take_messages(), Texts{received(code & 0xFF)}) << std::hex << code;
        }
    }
}

TEST_F(CommandEncodingTest, a_valid_number_with_another_direction_gives_minus_25_silently)
{
    const twin::UserMemory record(4096);
    for (const unsigned code : all_codes) {
        for (unsigned direction = 0; direction < 4; ++direction) {
            const unsigned other = (code & 0x3FFFFFFF) | direction << 30;
            if (other == code)
                continue;
            EXPECT_EQ(without_a_copy(other, record.argument()), -25) << std::hex << other;
            EXPECT_EQ(take_messages(), Texts{received(code & 0xFF)}) << std::hex << other;
        }
    }
}

TEST_F(CommandEncodingTest, command_3_at_the_last_8_bytes_of_user_space_gives_minus_14)
{
    EXPECT_EQ(without_a_copy(0x40105003, USER_END - 8), -14);
    EXPECT_EQ(take_messages(), (Texts{received(3), DIRECTION}));
}

TEST_F(CommandEncodingTest, every_command_with_a_direction_checks_the_range_of_its_encoded_size)
{
    for (const unsigned code : all_codes) {
        const unsigned size = code >> 16 & 0x3FFF;
        if (size == 0)
            continue;
        EXPECT_EQ(without_a_copy(code, USER_END - size + 1), -14) << std::hex << code;
        EXPECT_EQ(take_messages(), (Texts{received(code & 0xFF), DIRECTION})) << std::hex << code;
    }
}

TEST_F(CommandEncodingTest, a_range_that_wraps_around_gives_minus_14)
{
    for (const unsigned long argument : {~0ul, ~0ul - 15, ~0ul - 51, 0x8000000000000000ul}) {
        for (const unsigned code : {0x40105003u, 0xC0345007u}) {
            EXPECT_EQ(without_a_copy(code, argument), -14) << std::hex << argument;
            EXPECT_EQ(take_messages(), (Texts{received(code & 0xFF), DIRECTION}));
        }
    }
}

TEST_F(CommandEncodingTest, an_unknown_code_with_a_bad_range_is_refused_for_its_range)
{
    EXPECT_EQ(without_a_copy(0x40105007, USER_END - 8), -14);
    EXPECT_EQ(take_messages(), (Texts{received(7), DIRECTION}));
    EXPECT_EQ(without_a_copy(0x80105003, USER_END - 8), -14);
    EXPECT_EQ(take_messages(), (Texts{received(3), DIRECTION}));
}

TEST_F(CommandEncodingTest, a_code_without_direction_is_not_checked_for_its_range)
{
    EXPECT_EQ(without_a_copy(0x00005009, ~0ul), 0);
    EXPECT_EQ(take_messages(), Texts{received(9)});
    EXPECT_EQ(without_a_copy(0x00105003, ~0ul), -25);
    EXPECT_EQ(take_messages(), Texts{received(3)});
}

TEST_F(CommandEncodingTest, a_range_that_ends_with_user_space_passes_the_check)
{
    EXPECT_EQ(opened->ioctl(0x40105003, USER_END - 16), -14);
    EXPECT_EQ(take_messages(), (Texts{received(3), "100 Failed to read from user space\n"}));
}

TEST_F(CommandEncodingTest, the_check_follows_the_callers_own_address_limit)
{
    twin::set_address_limit(0x100000000);
    EXPECT_EQ(without_a_copy(0x40105003, 0xFFFFFFF1), -14);
    EXPECT_EQ(take_messages(), (Texts{received(3), DIRECTION}));
    EXPECT_EQ(opened->ioctl(0x40105003, 0xFFFFFFF0), -14);
    EXPECT_EQ(take_messages(), (Texts{received(3), "100 Failed to read from user space\n"}));
}

TEST_F(CommandEncodingTest, numbers_0_1_2_and_11_stop_the_kernel)
{
    for (const unsigned code : {0x40245000u, 0x40245001u, 0x40245002u, 0x4004500Bu}) {
        const twin::UserMemory record(36);
        try {
            opened->ioctl(code, record.argument());
            ADD_FAILURE() << "returned from " << std::hex << code;
        } catch (const twin::KernelBug& bug) {
            EXPECT_NE(std::string(bug.what()).find("BUG at "), std::string::npos) << bug.what();
            EXPECT_NE(std::string(bug.what()).find("ipfc_char.cpp"), std::string::npos)
                << bug.what();
        }
        EXPECT_EQ(take_messages(), Texts{received(code & 0xFF)});
    }
}

TEST_F(CommandEncodingTest, the_fatal_commands_read_no_record)
{
    for (const unsigned code : {0x40245000u, 0x40245001u, 0x40245002u, 0x4004500Bu}) {
        EXPECT_THROW(opened->ioctl(code, 0x10000), twin::KernelBug);
        EXPECT_EQ(twin::user_copies().faults, 0u);
    }
}

TEST_F(CommandEncodingTest, a_fatal_number_in_another_encoding_does_not_stop_the_kernel)
{
    const twin::UserMemory record(64);
    for (const unsigned code : {0x00005000u, 0x40245003u, 0x40255001u, 0xC0245002u, 0x0000500Bu})
        EXPECT_EQ(without_a_copy(code, record.argument()), -25) << std::hex << code;
}

TEST_F(CommandEncodingTest, the_device_works_on_after_a_bug)
{
    EXPECT_THROW(opened->ioctl(0x40245000, 0x10000), twin::KernelBug);
    EXPECT_EQ(opened->ioctl(0x00005009, 0), 0);
}

} // namespace
