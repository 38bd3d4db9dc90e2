# SPDX-License-Identifier: GPL-2.0-only
"""A foreign N_Port on lab.peer: Fibre Channel frames written and read byte by byte, from the
standards and not from the driver's sources (FC-FS frames and VFT header, FC-BB FCoE, FC-LS link
services, RFC 2625 headers)."""

import dataclasses
import struct
import zlib

from .errors import Failure, expect

BROADCAST = 0xFFFFFF
SOF_I3, SOF_N3, EOF_N, EOF_T = 0x2E, 0x36, 0x41, 0x42
DATA, ELS_REQUEST, ELS_REPLY = 0x04, 0x22, 0x23
TYPE_ELS, TYPE_IP = 1, 5
LS_RJT, LS_ACC, PLOGI, LOGO = 1, 2, 3, 5
RESPONDER, FIRST, LAST, END, INITIATIVE = 0x800000, 0x200000, 0x100000, 0x080000, 0x010000
IPV4, ARP, IPV6 = 0x0800, 0x0806, 0x86DD


def mac(fcid):
    """The Ethernet address of an FC address: fabric-provided, or everybody's."""
    return b"\xff" * 6 if fcid == BROADCAST else b"\x0e\xfc\x00" + fcid.to_bytes(3, "big")


@dataclasses.dataclass
class Frame:
    """One FC frame, with what encloses it on Ethernet."""

    vsan: int
    d_id: int
    s_id: int
    r_ctl: int
    type: int
    data: bytes
    f_ctl: int = FIRST | END
    cs_ctl: int = 0
    seq_id: int = 0
    df_ctl: int = 0
    seq_cnt: int = 0
    ox_id: int = 1
    rx_id: int = 0xFFFF
    param: int = 0
    hops: int = 0xFF
    sof: int = SOF_I3
    eof: int = EOF_T

    def encode(self):
        fill = -len(self.data) % 4
        ethernet = mac(self.d_id) + mac(self.s_id) + b"\x89\x06"
        fcoe = bytes(13) + bytes([self.sof])
        vft = struct.pack(">BBHB3x", 0x50, 0, self.vsan << 1, self.hops)
        words = (
            self.r_ctl << 24 | self.d_id,
            self.cs_ctl << 24 | self.s_id,
            self.type << 24 | self.f_ctl | fill,
            self.seq_id << 24 | self.df_ctl << 16 | self.seq_cnt,
            self.ox_id << 16 | self.rx_id,
            self.param,
        )
        covered = vft + struct.pack(">6I", *words) + self.data + bytes(fill)
        end = struct.pack("<IB3x", zlib.crc32(covered), self.eof)
        return ethernet + fcoe + covered + end

    @staticmethod
    def decode(frame):
        """Reads a frame of ours; anything in it that is not as it must be is a failure."""
        sof, eof = frame[27], frame[-4]
        vft, words = frame[28:36], struct.unpack(">6I", frame[36:60])
        fill = words[2] & 3
        self = Frame(
            vsan=int.from_bytes(vft[2:4], "big") >> 1,
            d_id=words[0] & 0xFFFFFF, s_id=words[1] & 0xFFFFFF,
            r_ctl=words[0] >> 24, type=words[2] >> 24, cs_ctl=words[1] >> 24,
            f_ctl=words[2] & 0xFFFFFC, seq_id=words[3] >> 24, df_ctl=words[3] >> 16 & 0xFF,
            seq_cnt=words[3] & 0xFFFF, ox_id=words[4] >> 16, rx_id=words[4] & 0xFFFF,
            param=words[5], hops=vft[4], sof=sof, eof=eof, data=frame[60 : len(frame) - 8 - fill],
        )  # fmt: skip
        # Everything is in the fields, so encoding them must give the same bytes again.
        again = self.encode()
        if again != frame:
            raise Failure(f"the frame {frame.hex()} ought to be {again.hex()}")
        expect((sof, self.seq_cnt) in ((SOF_I3, 0),) or sof == SOF_N3, f"SOF of {frame.hex()}")
        expect((eof == EOF_T) == bool(self.f_ctl & END), f"EOF of {frame.hex()}")
        return self


def network_header(source, destination, ethertype):
    """RFC 2625: two names, each 10 00 and six bytes, and the LLC/SNAP header."""
    names = b"\x10\x00" + destination[-6:] + b"\x10\x00" + source[-6:]
    return names + b"\xaa\xaa\x03\x00\x00\x00" + ethertype.to_bytes(2, "big")


def hardware_address(name, fcid):
    return name + fcid.to_bytes(4, "big")


def arp(operation, sender, sender_ip, target, target_ip):
    """ARP with hardware addresses of 12 or of 6 bytes."""
    kind = 18 if len(sender) == 12 else 1
    head = struct.pack(">HHBBH", kind, IPV4, len(sender), 4, operation)
    return head + sender + ip_bytes(sender_ip) + target + ip_bytes(target_ip)


def ip_bytes(address):
    return bytes(int(part) for part in address.split("."))


def checksum(data):
    total = sum(struct.unpack(f">{(len(data) + 1) // 2}H", data + bytes(len(data) % 2)))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def icmp_echo(source, destination, payload, reply=False, number=1, identification=0x1234):
    """An IPv4 packet with an echo request or reply."""
    kind = 0 if reply else 8
    icmp = struct.pack(">BBHHH", kind, 0, 0, 0x4321, number) + payload
    icmp = icmp[:2] + checksum(icmp).to_bytes(2, "big") + icmp[4:]
    length = 20 + len(icmp)
    head = struct.pack(">BBHHHBBH", 0x45, 0, length, identification, 0, 64, 1, 0)
    head += ip_bytes(source) + ip_bytes(destination)
    return head[:10] + checksum(head).to_bytes(2, "big") + head[12:] + icmp


def captured(path):
    """The FC frames that a capture of the link holds, the oldest first."""
    content = path.read_bytes()
    frames, at = [], 24
    while at + 16 <= len(content):
        size = int.from_bytes(content[at + 8 : at + 12], "little")
        raw = content[at + 16 : at + 16 + size]
        # The last one may not have been written to its end.
        if len(raw) == size and raw[12:14] == b"\x89\x06":
            frames.append(Frame.decode(raw))
        at += 16 + size
    return frames


class ForeignPort:
    """An N_Port of another make, with a name and an address of its own, on `lab.peer`.

    It does nothing by itself: the scenario says what it sends and what it waits for.
    """

    def __init__(self, peer, vsan, fcid, name, ipv4=None):
        self.peer, self.vsan, self.fcid, self.name, self.ipv4 = peer, vsan, fcid, name, ipv4
        self._ox_id = 0x100

    @property
    def ieee_name(self):
        """The name as it is told from a network header."""
        return b"\x10\x00" + self.name[-6:]

    def frame(self, d_id, r_ctl, type, data, **fields):
        self._ox_id += 1
        fields.setdefault("ox_id", self._ox_id)
        return Frame(self.vsan, d_id, self.fcid, r_ctl, type, data, **fields)

    def send(self, frame):
        self.peer.send(frame.encode() if isinstance(frame, Frame) else frame)

    def receive(self, what, matches, timeout=10):
        """The next frame to this port, or to all, of which `matches(frame)` is true."""

        def wanted(raw):
            if raw[12:14] != b"\x89\x06" or len(raw) < 68:
                return False
            frame = Frame.decode(raw)
            to_us = frame.vsan == self.vsan and frame.d_id in (self.fcid, BROADCAST)
            return to_us and matches(frame)

        try:
            return Frame.decode(self.peer.receive(wanted, timeout))
        except Failure as failure:
            raise Failure(f"{what}: {failure}") from failure

    # ---- link services ----

    def login_data(self, code):
        """The payload of PLOGI and of its LS_ACC: class 3 alone, 2112 bytes to a frame."""
        common = struct.pack(">8H", 0x2020, 4, 0x8800, 2112, 255, 0x1F, 0, 2000)
        class3 = struct.pack(">8H", 0x8800, 0, 0, 2112, 255, 0, 1, 0)
        payload = bytes([code, 0, 0, 0]) + common + self.name + self.name
        return payload + bytes(32) + class3 + bytes(16) + bytes(16)

    def request(self, d_id, data, **fields):
        frame = self.frame(d_id, ELS_REQUEST, TYPE_ELS, data, f_ctl=FIRST | END | INITIATIVE, **fields)
        self.send(frame)
        return frame

    def answer(self, request, data):
        """Answers an ELS request of the other side's."""
        frame = self.frame(
            request.s_id, ELS_REPLY, TYPE_ELS, data, f_ctl=RESPONDER | LAST | END, ox_id=request.ox_id,
            rx_id=0x77,
        )  # fmt: skip
        self.send(frame)

    def accept(self, plogi):
        self.answer(plogi, self.login_data(LS_ACC))

    def refuse(self, request):
        """LS_RJT: unable to perform the command, for no particular reason."""
        self.answer(request, bytes([LS_RJT, 0, 0, 0, 0, 0x09, 0, 0]))

    def reply_to(self, request, timeout=10):
        return self.receive(
            "the answer to a link service", lambda f: f.r_ctl == ELS_REPLY and f.ox_id == request.ox_id,
            timeout,
        )  # fmt: skip

    def log_in(self, d_id):
        """Sends PLOGI; gives the answer."""
        return self.reply_to(self.request(d_id, self.login_data(PLOGI)))

    def log_out(self, d_id):
        """Sends LOGO; gives the answer."""
        data = bytes([LOGO, 0, 0, 0]) + self.fcid.to_bytes(4, "big") + self.name
        return self.reply_to(self.request(d_id, data))

    def wait_els(self, code, timeout=10):
        """The next link service that asks this port for something."""
        return self.receive(
            f"link service {code}", lambda f: f.r_ctl == ELS_REQUEST and f.data[0] == code, timeout
        )

    # ---- data ----

    def packet(self, d_id, destination, ethertype, packet, **fields):
        """The frame around a packet to the port name `destination`."""
        data = network_header(self.name, destination, ethertype) + packet
        fields.setdefault("df_ctl", 0x20)
        return self.frame(d_id, DATA, TYPE_IP, data, **fields)

    def wait_data(self, ethertype, timeout=10, more=lambda frame: True):
        return self.receive(
            f"data of type {ethertype:#x}",
            lambda f: f.r_ctl == DATA and f.data[22:24] == ethertype.to_bytes(2, "big") and more(f),
            timeout,
        )
