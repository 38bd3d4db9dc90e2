// SPDX-License-Identifier: GPL-2.0-only
// An interface's report through a reader's window, and tables larger than a page.
#include "support/interface_test.h"

namespace {

using namespace twin;

const char* const report_path = "brim_sw/ipfc/vsan10";

// The text as a list of pieces; the window is checked behind those that are exchange lines.
struct Piece {
    std::string text;
    bool exchange;
};

class ProcWindowTest : public InterfaceTest {
protected:
    // Mapping i has i % 4 exchanges, or none at all. All share one bucket, so that the report has
    // them in this order.
    void fill(int mappings, bool with_exchanges)
    {
        pieces = {{"\nVSAN Interface   10 :\nfcid = 0x0a0b0c\n"
                   "WW portname = 20:00:00:5e:bf:01:02:03\n"
                   "WW nodename = 20:01:00:5e:bf:01:02:03\n"
                   "                  WW_PN ->      FCID\n",
                   false}};
        kpn_to_fcid_t** link = &priv->kwwpn_hash_table[0];
        const UnnumberedAllocations set_up;
        for (int i = 0; i < mappings; ++i) {
            const auto high = static_cast<std::uint8_t>(i >> 16);
            const auto middle = static_cast<std::uint8_t>(i >> 8);
            const auto low = static_cast<std::uint8_t>(i);
            kpn_to_fcid_t* const mapping = alloc_mapping(GFP_ATOMIC);
            ++num_mapping_obj;
            // Pairs of equal bytes: bucket 0.
            mapping->ww_portname = {.str = {0x10, 0, high, middle, low, high, middle, low}};
            mapping->dest_fcid = {.str = {0, high, middle, low}};
            *link = mapping;
            link = &mapping->next;
            pieces.push_back({strf("10:00:%02x:%02x:%02x:%02x:%02x:%02x -> 0x%02x%02x%02x\n", high,
                                   middle, low, high, middle, low, high, middle, low),
                              false});
            for (int n = 0; with_exchanges && n < i % 4; ++n) {
                add_exchange(priv, mapping, fcid(0x0a0b00u + static_cast<unsigned>(n)), i + n);
                pieces.push_back({strf("   exch with 0x0a0b%02x handle = %08x\n", n, i + n), true});
            }
        }
    }
    std::string whole() const
    {
        std::string text;
        for (const Piece& piece : pieces)
            text += piece.text;
        return text;
    }
    // How far the handler writes before it stops, and whether it comes to the end.
    std::pair<long, bool> produced(long offset, long length) const
    {
        long position = 0;
        for (const Piece& piece : pieces) {
            position += static_cast<long>(piece.text.size());
            if (piece.exchange && position >= offset + length)
                return {position, false};
        }
        return {position, true};
    }
    void expect_window(const std::string& text, long offset, int length)
    {
        const HandlerResult called = call_read_proc(find_proc(report_path), offset, length);
        const auto [position, ended] = produced(offset, length);
        const long expected = std::clamp<long>(position - offset, 0, length);
        ASSERT_EQ(called.result, expected) << offset << ", " << length;
        ASSERT_EQ(called.eof, ended ? 1 : 0) << offset << ", " << length;
        if (expected > 0) {
            ASSERT_GE(called.start, 0);
            ASSERT_EQ(called.page.compare(static_cast<std::size_t>(called.start),
                                          static_cast<std::size_t>(expected), text,
                                          static_cast<std::size_t>(offset),
                                          static_cast<std::size_t>(expected)),
                      0)
                << offset << ", " << length;
        }
    }

    // Quicker than the interface's own end, which lets the lock go for each node.
    void tidy() override
    {
        drop_mappings(priv);
        InterfaceTest::tidy();
    }

    std::vector<Piece> pieces;
};

struct Table {
    int mappings;
    bool with_exchanges;
};

class ProcEveryWindowTest : public ProcWindowTest, public ::testing::WithParamInterface<Table> {};

TEST_P(ProcEveryWindowTest, every_window_begins_exactly_at_the_readers_offset)
{
    fill(GetParam().mappings, GetParam().with_exchanges);
    const std::string text = whole();
    for (const int length : {1, 7, 100, 4096}) {
        for (long offset = 0; offset <= static_cast<long>(text.size()) + 3; ++offset) {
            expect_window(text, offset, length);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(ProcEveryWindowTest, readers_of_any_step_get_the_whole_text)
{
    fill(GetParam().mappings, GetParam().with_exchanges);
    for (const std::size_t count : {1u, 7u, 100u, 4096u})
        EXPECT_EQ(proc_read(report_path, count), whole()) << count;
}

INSTANTIATE_TEST_SUITE_P(Tables, ProcEveryWindowTest,
                         ::testing::Values(Table{0, false}, Table{1, false}, Table{3, false},
                                           Table{3, true}, Table{40, false}, Table{40, true}),
                         [](const auto& info) {
                             return strf("%d_mappings_%s_exchanges", info.param.mappings,
                                         info.param.with_exchanges ? "with" : "without");
                         });

TEST_F(ProcWindowTest, a_reader_past_the_end_gets_nothing)
{
    for (const bool with_exchanges : {false, true}) {
        fill(40, with_exchanges);
        const auto size = static_cast<long>(whole().size());
        for (const long offset : {size, size + 1, size + 5000, 0x7FFFFFFFl - 1}) {
            const HandlerResult called = call_read_proc(find_proc(report_path), offset, 100);
            EXPECT_EQ(called.result, 0) << offset;
            EXPECT_EQ(called.eof, 1) << offset;
            EXPECT_EQ(proc_read_at(report_path, offset, 100).result, 0);
        }
        drop_mappings(priv);
    }
}

TEST_F(ProcWindowTest, without_exchanges_the_text_is_produced_whole_whatever_the_offset)
{
    fill(40, false);
    const std::string text = whole();
    for (const off_t offset : {0l, 100l, 1000l}) {
        const HandlerResult called = call_read_proc(find_proc(report_path), offset, 10);
        EXPECT_EQ(called.result, 10);
        EXPECT_EQ(called.eof, 1);
        EXPECT_EQ(called.start, offset);
        EXPECT_EQ(called.page.substr(0, text.size()), text);
    }
}

TEST_F(ProcWindowTest, what_lies_before_the_offset_is_overwritten_behind_each_exchange_line)
{
    fill(4, true); // the fourth alone has three exchanges
    const auto size = static_cast<long>(whole().size());
    const HandlerResult called = call_read_proc(find_proc(report_path), size - 1, 100);
    EXPECT_EQ(called.result, 1);
    EXPECT_EQ(called.start, 39) << "the page holds the last line alone";
    EXPECT_EQ(called.page.substr(0, 40), "   exch with 0x0a0b02 handle = 00000005\n");
}

TEST_F(ProcWindowTest, an_exchange_line_that_ends_at_the_offset_is_overwritten)
{
    fill(4, true);
    const auto size = static_cast<long>(whole().size());
    const HandlerResult called = call_read_proc(find_proc(report_path), size - 40, 100);
    EXPECT_EQ(called.result, 40);
    EXPECT_EQ(called.start, 0) << "nothing is in the page but what the reader gets";
    EXPECT_EQ(called.page.substr(0, 40), "   exch with 0x0a0b02 handle = 00000005\n");
}

// ---- tables larger than a page ----

class ProcLargeTest : public ProcWindowTest, public ::testing::WithParamInterface<int> {};

TEST_P(ProcLargeTest, a_large_table_is_written_whole_and_never_past_the_buffer)
{
    fill(GetParam(), false);
    const std::string text = whole();
    const auto size = static_cast<long>(text.size());
    for (const long offset : {0l, 1l, size / 2, size - 1, size}) {
        for (const int length : {1, 3072}) {
            expect_window(text, offset, length);
            if (HasFatalFailure())
                return;
        }
    }
}

// A kernel that gives one page and no more: what does not fit is lost, and nothing else.
TEST_P(ProcLargeTest, a_large_table_never_leaves_a_single_page)
{
    fill(GetParam(), true);
    set_one_page_reports(true);
    const std::string text = whole();
    std::string read;
    for (loff_t position = 0;;) {
        const ProcRead piece = proc_read_at(report_path, position, 1024);
        ASSERT_GE(piece.result, 0);
        if (piece.result == 0)
            break;
        read += piece.text;
        position = piece.position;
        if (read.size() > 16384) // far enough through the chain
            break;
    }
    EXPECT_GE(read.size(), std::min<std::size_t>(text.size(), 16384));
    EXPECT_EQ(text.compare(0, read.size(), read), 0);
}

TEST_F(ProcWindowTest, what_does_not_fit_into_a_single_page_is_lost)
{
    fill(1000, false);
    set_one_page_reports(true);
    EXPECT_EQ(proc_read(report_path, 1000), whole().substr(0, 4095));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ProcLargeTest, ::testing::Values(1, 100, 1000, 100000));

TEST_F(ProcWindowTest, a_thousand_mappings_are_read_to_the_end_by_any_reader)
{
    fill(1000, true);
    EXPECT_EQ(proc_read(report_path, 4096), whole());
    EXPECT_EQ(proc_read(report_path, 65536), whole());
}

// What lies before the first exchange line stays in the buffer, in front of all that is wanted.
TEST_F(ProcWindowTest, many_exchanges_behind_many_mappings_are_read_to_the_end)
{
    fill(82, false); // more than the first piece that a reader asks for
    kpn_to_fcid_t* last = priv->kwwpn_hash_table[0];
    while (last->next != nullptr)
        last = last->next;
    std::string text = whole();
    for (unsigned i = 0; i < 200; ++i) {
        add_exchange(priv, last, fcid(0x0a0b00u + i), static_cast<std::int32_t>(i));
        text += strf("   exch with 0x0a0b%02x handle = %08x\n", i, i);
    }
    for (const std::size_t count : {100u, 3072u, 65536u})
        EXPECT_EQ(proc_read(report_path, count), text) << count;
    const HandlerResult called = call_read_proc(find_proc(report_path), 3072, 3072);
    EXPECT_EQ(called.result, 3072);
    EXPECT_EQ(called.eof, 0);
    EXPECT_EQ(called.start, 3072);
    EXPECT_EQ(called.page.substr(0, 6144), text.substr(0, 6144));
}

TEST_F(ProcWindowTest, the_buffer_holds_the_whole_text)
{
    fill(300, true);
    const std::string text = whole();
    const HandlerResult called = call_read_proc(find_proc(report_path), 0, 1 << 20);
    EXPECT_EQ(called.result, static_cast<int>(text.size()));
    EXPECT_EQ(called.page.substr(0, text.size()), text);
}

TEST_F(ProcWindowTest, mappings_of_other_interfaces_only_make_the_buffer_larger)
{
    net_device* const other = create_interface(20, own_port, fcid(1));
    add_mapping(ipfc_priv(other), peer_port, peer_fcid);
    fill(200, true);
    EXPECT_EQ(proc_read(report_path), whole());
}

} // namespace
