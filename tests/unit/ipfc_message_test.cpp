// SPDX-License-Identifier: GPL-2.0-only
// The debug messages' two outlets, and what a message costs while both are off.
#include "support/control.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

// The linker sends the module's calls of snprintf here (see the test program's link options).
std::atomic<unsigned> texts_formatted{0};

extern "C" int __wrap_snprintf(char* to, std::size_t size, const char* format, ...)
{
    ++texts_formatted;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(to, size, format, arguments);
    va_end(arguments);
    return length;
}

namespace {

class MessageTest : public ControlTest {
protected:
    static void turn(int element, bool history, bool log)
    {
        platform().elements[element].history = history;
        platform().elements[element].log = log;
    }
    static void turn_all(bool history, bool log)
    {
        turn(IPFC_DBG_ERRORS, history, log);
        turn(IPFC_DBG_EVENTS, history, log);
    }
};

TEST_F(MessageTest, a_message_goes_to_the_history_and_then_to_the_kernel_log)
{
    IPFC_ERROR("number %d\n", 5);
    IPFC_EVENT("no line end");
    EXPECT_EQ(twin::journal().texts(), (Texts{
                                           "100 number 5\n",
                                           "<7><{ipfc}>number 5\n",
                                           "101 no line end",
                                           "<7><{ipfc}>no line end",
                                       }));
}

TEST_F(MessageTest, each_outlet_of_each_element_is_switched_by_itself)
{
    const struct {
        bool history;
        bool log;
        Texts texts;
    } rows[] = {
        {false, false, {}},
        {true, false, {"100 x"}},
        {false, true, {"<7><{ipfc}>x"}},
        {true, true, {"100 x", "<7><{ipfc}>x"}},
    };
    for (const auto& row : rows) {
        turn(IPFC_DBG_ERRORS, row.history, row.log);
        turn(IPFC_DBG_EVENTS, !row.history, !row.log);
        twin::journal().clear();
        IPFC_ERROR("x");
        EXPECT_EQ(twin::journal().texts(), row.texts);
    }
}

TEST_F(MessageTest, arguments_are_evaluated_once_for_each_outlet_that_is_on)
{
    for (const bool history : {false, true}) {
        for (const bool log : {false, true}) {
            turn_all(history, log);
            int evaluated = 0;
            IPFC_EVENT("%d\n", ++evaluated);
            EXPECT_EQ(evaluated, (history ? 1 : 0) + (log ? 1 : 0));
        }
    }
}

TEST_F(MessageTest, results_do_not_depend_on_the_switches)
{
    for (const bool on : {false, true}) {
        turn_all(on, on);
        EXPECT_EQ(ipfc_create_vsan_interface(4096, PORT_NAME, NODE_NAME), -22);
        EXPECT_EQ(ipfc_create_vsan_interface(10, PORT_NAME, NODE_NAME), 0);
        EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
        EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, NEW_FCID), 0);
        EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
        EXPECT_EQ(ipfc_delete_vsan_interface(10), 0);
    }
}

TEST_F(MessageTest, no_name_is_written_as_text_while_both_outlets_are_off)
{
    make_interface(10, OWN_FCID);
    turn_all(false, false);
    texts_formatted = 0;
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, NEW_FCID), 0);
    EXPECT_EQ(user_add_pn_to_fcid_mapping(10, PEER_NAME, PEER_FCID), -1);
    EXPECT_EQ(user_delete_pn_to_fcid_mapping(10, PEER_NAME), 0);
    EXPECT_EQ(texts_formatted, 0u);
}

TEST_F(MessageTest, a_name_is_written_as_text_once_for_each_outlet_that_is_on)
{
    make_interface(10, OWN_FCID);
    const struct {
        bool history;
        bool log;
        unsigned formatted;
    } rows[] = {{true, false, 2}, {false, true, 2}, {true, true, 4}};
    for (const auto& row : rows) {
        turn_all(row.history, row.log);
        texts_formatted = 0;
        EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, NEW_FCID), 0);
        EXPECT_EQ(texts_formatted, row.formatted); // a name and an FCID
    }
}

TEST_F(MessageTest, an_events_text_is_not_written_for_errors_alone)
{
    make_interface(10, OWN_FCID);
    turn(IPFC_DBG_ERRORS, true, true);
    turn(IPFC_DBG_EVENTS, false, false);
    texts_formatted = 0;
    EXPECT_EQ(user_update_pn_to_fcid_mapping(10, PEER_NAME, NEW_FCID), 0);
    EXPECT_EQ(texts_formatted, 0u);
}

} // namespace
