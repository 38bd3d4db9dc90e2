# SPDX-License-Identifier: GPL-2.0-only
"""One virtual machine: the qemu process, its console log, and the servant on the second port."""

import base64
import contextlib
import ctypes
import gzip
import json
import shlex
import signal
import socket
import subprocess
import time

from . import initramfs
from .errors import CommandFailed, Failure, MachineDied

#: MiB. With the translation buffer below, a machine stays under 512 MiB of this computer's memory.
MEMORY = 256
TRANSLATION_BUFFER = 128

#: Seconds in which a machine has to be ready for commands. A kernel needs about 4; a loaded
#: computer may need many times that.
BOOT_LIMIT = 120

#: Seconds without a word after which a machine is nudged.
NUDGE = 2

#: A longer request would overrun the terminal layer's buffer in the machine.
REQUEST_LIMIT = 32768

#: panic_on_warn, oops, panic: a warning ends the machine, and qemu's -no-reboot ends qemu.
#: log_buf_len: the log is checked as a whole at the end, so nothing may fall out of it.
#: tsc: the clock of an emulated processor is steady, but not against the emulated timer chips
#: whenever this computer is busy; and then the check of the timer chip at boot fails, too.
#: slab_nomerge: a cache with a line of its own in /proc/slabinfo is also one whose end warns of
#: objects that were not given back.
COMMAND_LINE = (
    "console=ttyS0 rdinit=/init panic_on_warn=1 oops=panic panic=-1 "
    "log_buf_len=4M loglevel=7 random.trust_cpu=on tsc=nowatchdog no_timer_check trace_clock=global "
    "nohugeiomap slab_nomerge"
)


class Result:
    """What a command in a machine gave: `status`, `out` and `err`."""

    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err


class Pending:
    """A command under way. One machine serves one command at a time."""

    def __init__(self, machine, command, number, deadline):
        self._machine, self._command = machine, command
        self._number, self._deadline = number, deadline

    def result(self):
        """Waits for the end of the command, whatever its status."""
        return self._machine._collect(self._number, self._command, self._deadline)

    def wait(self):
        """Waits for the end of the command, which must be a good one, and gives its output."""
        result = self.result()
        if result.status != 0:
            raise CommandFailed(
                f"{self._machine.name}: `{self._command}` ended with status {result.status}\n"
                f"{result.out}{result.err}".rstrip()
            )
        return result.out


class Machine:
    """A virtual machine of a lab. Made by Lab.boot()."""

    def __init__(
        self, lab, name, number, cpus, memory, netdev, mac, extra_arguments, inherited, keep
    ):  # fmt: skip
        self.lab, self.name = lab, name
        self.console_path = lab.folder / f"{name}.console"
        self.console_port = None
        self._said = b""
        self._number = 0
        self._busy = False
        self._expect_death = False
        self._dead = False
        self._input = b""
        # Two ends each: the near one stays here, the far one goes to qemu.
        self._agent, agent_far = socket.socketpair()
        self._monitor, monitor_far = socket.socketpair()
        handed_over = [agent_far, monitor_far, *inherited]
        console = f"file,id=console,path={self.console_path}"
        if keep:
            listener = socket.create_server(("127.0.0.1", 0))
            self.console_port = listener.getsockname()[1]
            handed_over.append(listener)
            console = (
                f"socket,id=console,fd={listener.fileno()},server=on,wait=off,telnet=on,"
                f"logfile={self.console_path}"
            )
        command_line = f"{COMMAND_LINE} ipfc.name={name}"
        board, card, processors = "q35", "virtio-net-pci", str(cpus)
        if lab.kernel.old:
            # Such a kernel takes a negative time before the restart for an eternity, and the word
            # that spares it the check of the timer chip for the opposite. With delays that last some
            # times longer than asked for, the check sees its ticks on a busy computer, too.
            command_line = command_line.replace("panic=-1", "panic=1")
            command_line = command_line.replace(" no_timer_check", " lpj=60000000")
            # Its driver for the other card carries no frames above 1500 bytes.
            board, card = "q35,hpet=off", "e1000"
            # Without ACPI it goes by the table that names whole processors only.
            processors = f"{cpus},sockets={cpus}"
        arguments = [
            initramfs.find_program("qemu-system-x86_64"),
            "-name", name, "-M", board, "-nodefaults", "-no-user-config", "-display", "none",
            "-no-reboot", "-accel", f"tcg,tb-size={TRANSLATION_BUFFER}",
            # max: with SMEP and SMAP, so that a stray access to user memory is seen.
            "-cpu", "max,la57=off,vendor=GenuineIntel,mtrr=off", "-smp", processors, "-m", str(memory),
            "-kernel", str(lab.kernel.image), "-initrd", str(lab.initramfs),
            "-append", command_line,
            "-chardev", console, "-serial", "chardev:console",
            "-chardev", f"socket,id=agent,fd={agent_far.fileno()}", "-serial", "chardev:agent",
            "-chardev", f"socket,id=monitor,fd={monitor_far.fileno()}",
            "-mon", "chardev=monitor,mode=control",
            "-netdev", netdev,
            "-device", f"{card},id=card,netdev=link,mac={mac},romfile=",
            *extra_arguments,
        ]  # fmt: skip
        self._complaints = lab.folder / f"{name}.qemu"
        with open(self._complaints, "wb") as complaints:
            self.process = subprocess.Popen(
                arguments,
                stdin=subprocess.DEVNULL,
                stdout=complaints,
                stderr=complaints,
                pass_fds=[end.fileno() for end in handed_over],
                start_new_session=True,
                preexec_fn=None if keep else _die_with_parent,
            )
        for end in (agent_far, monitor_far):
            end.close()
        if keep:
            listener.close()

    # ---- commands -------------------------------------------------------------------------

    def run(self, command, timeout=30):
        """Runs a shell command; gives its output; any status but 0 is a failure."""
        return self.start(command, timeout).wait()

    def try_run(self, command, timeout=30):
        """Runs a shell command and gives its Result, whatever the status."""
        return self.start(command, timeout).result()

    def start(self, command, timeout=30):
        """Begins a shell command and gives a Pending, so that two machines can work at once."""
        if self._busy:
            raise Failure(f"{self.name}: `{command}` while another command is under way")
        self._number += 1
        self._busy = True
        timeout *= self.lab.kernel.patience
        text = base64.b64encode(command.encode()).decode()
        if len(text) > REQUEST_LIMIT:
            raise Failure(f"{self.name}: a command of {len(command)} bytes is too long")
        try:
            self._agent.sendall(f"{self._number} {timeout} {text}\n".encode())
        except OSError as error:
            self._dead = True
            raise self.death("the servant's port is closed") from error
        # The machine ends the command itself at its limit; the margin is for a busy computer.
        return Pending(self, command, self._number, time.monotonic() + timeout + 30)

    def json(self, command, timeout=30):
        """Runs a command that prints JSON and gives the decoded value."""
        return json.loads(self.run(command, timeout))

    def wait_until(self, command, timeout=30):
        """Waits until the shell command ends with status 0; gives its output."""
        loop = (
            f"until ( {command}\n) > /run/servant/condition 2>&1; do usleep 50000; done; "
            "cat /run/servant/condition"
        )
        result = self.try_run(loop, timeout)
        if result.status != 0:
            last = self.try_run("cat /run/servant/condition").out
            raise Failure(f"{self.name}: still not so after {timeout} s: `{command}`\n{last}")
        return result.out

    def background(self, name, command):
        """Leaves a command running; its output gathers in /run/background/<name>."""
        quoted = shlex.quote(command)
        self.run(
            f"setsid /bin/sh -c {quoted} > /run/background/{name} 2>&1 < /dev/null & "
            f"echo $! > /run/background/{name}.pid"
        )

    def put(self, path, content, mode=0o755):
        """Writes a small file (up to some 20 KiB) into the machine."""
        text = base64.b64encode(content).decode()
        self.run(f"echo {text} | base64 -d > {path} && chmod {mode:o} {path}")

    def log(self):
        """The kernel's log from the first line on, with a "<level>" before each line."""
        log = self.run("dmesg -r", timeout=60)
        if "Linux version" not in log.splitlines()[0]:
            raise Failure(f"{self.name}: the kernel's log overflowed, its first lines are lost")
        return log

    # ---- the machine itself ---------------------------------------------------------------

    def set_link(self, up):
        """Pulls the cable out of the network card or puts it back."""
        self.monitor("set_link", name="card", up=up)

    def monitor(self, command, **arguments):
        """Sends one command to qemu's monitor and gives its answer."""
        self._monitor.settimeout(30)
        if not self._said:
            self._monitor_line()
            self._said = b"greeted"
            self._monitor_call("qmp_capabilities", {})
        return self._monitor_call(command, arguments)

    def expect_death(self, command, console):
        """Runs a command that must take the kernel down, and `console` must say so."""
        self._expect_death = True
        pending = self.start(command)
        try:
            pending.result()
        except MachineDied:
            if console not in self.console():
                raise
            return
        raise Failure(f"{self.name}: `{command}` did not stop the kernel")

    def console(self):
        return self.console_path.read_text(errors="replace")

    def wait_ready(self):
        """Waits for the machine's report for duty."""
        limit = BOOT_LIMIT * self.lab.kernel.patience
        deadline = time.monotonic() + limit
        while (line := self._line(deadline, "the boot")) == "":
            pass  # the echo of a nudge
        if not line.startswith("READY "):
            raise Failure(f"{self.name}: did not come up well: {line}")
        self.release = line.split()[1]
        self.wait_until("test -e /sys/class/net/eth0")

    def death(self, reason):
        """The exception for the end of this machine, with what its console said last."""
        complaints = self._complaints.read_text(errors="replace").strip()
        return MachineDied(f"{self.name}: {reason}\n{self.tail()}\n{complaints}")

    def tail(self):
        lines = self.console().splitlines()[-60:]
        return "\n".join([f"---- console of {self.name}", *lines, "----"])

    def end(self):
        """Takes the power away."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self._agent.close()
        self._monitor.close()

    # ---- the servant's protocol -----------------------------------------------------------

    @property
    def alive(self):
        return not self._dead

    def readable(self):
        """The socket that tells of answers, and of the machine's end."""
        return self._agent

    def feed(self):
        """Takes in what the servant has sent; called by the lab when there is something."""
        try:
            part = self._agent.recv(1 << 16)
        except OSError:
            part = b""
        self._input += part
        if not part:
            self._dead = True
            if not self._expect_death:
                raise self.death("the machine went down")

    def _line(self, deadline, what):
        while b"\n" not in self._input:
            if self._dead:
                raise self.death(f"the machine went down during {what}")
            if self.lab.wait_for_input(min(deadline, time.monotonic() + NUDGE)):
                continue
            if time.monotonic() > deadline:
                raise self.death(f"no answer in time during {what}")
            self._nudge()
        line, self._input = self._input.split(b"\n", 1)
        return line.decode(errors="replace").rstrip("\r")

    def _nudge(self):
        """An old kernel now and then misses the port's interrupt, and sends on with the next."""
        if self.lab.kernel.old:
            with contextlib.suppress(OSError):
                self._agent.sendall(b"\n")

    def _collect(self, number, command, deadline):
        what = f"`{command}`"
        head = self._line(deadline, what).split()
        if head[:2] != ["REPLY", str(number)]:
            raise self.death(f"the servant answered {head!r} to {what}")
        out, err = (self._block(deadline, what) for _ in range(2))
        self._busy = False
        return Result(int(head[2]), out, err)

    def _block(self, deadline, what):
        lines = []
        while (line := self._line(deadline, what)) != ".":
            lines.append(line)
        return gzip.decompress(base64.b64decode("".join(lines))).decode(errors="replace")

    # ---- qemu's monitor -------------------------------------------------------------------

    def _monitor_call(self, command, arguments):
        request = {"execute": command, "arguments": arguments}
        self._monitor.sendall(json.dumps(request).encode() + b"\n")
        while True:
            answer = self._monitor_line()
            if "error" in answer:
                raise Failure(f"{self.name}: monitor: {command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def _monitor_line(self):
        line = b""
        while not line.endswith(b"\n"):
            part = self._monitor.recv(1)
            if not part:
                raise self.death("the monitor is closed")
            line += part
        return json.loads(line)


def _die_with_parent():
    """Lets the kernel end qemu together with the harness, however that one ends."""
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
