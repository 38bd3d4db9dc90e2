# SPDX-License-Identifier: GPL-2.0-only
"""A foreign station on the link: the far end of a machine's cable, in this program's hands."""

import contextlib
import select
import socket
import threading
import time

from .errors import Failure


class Peer:
    """Sends and receives whole Ethernet frames, without the frame check sequence."""

    def __init__(self, end, patience=1):
        self._end = end
        self._patience = patience

    def send(self, frame):
        self._end.send(frame)

    def receive(self, matches=lambda frame: True, timeout=10):
        """The next frame for which `matches` is true; the others are thrown away."""
        timeout *= self._patience
        deadline = time.monotonic() + timeout
        seen = 0
        while (left := deadline - time.monotonic()) > 0:
            if not select.select([self._end], [], [], left)[0]:
                break
            frame = self._end.recv(1 << 17)
            if matches(frame):
                return frame
            seen += 1
        raise Failure(f"no such frame within {timeout} s ({seen} others were seen)")

    def drain(self):
        """Throws away what has arrived so far."""
        while select.select([self._end], [], [], 0)[0]:
            self._end.recv(1 << 17)

    @contextlib.contextmanager
    def swallowing(self):
        """Within, whatever arrives is thrown away at once, so that no sender has to wait."""
        over = threading.Event()

        def swallow():
            while not over.is_set():
                if select.select([self._end], [], [], 0.05)[0]:
                    self._end.recv(1 << 17)

        thread = threading.Thread(target=swallow)
        thread.start()
        try:
            yield
        finally:
            over.set()
            thread.join()


def cable():
    """Two ends of a lossless Ethernet segment: a full queue makes the sender wait."""
    ends = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
    for end in ends:
        end.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1 << 20)
    return ends
