// SPDX-License-Identifier: GPL-2.0-only
// The port-name mapping table against a simple model: any sequence of operations.
#include "support/interface_test.h"

#include <rapidcheck.h>

namespace {

using namespace twin;
using Lines = std::vector<std::string>;

enum class Action { add, update, user_delete, kernel_delete, drop_exchange, open, search, clear };

struct Step {
    Action action;
    unsigned port;
    unsigned address;
};

std::ostream& operator<<(std::ostream& out, const Step& step)
{
    return out << static_cast<int>(step.action) << " port " << step.port << " address "
               << step.address;
}

// Eight names in three buckets; two pairs differ in their first two bytes alone.
const char* const names[] = {"10:00:12:00:00:00:00:00", "20:00:12:00:00:00:00:00",
                             "10:00:00:12:00:00:00:00", "10:00:00:00:00:00:00:12",
                             "10:00:00:00:00:00:00:0f", "11:00:00:00:00:00:00:0f",
                             "10:00:00:00:00:00:00:00", "10:00:aa:aa:00:00:00:00"};
const int buckets[] = {3, 3, 3, 3, 15, 15, 0, 0};

// The table as lists of what was added, oldest first.
struct Model {
    struct Node {
        unsigned port;
        unsigned address;
        std::vector<unsigned> exchanges;
    };
    std::vector<Node> nodes;
    std::vector<std::pair<unsigned, unsigned>> logos; // source and destination, in order
    int uncounted = 0;                                // records freed without being uncounted

    Node* find(unsigned port)
    {
        for (Node& node : nodes)
            if (node.port == port)
                return &node;
        return nullptr;
    }
    void log_out(Node& node)
    {
        for (const unsigned source : node.exchanges)
            logos.emplace_back(source, node.address);
        node.exchanges.clear();
    }
    void move(Node& node, unsigned address)
    {
        if (node.address == address)
            return;
        log_out(node);
        node.address = address;
    }
    void erase(unsigned port)
    {
        std::erase_if(nodes, [&](const Node& node) { return node.port == port; });
    }
    Node* first_match(unsigned port)
    {
        for (Node& node : nodes)
            if (std::string(names[node.port]).substr(6) == std::string(names[port]).substr(6))
                return &node;
        return nullptr;
    }
    Lines lines() const
    {
        Lines result;
        for (int bucket = 0; bucket < 16; ++bucket)
            for (const Node& node : nodes)
                if (buckets[node.port] == bucket) {
                    std::string line = strf("%d %s > %06x", bucket, names[node.port], node.address);
                    for (const unsigned source : node.exchanges)
                        line += strf(" %06x=%u", source, source);
                    result.push_back(line);
                }
        return result;
    }
    int exchanges() const
    {
        int count = 0;
        for (const Node& node : nodes)
            count += static_cast<int>(node.exchanges.size());
        return count;
    }
};

class MappingModelTest : public InterfaceTest {
protected:
    void take(const Step& step, Model& model)
    {
        const wwn_t port = wwn(names[step.port]);
        const fcid_t address = fcid(step.address);
        Model::Node* const known = model.find(step.port);
        kpn_to_fcid_t** const table = priv->kwwpn_hash_table;
        switch (step.action) {
        case Action::add: {
            kpn_to_fcid_t* const node = alloc_mapping(GFP_ATOMIC);
            ++num_mapping_obj;
            node->ww_portname = port;
            node->dest_fcid = address;
            const TableLock lock(priv);
            add_pn_to_fcid_mapping(table, node, own_vsan, priv);
            if (known != nullptr)
                model.move(*known, step.address);
            else
                model.nodes.push_back({step.port, step.address, {}});
            return;
        }
        case Action::update: {
            const TableLock lock(priv);
            RC_ASSERT(update_pn_to_fcid_mapping(table, port, address, own_vsan, priv) ==
                      (known != nullptr));
            if (known != nullptr)
                model.move(*known, step.address);
            return;
        }
        case Action::user_delete:
            RC_ASSERT(user_delete_pn_to_fcid_mapping(own_vsan, port) == 0);
            RC_ASSERT(delete_from_user == (known == nullptr ? 1u : 0u));
            if (known != nullptr)
                model.log_out(*known);
            model.erase(step.port);
            return;
        case Action::kernel_delete: {
            const TableLock lock(priv);
            RC_ASSERT(kernel_delete_pn_to_fcid_mapping(table, port, own_vsan) ==
                      (known != nullptr));
            model.erase(step.port);
            return;
        }
        case Action::drop_exchange: {
            const TableLock lock(priv);
            delete_exch_status_for_fcid(table, port, address);
            if (known != nullptr) {
                const auto found =
                    std::find(known->exchanges.begin(), known->exchanges.end(), step.address);
                if (found != known->exchanges.end()) {
                    known->exchanges.erase(found);
                    ++model.uncounted;
                }
            }
            return;
        }
        case Action::open:
            if (known != nullptr) {
                for (kpn_to_fcid_t* node = table[buckets[step.port]]; node != nullptr;
                     node = node->next)
                    if (node->ww_portname.num == port.num)
                        add_exchange(priv, node, address, static_cast<int>(step.address));
                known->exchanges.push_back(step.address);
            }
            return;
        case Action::search: {
            kpn_to_fcid_t* target = nullptr;
            const TableLock lock(priv);
            const bool found = search_pn_to_fcid_mapping(table, port, &target);
            const Model::Node* const expected = model.first_match(step.port);
            RC_ASSERT(found == (expected != nullptr));
            if (found)
                RC_ASSERT(text_of(target->ww_portname) == names[expected->port]);
            return;
        }
        case Action::clear: {
            const TableLock lock(priv);
            clear_hash(table, own_vsan, priv);
            for (const unsigned bucket : {0u, 3u, 15u})
                for (Model::Node& node : model.nodes)
                    if (buckets[node.port] == static_cast<int>(bucket))
                        model.log_out(node);
            model.nodes.clear();
            return;
        }
        }
    }
    void expect_like(const Model& model)
    {
        RC_ASSERT(table_of(priv) == model.lines());
        RC_ASSERT(num_mapping_obj == static_cast<int>(model.nodes.size()));
        RC_ASSERT(num_exch_obj == model.exchanges() + model.uncounted);
        std::vector<std::pair<unsigned, unsigned>> logos;
        for (const SentLogo& logo : platform().logos)
            logos.emplace_back(__builtin_bswap32(logo.s_id.num), __builtin_bswap32(logo.d_id.num));
        RC_ASSERT(logos == model.logos);
        RC_ASSERT(locks_held() == 0);
    }
};

// rapidcheck prints the seed; RC_PARAMS="seed=..." repeats a run.
TEST_F(MappingModelTest, any_sequence_of_operations_leaves_the_table_as_a_simple_model_has_it)
{
    for (const int element : {IPFC_DBG_ERRORS, IPFC_DBG_EVENTS})
        platform().elements[element] = {.history = false, .log = false, .texts = {}};
    const bool holds = rc::check([this] {
        const auto step = rc::gen::construct<Step>(
            rc::gen::map(rc::gen::inRange(0, 40),
                         [](int n) { return n == 0 ? Action::clear : static_cast<Action>(n % 7); }),
            rc::gen::inRange(0u, 8u), rc::gen::inRange(1u, 4u));
        const auto steps = *rc::gen::container<std::vector<Step>>(step);
        drop_mappings(priv);
        num_exch_obj = 0;
        platform().logos.clear();
        delete_from_user = 0;
        Model model;
        for (const Step& next : steps) {
            // The flag outlives a delete that found nothing; the next one sets it anyway.
            take(next, model);
            expect_like(model);
        }
    });
    EXPECT_TRUE(holds);
}

} // namespace
