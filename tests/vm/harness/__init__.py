# SPDX-License-Identifier: GPL-2.0-only
"""Scenarios on real kernels, in virtual machines.

A scenario is a file tests/vm/scenarios/<name>.py. It begins with a docstring that says in one
sentence what it shows and draws its topology, and has one function:

    from harness import Switch, expect

    def scenario(lab):
        a, b = lab.boot("a", "b", kind=Switch)  # or one machine; lab.peer is then the other end
        for switch in (a, b):
            switch.load()
            switch.create_vsan(10)
        expect(a.ping(b.port(10).ipv4).good, "a hears from b")

CMake finds it by itself and runs it on every kernel. By hand:
`tests/vm/run-scenario --kernel 6.1 <name>`, after ./test or ./run has laid down what it needs.
Console logs, kernel logs and the capture of the link stay in out/vm/<kernel>/<name>/.

In a machine
  run(command)            output of a shell command that must succeed
  try_run(command)        Result with status, out and err, whatever they are
  start(command)          the same without waiting: .wait() or .result() later
  wait_until(command)     until the command succeeds; never wait for a time
  json(command)           the decoded output
  background(name, command), put(path, content), log(), set_link(up)
  expect_death(command, console)  a command that must stop the kernel
Of a Switch further: load, unload, create_vsan, delete_vsan, ctl, link, ping, port.

Programs of tests/vm/programs get into a machine with lab.boot("a", files=programs("device"));
compile_static(source, program) makes others.

In the lab
  lab.peer                send(frame), receive(matches): Ethernet frames as bytes
  lab.decode(...)         tshark over the capture
  lab.check_logs()        done at the end of every scenario by itself

A scenario fails when it raises anything, when a machine goes down (panics do that at once, and
every warning is a panic), when a machine stops answering, when the time limit LIMIT (seconds, 240
unless the file sets another) is over, and when a kernel has logged a message of level warning or
worse that is neither in messages.py nor in the file's own EXPECTED, a list of (pattern of the
whole message, reason) for what the scenario provokes on purpose.
"""

from .errors import CommandFailed, Failure, MachineDied, NotReady, expect
from .fabric import PING_SIZES, VSAN_MTU, Ping, Port, Switch
from .kernel import ROOT, Kernel
from .lab import Lab
from .machine import Machine
from .programs import compile_static, programs
from .slabs import large_blocks

__all__ = [
    "PING_SIZES", "ROOT", "VSAN_MTU", "CommandFailed", "Failure", "Kernel", "Lab", "Machine",
    "MachineDied", "NotReady", "Ping", "Port", "Switch", "compile_static", "expect",
    "large_blocks", "programs",
]  # fmt: skip
