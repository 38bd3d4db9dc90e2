// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/counters.h"

#include "ipfcctl/table.h"

namespace ipfcctl {

namespace {

using Json = nlohmann::ordered_json;

std::string text_of(uint64_t value)
{
    return std::to_string(value);
}

} // namespace

Json counters_to_json(const ipfc_intf_stats_ioctl_t& record)
{
    // By value: a reference cannot be bound to a member of a packed record.
    return {
        {"rx_packets", uint64_t(record.rx_packets)}, {"tx_packets", uint64_t(record.tx_packets)},
        {"rx_bytes", uint64_t(record.rx_bytes)},     {"tx_bytes", uint64_t(record.tx_bytes)},
        {"rx_errors", uint64_t(record.rx_errors)},   {"tx_errors", uint64_t(record.tx_errors)},
        {"rx_dropped", uint64_t(record.rx_dropped)}, {"tx_dropped", uint64_t(record.tx_dropped)},
        {"multicast", uint64_t(record.multicast)},   {"collisions", uint64_t(record.collisions)}};
}

Json mib_counters_to_json(const ipfc_intf_stats_ioctl_t& record)
{
    return {{"ifInMulticastPkts", uint32_t(record.ifInMulticastPkts)},
            {"ifInBroadcastPkts", uint32_t(record.ifInBroadcastPkts)},
            {"ifOutMulticastPkts", uint32_t(record.ifOutMulticastPkts)},
            {"ifOutBroadcastPkts", uint32_t(record.ifOutBroadcastPkts)},
            {"ifHCInOctets", uint64_t(record.ifHCInOctets)},
            {"ifHCInUcastPkts", uint64_t(record.ifHCInUcastPkts)},
            {"ifHCInMulticastPkts", uint64_t(record.ifHCInMulticastPkts)},
            {"ifHCInBroadcastPkts", uint64_t(record.ifHCInBroadcastPkts)},
            {"ifHCOutOctets", uint64_t(record.ifHCOutOctets)},
            {"ifHCOutUcastPkts", uint64_t(record.ifHCOutUcastPkts)},
            {"ifHCOutMulticastPkts", uint64_t(record.ifHCOutMulticastPkts)},
            {"ifHCOutBroadcastPkts", uint64_t(record.ifHCOutBroadcastPkts)},
            {"ifInUnknownProtos", uint32_t(record.ifInUnknownProtos)}};
}

std::string counters_to_text(const ipfc_intf_stats_ioctl_t& record, const Output& output)
{
    Table table({{""},
                 {"PACKETS", Align::right},
                 {"BYTES", Align::right},
                 {"ERRORS", Align::right},
                 {"DROPPED", Align::right},
                 {"MULTICAST", Align::right},
                 {"COLLISIONS", Align::right}},
                "    ");
    table.add({{"RX"},
               {text_of(record.rx_packets)},
               {text_of(record.rx_bytes)},
               {text_of(record.rx_errors)},
               {text_of(record.rx_dropped)},
               {text_of(record.multicast)},
               {""}});
    table.add({{"TX"},
               {text_of(record.tx_packets)},
               {text_of(record.tx_bytes)},
               {text_of(record.tx_errors)},
               {text_of(record.tx_dropped)},
               {""},
               {text_of(record.collisions)}});
    return table.text(output.color());
}

std::string mib_counters_to_text(const ipfc_intf_stats_ioctl_t& record)
{
    const Json counters = mib_counters_to_json(record);
    std::string text;
    for (const auto& [name, value] : counters.items()) {
        text += (text.empty() ? "    " : "\n    ") + name + ' ' + value.dump();
    }
    return text;
}

} // namespace ipfcctl
