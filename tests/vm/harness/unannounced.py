# SPDX-License-Identifier: GPL-2.0-only
"""Packets for a port of which a machine knows the name alone, as its transmission gets them."""

import ipaddress
import struct

from .fc import IPV4, hardware_address, network_header

#: In front of a packet that is to be transmitted: room for a frame's headers.
RESERVE = bytes(56)


def name_of(port):
    return bytes.fromhex(port.port_name.replace(":", ""))


def wire_name(port):
    """The port's name as packets carry it: its last 48 bits behind 10 00."""
    return b"\x10\x00" + name_of(port)[2:]


def text_of(name):
    return ":".join(f"{byte:02x}" for byte in name)


def frame(source, destination, packet):
    """A packet as it lies in front of transmission, for a name and no address."""
    headers = destination + network_header(source, destination, IPV4)[8:]
    return RESERVE + hardware_address(destination, 0) + headers + packet


def echo_request(source, destination):
    """An IPv4 ping."""
    icmp = bytes.fromhex("08000000 4a4b0001") + bytes(range(32))
    icmp = icmp[:2] + _checksum(icmp) + icmp[4:]
    ip = bytes.fromhex("4500003c 00004000 40010000")
    ip += ipaddress.ip_address(source).packed + ipaddress.ip_address(destination).packed
    return ip[:10] + _checksum(ip) + ip[12:] + icmp


def echo_reply_pattern(request):
    """Matches the answer in hexadecimal: type 0, then the request's identifier, number and data."""
    return f"0000....{request[24:].hex()}"


def _checksum(header):
    total = sum(struct.unpack(f">{len(header) // 2}H", header))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return struct.pack(">H", ~total & 0xFFFF)
