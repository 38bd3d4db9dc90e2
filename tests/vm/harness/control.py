# SPDX-License-Identifier: GPL-2.0-only
"""The control device's commands and records, written out byte by byte, and a machine's own program
(tests/vm/programs/device.c) that sends them."""

import struct

from .errors import expect

ADD_MAPPING, DEL_MAPPING, UPD_MAPPING, NOT_FOUND = "40105003", "40105004", "40105005", "40105006"
GET_INTF, GET_STATS, CLEANUP, CLEAR_STATS = "c0345007", "c0ac5008", "00005009", "4034500a"
ADD_HOST, DEL_HOST, CREATE, DELETE = "4014500c", "4014500d", "4034500e", "4034500f"
UPDATE, SET_IP, HEADROOM = "40345010", "40145011", "40045012"
REM_FCID, SET_FCID, ADMIN_UP, ADMIN_DOWN = range(4)

EPERM, ENXIO, EAGAIN, EFAULT, EINVAL, ENOTTY = -1, -6, -11, -14, -22, -25

WWPN = bytes.fromhex("200a020000000001")
WWNN = bytes.fromhex("1000020000000001")

DBGTAP = "/proc/brim_sw/dbgtap/ipfc"


def mapping(vsan, name, fcid=0):
    """A port name and its FC address, in hexadecimal like everything here."""
    return struct.pack("<i8s4s", vsan, name, fcid.to_bytes(4, "big")).hex()


def interface(vsan, fcid=0, wwpn=WWPN, wwnn=WWNN, ifindex=0, action=0, ip=bytes(20)):
    record = struct.pack("<i4s8s8sII", vsan, fcid.to_bytes(4, "big"), wwpn, wwnn, ifindex, action)
    return (record + ip).hex()


def host(vsan, fcid, name, address="0a000001"):
    return (bytes.fromhex(address) + name + struct.pack(">II", fcid, vsan)).hex()


class Device:
    """The control device of one machine, worked by the program `tool`: device or device32."""

    def __init__(self, machine, tool="device"):
        self._machine, self._tool = machine, tool

    def work(self, *lines, path="/dev/ipfc"):
        """Runs the script; what each line gave, as (result, bytes afterwards)."""
        text = "\n".join((f"open {path}", *lines))
        answers = self._machine.run(f"{self._tool} <<'END'\n{text}\nEND", timeout=60).splitlines()
        expect(answers[0] == "0", f"{path} opens: {answers[0]}")
        return [(int(result), told) for result, _, told in (a.partition(" ") for a in answers[1:])]

    def one(self, line):
        [answer] = self.work(line)
        return answer

    def check(self, *rows):
        """Rows of (line, result): each line's result must be as its row says."""
        answers = self.work(*(line for line, _ in rows))
        for (line, wanted), (result, _) in zip(rows, answers, strict=True):
            expect(result == wanted, f"{self._tool}: `{line}` gives {wanted} and not {result}")

    def refuse(self, *rows):
        """Rows of (line, result, message): the message that goes to the element "errors", or None.

        The element's history has to be switched on.
        """
        history = f"{DBGTAP}/errors/history"
        for part in (rows[begin : begin + 30] for begin in range(0, len(rows), 30)):
            script = ["open /dev/ipfc", f"take {history}"]
            for line, _, _ in part:
                script += [line, f"take {history}"]
            text = "\n".join(script)
            answers = self._machine.run(f"{self._tool} <<'END'\n{text}\nEND", timeout=60).splitlines()
            for row, given, said in zip(part, answers[2::2], answers[3::2], strict=True):
                line, result, message = row
                told = f"{self._tool}: `{line}`"
                expect(given.split()[0] == str(result), f"{told} gives {result} and not {given}")
                expect(said == (f"{message}|" if message else ""), f"{told} says {message!r}: {said!r}")
