// SPDX-License-Identifier: GPL-2.0-only
// Packet sockets on one interface. Numbers and bytes are in hexadecimal; a result is the number of
// bytes that the kernel took, or a negative error number.
//
//   packet dgram DEVICE ETHERTYPE ADDRESS BYTES   the kernel builds the link-layer header
//   packet raw DEVICE ETHERTYPE BYTES [N]         the bytes are the header, too; N times
//   packet garbage DEVICE SEED                    raw, random bytes of every length up to 200;
//   prints
//                                                 "sent N refused N"
//   packet listen DEVICE COUNT                    prints "ready", and of each packet that comes in
//                                                 its kind, ethertype, hardware type and bytes
#include <arpa/inet.h>
#include <errno.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { MAX_ADDRESS = 32, MAX_PACKET = 65536 };

// With more room for an address than the kernel's header gives it.
struct address {
    struct sockaddr_ll ll;
    unsigned char more[MAX_ADDRESS];
};

static void die(const char* what)
{
    perror(what);
    exit(1);
}

static unsigned int number(const char* text)
{
    return (unsigned int)strtoul(text, NULL, 16);
}

static size_t bytes(const char* hex, unsigned char* to, size_t room)
{
    size_t length = strlen(hex) / 2;
    if (length > room)
        exit(1);
    for (size_t i = 0; i < length; i++) {
        char digits[3] = {hex[2 * i], hex[2 * i + 1], 0};
        to[i] = (unsigned char)strtoul(digits, NULL, 16);
    }
    return length;
}

static struct address device(const char* name, unsigned int ethertype)
{
    struct address address;
    memset(&address, 0, sizeof address);
    address.ll.sll_family = AF_PACKET;
    address.ll.sll_protocol = htons((unsigned short)ethertype);
    address.ll.sll_ifindex = (int)if_nametoindex(name);
    if (address.ll.sll_ifindex == 0)
        die(name);
    return address;
}

static int open_socket(int type, unsigned int ethertype)
{
    // Packets that wait for the resolver count against the sender.
    const int room = 4 << 20;
    int end = socket(AF_PACKET, type, htons((unsigned short)ethertype));
    if (end < 0)
        die("socket");
    if (setsockopt(end, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
        die("SO_SNDBUFFORCE");
    return end;
}

static long send_to(int end, const unsigned char* from, size_t length, const struct address* to)
{
    // The address is as long as what was written into it.
    size_t size = sizeof to->ll;
    if (to->ll.sll_halen > sizeof to->ll.sll_addr)
        size += to->ll.sll_halen - sizeof to->ll.sll_addr;
    ssize_t sent = sendto(end, from, length, 0, (const struct sockaddr*)to, (socklen_t)size);
    return sent < 0 ? -errno : sent;
}

static int dgram(char** words)
{
    static unsigned char packet[MAX_PACKET];
    unsigned int ethertype = number(words[1]);
    struct address to = device(words[0], ethertype);
    size_t length = bytes(words[3], packet, sizeof packet);
    to.ll.sll_halen = (unsigned char)bytes(words[2], to.ll.sll_addr, MAX_ADDRESS);
    printf("%ld\n", send_to(open_socket(SOCK_DGRAM, 0), packet, length, &to));
    return 0;
}

static int raw(char** words)
{
    static unsigned char packet[MAX_PACKET];
    struct address to = device(words[0], number(words[1]));
    size_t length = bytes(words[2], packet, sizeof packet);
    unsigned int rounds = words[3] != NULL ? number(words[3]) : 1;
    int end = open_socket(SOCK_RAW, 0);
    long sent = 0;
    while (rounds--)
        sent = send_to(end, packet, length, &to);
    printf("%ld\n", sent);
    return 0;
}

// Random bytes; half of them get as far as their length lets them, because they claim an ethertype
// that the driver carries, and half of those go to everybody.
static void make_garbage(unsigned char* packet, size_t length, unsigned int ethertype)
{
    enum { FCID_AT = 64, ETHERTYPE_AT = 90 };
    for (size_t i = 0; i < length; i++)
        packet[i] = (unsigned char)random();
    if (length < ETHERTYPE_AT + 2 || random() % 2 != 0)
        return;
    packet[ETHERTYPE_AT] = (unsigned char)(ethertype >> 8);
    packet[ETHERTYPE_AT + 1] = (unsigned char)ethertype;
    if (random() % 2 == 0)
        memcpy(packet + FCID_AT, "\x00\xff\xff\xff", 4);
}

static int garbage(char** words)
{
    static const unsigned int ethertypes[] = {0x0800, 0x0806, 0x86DD, 0x1234};
    unsigned char packet[200];
    unsigned int sent = 0;
    unsigned int refused = 0;
    int end = open_socket(SOCK_RAW, 0);
    srandom(number(words[1]));
    for (unsigned int round = 0; round < 4; round++) {
        struct address to = device(words[0], ethertypes[round]);
        for (size_t length = 0; length <= sizeof packet; length++) {
            make_garbage(packet, length, ethertypes[round]);
            if (send_to(end, packet, length, &to) == (long)length)
                sent++;
            else
                refused++;
        }
    }
    printf("sent %u refused %u\n", sent, refused);
    return 0;
}

static int listen_to(char** words)
{
    static unsigned char packet[MAX_PACKET];
    int end = open_socket(SOCK_DGRAM, 3 /* everything */);
    struct address at = device(words[0], 3);
    if (bind(end, (struct sockaddr*)&at.ll, sizeof at.ll) != 0)
        die("bind");
    puts("ready");
    fflush(stdout);
    for (unsigned int count = number(words[1]); count > 0;) {
        struct sockaddr_ll from;
        socklen_t size = sizeof from;
        ssize_t length = recvfrom(end, packet, sizeof packet, 0, (struct sockaddr*)&from, &size);
        if (length < 0)
            die("recvfrom");
        if (from.sll_pkttype == PACKET_OUTGOING)
            continue;
        printf("%u %04x %u ", from.sll_pkttype, ntohs(from.sll_protocol), from.sll_hatype);
        for (ssize_t i = 0; i < length; i++)
            printf("%02x", packet[i]);
        putchar('\n');
        fflush(stdout);
        count--;
    }
    return 0;
}

int main(int count, char** words)
{
    if (count >= 6 && strcmp(words[1], "dgram") == 0)
        return dgram(words + 2);
    if (count >= 5 && strcmp(words[1], "raw") == 0)
        return raw(words + 2);
    if (count >= 4 && strcmp(words[1], "garbage") == 0)
        return garbage(words + 2);
    if (count >= 4 && strcmp(words[1], "listen") == 0)
        return listen_to(words + 2);
    fputs("packet: see its source\n", stderr);
    return 1;
}
