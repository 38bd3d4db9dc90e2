# SPDX-License-Identifier: GPL-2.0-only
"""What the documents show is what happens: their commands print what stands below them, and the
frames that they take apart are on the link.

    +------------------------+            +------------------------+
    | the examples of        |            | the examples of        |
    | docs/*.md behind "a#"  |            | docs/*.md behind "b#"  |
    |   a               eth0 +---- FCoE --+ eth0              b    |
    +------------------------+            +------------------------+

With IPFC_DOCS_RECORD=1 in the environment, what is seen is written into the documents instead.
"""

import os
import sys
import time

from harness import ROOT, Failure, Switch, compile_static, expect, programs

sys.path.insert(0, str(ROOT / "tests" / "docs"))

from documents import Wait, Wrong, documents, dump  # noqa: E402

LIMIT = 400
RECORD = os.environ.get("IPFC_DOCS_RECORD") == "1"


def scenario(lab):
    try:
        hold_to(lab)
    except Wrong as wrong:
        raise Failure(str(wrong)) from wrong


def hold_to(lab):
    with_consoles = [d for d in documents() if any(on_switches(block) for block in d.blocks("console"))]
    expect(with_consoles, "there are documents with commands for the machines")
    files = programs("packet")
    for document in with_consoles:
        files |= compiled(document)
    machines = dict(zip("ab", lab.boot("a", "b", kind=Switch, files=files)))
    for document in with_consoles:
        for switch in machines.values():
            switch.load()
            switch.run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6")
        before = frames_so_far(lab)
        for step in document.steps:
            if isinstance(step, Wait):
                machines[step.switch].wait_until(step.command)
            elif step.kind == "console" and on_switches(step):
                work(machines, step)
            elif step.kind == "frame":
                look_for(lab, step, before)
        for switch in machines.values():
            switch.run("killall ipfc-resolverd waiter packet 2> /dev/null; true")
            switch.wait_until("! pidof ipfc-resolverd")
            switch.unload()


def on_switches(block):
    return any(command.place in "ab" for command in block.commands())


def compiled(document):
    """The document's C programs, static, since the machines have few libraries."""
    folder = ROOT / "out" / "vm-programs" / "docs"
    folder.mkdir(parents=True, exist_ok=True)
    files = {}
    for block in document.blocks("c"):
        source = folder / block.name
        source.write_text(block.text)
        program = source.with_suffix("")
        compile_static(source, program)
        files[f"bin/{program.name}"] = program
    return files


# ---- commands ---------------------------------------------------------------------------------


def work(machines, block):
    status, seen = 0, []
    for command in block.commands():
        if command.place not in machines:
            raise Failure(f"{block.place}: commands of machines and others in one block")
        asks = command.text == "echo $?"
        if status != 0 and not asks:
            raise Failure(f"{block.place}: the command before `{command.text}` has failed: {status}")
        printed, status = run(machines[command.place], command.text, status)
        seen += shown(command)
        if not RECORD and block.normalised(printed) != block.normalised(command.output):
            raise Failure(
                f"{block.place}: `{command.text}` prints\n" + "\n".join(printed) +
                "\n---- and not\n" + "\n".join(command.output)
            )  # fmt: skip
        seen += printed
    if status != 0:
        raise Failure(f"{block.place}: the last command has failed: {status}")
    if RECORD:
        block.document.replace_block(block, seen)
    for pattern in block.varies:
        expect("(varies)" in block.normalised([block.text]), f"{block.place}: {pattern} matches nothing")


def shown(command):
    prompt = f"{command.place}# "
    return (prompt + command.text).replace("\n", "\n> ").split("\n")


def run(machine, text, status):
    """The lines that the command prints and its status; `status` is the one before."""
    if text.endswith(" &"):
        machine.background(text.split()[0], text.removesuffix(" &"))
        return [], 0
    result = machine.try_run(f"{{ (exit {status})\n{text}\n}} 2>&1", timeout=60)
    return result.out.splitlines(), result.status


# ---- frames -----------------------------------------------------------------------------------


def frames_so_far(lab):
    numbers = lab.decode("-T", "fields", "-e", "frame.number").split()
    return int(numbers[-1]) if numbers else 0


def look_for(lab, block, before):
    if block.filter is None:
        raise Failure(f"{block.place}: nothing says which frame on the link this is")
    found = first_frame(lab, f"({block.filter}) && frame.number > {before}")
    if found is None:
        raise Failure(f"{block.place}: no frame on the link is {block.filter}")
    if RECORD:
        block.document.replace_block(block, dump(found))
        return
    wanted, varying = block.frame(), block.varying_bytes()
    if len(found) != len(wanted) or any(
        found[at] != wanted[at] for at in range(len(wanted)) if at not in varying
    ):
        raise Failure(f"{block.place}: the frame on the link is\n" + "\n".join(dump(found)))


def first_frame(lab, display_filter):
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        # Every byte of each frame that is let through, as a line.
        text = lab.decode("-Y", display_filter, "-T", "json", "-x", "-J", "frame")
        if '"frame_raw"' in text:
            return bytes.fromhex(text.split('"frame_raw": [')[1].split('"')[1])
        time.sleep(0.2)
    return None
