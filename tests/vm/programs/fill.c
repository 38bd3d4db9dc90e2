// SPDX-License-Identifier: GPL-2.0-only
// Many interfaces or mappings at once. Numbers are decimal.
//
//   fill interfaces FIRST COUNT   makes the interfaces, each with its N_Port, and brings them up
//   fill delete FIRST COUNT       deletes them
//   fill mappings VSAN FIRST COUNT   stores ports, of which nobody has asked for any
//   fill forget VSAN FIRST COUNT     deletes their mappings
//
// Interface N has the port name 20:00:02:00:00:00 and N in two bytes, and the FC address 0x0a0000 +
// N; port N has 21:00:03:00 and N in four bytes, and 0x140000 + N.
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "brim/ipfc_intf.h"

static int device;

static void die(const char* what, unsigned int number)
{
    fprintf(stderr, "%s %u: %s\n", what, number, strerror(errno));
    exit(1);
}

static void put_number(unsigned char* end, unsigned int number, unsigned int size)
{
    for (; size > 0; size--, number >>= 8)
        *--end = (unsigned char)number;
}

static vsan_interface_ioctl_t interface(unsigned int vsan)
{
    vsan_interface_ioctl_t record;
    memset(&record, 0, sizeof record);
    record.vsan_id = (vsan_id_t)vsan;
    memcpy(record.ww_portname.str, "\x20\0\x02\0\0\0\0\0", 8);
    put_number(record.ww_portname.str + 8, vsan, 2);
    memcpy(record.ww_nodename.str, "\x10\0\x02\0\0\0\0\1", 8);
    put_number(record.fcid.str + 4, 0x0A0000 + vsan, 3);
    return record;
}

static void bring_up(int control, unsigned int vsan)
{
    struct ifreq request;
    memset(&request, 0, sizeof request);
    snprintf(request.ifr_name, sizeof request.ifr_name, "vsan%u", vsan);
    if (ioctl(control, SIOCGIFFLAGS, &request) != 0)
        die("flags of interface", vsan);
    request.ifr_flags |= IFF_UP;
    if (ioctl(control, SIOCSIFFLAGS, &request) != 0)
        die("up of interface", vsan);
}

static void make_interfaces(unsigned int first, unsigned int count)
{
    int control = socket(AF_INET, SOCK_DGRAM, 0);
    for (unsigned int vsan = first; vsan < first + count; vsan++) {
        vsan_interface_ioctl_t record = interface(vsan);
        if (ioctl(device, IPFC_IOC_CREATE_INTF, &record) != 0)
            die("interface", vsan);
        record.action = IPFC_UPD_INTF_SET_FCID;
        if (ioctl(device, IPFC_IOC_UPDATE_INTF, &record) != 0)
            die("address of interface", vsan);
        record.action = IPFC_UPD_INTF_SET_ADM_UP;
        if (ioctl(device, IPFC_IOC_UPDATE_INTF, &record) != 0)
            die("state of interface", vsan);
        bring_up(control, vsan);
    }
}

static void delete_interfaces(unsigned int first, unsigned int count)
{
    for (unsigned int vsan = first; vsan < first + count; vsan++) {
        vsan_interface_ioctl_t record = interface(vsan);
        if (ioctl(device, IPFC_IOC_DELETE_INTF, &record) != 0)
            die("end of interface", vsan);
    }
}

static pn_to_fcid_ioctl_t port(unsigned int vsan, unsigned int number)
{
    pn_to_fcid_ioctl_t record = {.vsan_id = (vsan_id_t)vsan};
    memcpy(record.ww_portname.str, "\x21\0\x03\0", 4);
    put_number(record.ww_portname.str + 8, number, 4);
    put_number(record.fcid.str + 4, 0x140000 + number, 3);
    return record;
}

static void store(unsigned int vsan, unsigned int first, unsigned int count)
{
    for (unsigned int number = first; number < first + count; number++) {
        pn_to_fcid_ioctl_t record = port(vsan, number);
        // Stored, and refused because no packet waits for it.
        if (ioctl(device, IPFC_IOC_ADD_MAPPING, &record) != -1 || errno != EPERM)
            die("mapping", number);
    }
}

static void forget(unsigned int vsan, unsigned int first, unsigned int count)
{
    for (unsigned int number = first; number < first + count; number++) {
        pn_to_fcid_ioctl_t record = port(vsan, number);
        if (ioctl(device, IPFC_IOC_DEL_MAPPING, &record) != 0)
            die("end of mapping", number);
    }
}

static unsigned int number_of(const char* text)
{
    return (unsigned int)strtoul(text, NULL, 10);
}

int main(int count, char** words)
{
    device = open("/dev/ipfc", O_RDWR);
    if (device < 0)
        die("/dev/ipfc", 0);
    if (count == 4 && strcmp(words[1], "interfaces") == 0)
        make_interfaces(number_of(words[2]), number_of(words[3]));
    else if (count == 4 && strcmp(words[1], "delete") == 0)
        delete_interfaces(number_of(words[2]), number_of(words[3]));
    else if (count == 5 && strcmp(words[1], "mappings") == 0)
        store(number_of(words[2]), number_of(words[3]), number_of(words[4]));
    else if (count == 5 && strcmp(words[1], "forget") == 0)
        forget(number_of(words[2]), number_of(words[3]), number_of(words[4]));
    else {
        fputs("fill: see its source\n", stderr);
        return 1;
    }
    return 0;
}
