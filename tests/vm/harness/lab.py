# SPDX-License-Identifier: GPL-2.0-only
"""A lab: one or two machines on one Ethernet segment, for the length of one scenario."""

import select
import subprocess
import time

from . import initramfs, messages, wire
from .errors import Failure, NotReady
from .kernel import ROOT
from .machine import MEMORY, Machine

#: What a machine needs to see its network card; on some kernels these are built in.
STOCK_MODULES = ("virtio_pci", "virtio_net")


class Lab:
    """Boots machines, watches all of them while any of them is waited for, checks their logs.

    `folder` receives the console logs and the capture of the link (link.pcap). `limit` is the
    time in seconds that everything together may take.
    """

    def __init__(self, kernel, folder, limit=240, keep=False):
        self.kernel, self.folder = kernel, folder
        self.machines = []
        self.peer = None
        self.capture = folder / "link.pcap"
        self.initramfs = folder / "initramfs"
        self._deadline = time.monotonic() + limit
        self._limit = limit
        self._keep = keep
        folder.mkdir(parents=True, exist_ok=True)
        for left_over in folder.iterdir():
            left_over.unlink()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, traceback):
        if not (self._keep and kind is None):
            for machine in self.machines:
                machine.end()
        self.initramfs.unlink(missing_ok=True)

    def boot(
        self, *names, cpus=2, memory=MEMORY, stock_modules=(), files=None, kind=Machine
    ):  # fmt: skip
        """Boots a machine for each of the one or two `names` and gives them as a list.

        With one name the other end of the cable is `lab.peer`. `memory` is in MiB. `stock_modules`
        are further modules of the kernel's own, `files` maps paths in the machine to files of this
        computer.
        """
        if not 1 <= len(names) <= 2 or self.machines:
            raise Failure("a lab boots one or two machines, once")
        initramfs.build(
            self.initramfs, self.kernel, (*STOCK_MODULES, *stock_modules), self._files(files or {})
        )
        ends = wire.cable()
        for number, name in enumerate(names):
            capture = []
            if number == 0:
                dump = f"filter-dump,id=dump,netdev=link,file={self.capture},maxlen=65536"
                capture = ["-object", dump]
            self.machines.append(
                kind(
                    self,
                    name,
                    number,
                    self.kernel.processors or cpus,
                    memory + self.kernel.memory,
                    netdev=f"dgram,id=link,local.type=fd,local.str={ends[number].fileno()}",
                    mac=f"52:54:00:00:00:{number + 1:02x}",
                    extra_arguments=capture,
                    inherited=[ends[number]],
                    keep=self._keep,
                )
            )
        if len(names) == 1:
            self.peer = wire.Peer(ends[1], self.kernel.patience)
        else:
            ends[1].close()
        ends[0].close()
        for machine in self.machines:
            machine.wait_ready()
        return self.machines

    def wait_for_input(self, deadline):
        """Waits for any machine to say something; False when the deadline passes first.

        The scenario's own limit counts too, and the end of any machine is raised from here.
        """
        deadline = min(deadline, self._deadline)
        watched = {m.readable(): m for m in self.machines if m.alive}
        ready = select.select(list(watched), [], [], max(0, deadline - time.monotonic()))[0]
        for end in ready:
            watched[end].feed()
        if time.monotonic() > self._deadline:
            tails = [machine.tail() for machine in self.machines]
            raise Failure(f"the time limit of {self._limit} s is over\n" + "\n".join(tails))
        return bool(ready)

    def check_logs(self, also=()):
        """Fails when a living machine's kernel has said something bad that nobody has explained."""
        bad = []
        for machine in self.machines:
            if machine.alive:
                log = machine.log()
                (self.folder / f"{machine.name}.log").write_text(log)
                lines = messages.unexplained(log, also, self.kernel.old)
                bad += [f"{machine.name}: {line}" for line in lines]
        if bad:
            raise Failure("unexplained kernel messages:\n" + "\n".join(bad))

    def decode(self, *arguments):
        """Runs tshark over the capture of the link and gives what it prints."""
        command = [initramfs.find_program("tshark"), "-n", "-r", str(self.capture), *arguments]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"tshark: {done.stderr.strip()}")
        return done.stdout

    def _files(self, files):
        """The modules and programs go into every machine, as far as they have been built."""
        files = dict(files)
        for name in ("ipfc.ko", "brim_platform.ko"):
            if (self.kernel.out / name).exists():
                files[f"modules/{name}"] = self.kernel.out / name
        for name in ("ipfcctl", "ipfc-resolverd"):
            program = ROOT / "build" / "bin" / name
            if program.exists():
                files[f"bin/{name}"] = program
        for inside, outside in files.items():
            if not outside.exists():
                raise NotReady(f"{outside} is missing (wanted as {inside} in the machines)")
        return files
