// SPDX-License-Identifier: GPL-2.0-only
// brim_sw/secondary_ip: the table as text, one address a line in the form that is written to add
// it:
//
//   add VSAN ADDRESS MAC FCID      add 10 10.10.0.77 02:00:00:00:00:77 0x0a0077
//   del VSAN ADDRESS               del 10 10.10.0.77
#include "platform/mip.h"

#include "brim/ifindex.h"

#include "kapi/errno.h"
#include "kapi/string.h"

#include "platform/fc2/fc2_wire.h"
#include "platform/platform.h"
#include "platform/proc_text.h"

namespace {

inline constexpr char FILE_NAME[] = "secondary_ip";
inline constexpr unsigned int COMMAND_MAX = 128;

// ---- reading a command ----

// Takes the next word off the line; empty at its end.
char* next_word(char** line)
{
    while (**line == ' ')
        ++*line;
    char* word = *line;
    while (**line != ' ' && **line != '\0')
        ++*line;
    if (**line != '\0')
        *(*line)++ = '\0';
    return word;
}

int digit_of(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return 16;
}

// A number of the base, of at most that many digits; moves behind it.
bool take_number(const char** text, unsigned int base, unsigned int digits, std::uint32_t* number)
{
    const char* begin = *text;
    *number = 0;
    while (static_cast<unsigned int>(digit_of(**text)) < base &&
           *text - begin < static_cast<long>(digits))
        *number = *number * base + static_cast<std::uint32_t>(digit_of(*(*text)++));
    return *text != begin;
}

bool take_char(const char** text, char c)
{
    if (**text != c)
        return false;
    ++*text;
    return true;
}

bool read_vsan(const char* text, if_index_t* ifindex)
{
    std::uint32_t vsan;
    if (!take_number(&text, 10, 4, &vsan) || *text != '\0' || vsan > VSAN_ID_MAX)
        return false;
    *ifindex = if_index_of_vsan(static_cast<vsan_id_t>(vsan));
    return true;
}

bool read_ipv4(const char* text, inet_addr_t* address)
{
    std::uint8_t bytes[4];
    for (unsigned int i = 0; i < sizeof bytes; i++) {
        std::uint32_t byte;
        if ((i != 0 && !take_char(&text, '.')) || !take_number(&text, 10, 3, &byte) || byte > 255)
            return false;
        bytes[i] = static_cast<std::uint8_t>(byte);
    }
    address->addr_type = INET_ADDR_TYPE_IPV4;
    memcpy(&address->a.ipv4_addr, bytes, sizeof bytes);
    return *text == '\0';
}

inline constexpr unsigned int NO_GAP = 9;

// Groups of hexadecimal digits, of which one "::" stands for as many zeros as are missing.
bool read_ipv6(const char* text, inet_addr_t* address)
{
    std::uint8_t bytes[16] = {};
    unsigned int groups = 0;
    unsigned int gap = NO_GAP; // groups in front of the "::"
    bool more = true;
    if (text[0] == ':' && text[1] == ':') {
        gap = 0;
        text += 2;
        more = *text != '\0';
    }
    while (more) {
        std::uint32_t group;
        if (groups == 8 || !take_number(&text, 16, 4, &group))
            return false;
        store_be16(bytes + 2 * groups++, group);
        more = take_char(&text, ':');
        if (more && take_char(&text, ':')) {
            if (gap != NO_GAP)
                return false;
            gap = groups;
            more = *text != '\0';
        }
    }
    if (*text != '\0' || (groups == 8) != (gap == NO_GAP))
        return false;
    if (gap != NO_GAP) {
        const unsigned int behind = 2 * (groups - gap);
        memmove(bytes + 16 - behind, bytes + 2 * gap, behind);
        memset(bytes + 2 * gap, 0, 16 - behind - 2 * gap);
    }
    address->addr_type = INET_ADDR_TYPE_IPV6;
    memcpy(&address->a.ipv6_addr, bytes, sizeof bytes);
    return true;
}

bool read_address(const char* text, inet_addr_t* address)
{
    return read_ipv4(text, address) || read_ipv6(text, address);
}

bool read_mac(const char* text, mac_t* mac)
{
    for (unsigned int i = 0; i < sizeof mac->ether_addr_octet; i++) {
        std::uint32_t octet;
        if ((i != 0 && !take_char(&text, ':')) || !take_number(&text, 16, 2, &octet))
            return false;
        mac->ether_addr_octet[i] = static_cast<std::uint8_t>(octet);
    }
    return *text == '\0';
}

bool read_fcid(const char* text, std::uint32_t* add_data)
{
    std::uint32_t fcid;
    if (text[0] == '0' && text[1] == 'x')
        text += 2;
    if (!take_number(&text, 16, 6, &fcid) || *text != '\0')
        return false;
    *add_data = fcid_record(fcid).num;
    return true;
}

int run_add(char* line)
{
    mip_mapping_t mapping = {};
    if (!read_vsan(next_word(&line), &mapping.ifindex) ||
        !read_address(next_word(&line), &mapping.ip_addr) ||
        !read_mac(next_word(&line), &mapping.source_mac) ||
        !read_fcid(next_word(&line), &mapping.add_data) || *next_word(&line) != '\0')
        return -EINVAL;
    mapping.sifindex = mapping.ifindex;
    return mip_add(mapping);
}

int run_del(char* line)
{
    if_index_t ifindex;
    inet_addr_t address = {};
    if (!read_vsan(next_word(&line), &ifindex) || !read_address(next_word(&line), &address) ||
        *next_word(&line) != '\0')
        return -EINVAL;
    return mip_remove(address, ifindex);
}

int write_table(file*, const char* user, unsigned long count, void*)
{
    char command[COMMAND_MAX];
    char* line = command;
    int result = proc_take_line(command, sizeof command, user, count);
    if (result != 0)
        return result;
    const char* verb = next_word(&line);
    if (strcmp(verb, "add") == 0)
        result = run_add(line);
    else if (strcmp(verb, "del") == 0)
        result = run_del(line);
    else
        result = -EINVAL;
    return result == 0 ? static_cast<int>(count) : result;
}

// ---- the table as text ----

void print_address(proc_window* window, const inet_addr_t& address)
{
    if (address.addr_type == INET_ADDR_TYPE_IPV4) {
        std::uint8_t bytes[4];
        memcpy(bytes, &address.a.ipv4_addr, sizeof bytes);
        window->print("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
        return;
    }
    const std::uint8_t* bytes = address.a.ipv6_addr.s6_addr;
    for (unsigned int group = 0; group < 8; group++)
        window->print("%s%x", group == 0 ? "" : ":", load_be16(bytes + 2 * group));
}

void print_mapping(const mip_mapping_t& mapping, void* argument)
{
    auto* window = static_cast<proc_window*>(argument);
    const std::uint8_t* mac = mapping.source_mac.ether_addr_octet;
    fcid_t fcid;
    fcid.num = mapping.add_data;
    window->print("%d ", if_index_vsan(mapping.ifindex));
    print_address(window, mapping.ip_addr);
    window->print(" %02x:%02x:%02x:%02x:%02x:%02x 0x%06x\n", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5], fcid_value(fcid));
}

int read_table(char* buffer, char** start, off_t offset, int count, int* eof, void*)
{
    proc_window window(buffer, offset, count);
    mip_for_each(print_mapping, &window);
    return window.finish(start, eof);
}

} // namespace

int mip_proc_start()
{
    proc_dir_entry* entry = create_proc_entry(FILE_NAME, 0600, proc_brim_sw);
    if (entry == nullptr)
        return -ENOMEM;
    entry->write_proc = write_table;
    entry->read_proc = read_table;
    return 0;
}

void mip_proc_stop()
{
    remove_proc_entry(FILE_NAME, proc_brim_sw);
}
