# SPDX-License-Identifier: GPL-2.0-only
"""What the driver has to say for debugging reaches user space, and only when it is asked to.

    +--------+
    | vsan10 |
    |   a    | eth0 ----- (nobody)
    +--------+
"""

from harness import Switch, expect

FOLDER = "/proc/brim_sw/dbgtap/ipfc"


def scenario(lab):
    (a,) = lab.boot("a", kind=Switch)
    a.load()
    for element in ("errors", "events"):
        expect(read(a, f"{element}/history_enabled") == "0\n", f"no history of {element} at first")
        expect(read(a, f"{element}/log_enabled") == "0\n", f"{element} stay out of the log at first")
        expect(read(a, f"{element}/history") == "", f"the history of {element} is empty")
    a.create_vsan(10, addresses=False)
    expect(read(a, "events/history") == "", "what is off keeps nothing")
    expect("<{ipfc}>" not in a.log(), "and logs nothing")

    write(a, "events/history_enabled", "1")
    a.ctl("vsan create 11 --wwpn 20:0b:02:00:00:00:00:01 --wwnn 10:00:02:00:00:00:00:01")
    lines = read(a, "events/history").splitlines()
    for line in ("creating VSAN interface 11", "VSAN interface11 created"):
        expect(line in lines, f"the history has the line \"{line}\":\n{lines}")
    expect("<{ipfc}>" not in a.log(), "the history does not fill the log")

    write(a, "events/history_enabled", "0")
    write(a, "events/log_enabled", "1")
    before = read(a, "events/history")
    a.ctl("vsan delete 11")
    expect(read(a, "events/history") == before, "a history that is off keeps what it has")
    expect("<{ipfc}>Removing interface 11" in a.log(), "the log has the message and its module")

    write(a, "events/log_enabled", "0")
    write(a, "events/history", "0")
    expect(read(a, "events/history") == "", "a written history is empty")
    expect(a.try_run(f"echo on > {FOLDER}/events/log_enabled").status != 0, "\"on\" is no switch")

    # A long history, read in small pieces while it grows.
    write(a, "events/history_enabled", "1")
    a.run("for i in $(seq 200); do ipfcctl vsan up 10; done", timeout=120)
    whole = read(a, "events/history")
    expect(whole.count("Updating VSAN Interface 10\n") == 200, "every event is there")
    pieces = a.run(f"dd if={FOLDER}/events/history bs=7 2>/dev/null")
    expect(pieces == whole, "small reads give the same text")
    a.unload()


def read(switch, name):
    return switch.run(f"cat {FOLDER}/{name}")


def write(switch, name, text):
    switch.run(f"echo {text} > {FOLDER}/{name}")
