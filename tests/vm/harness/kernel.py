# SPDX-License-Identifier: GPL-2.0-only
"""The kernels that a machine can boot, and the stock modules that it needs from them.

A kernel is known by a name. "6.1" and "6.12" are laid down by scripts/setup.sh under
.cache/kernels/<name>/ (image, modules, build). The name "extra" stands for a kernel of one's own:
IPFC_KERNEL_IMAGE is its bzImage and IPFC_KERNEL_BUILD its build tree. When it is a slow one, say
because it checks itself, IPFC_KERNEL_PATIENCE is the factor by which every time limit grows,
IPFC_KERNEL_MEMORY the MiB that each machine gets on top of the usual ones, and
IPFC_KERNEL_PROCESSORS how many processors each has, whatever the scenario asks for.
"""

import gzip
import lzma
import os
import pathlib
import re

from .errors import NotReady

ROOT = pathlib.Path(__file__).resolve().parents[3]


class Kernel:
    """One bootable kernel: `image`, `build` (for its modules), and where the stock modules are."""

    def __init__(self, name):
        self.name = name
        #: How many times longer than usual this kernel may take for everything.
        self.patience = 1
        #: Processors of each machine, whatever the scenario asks for; 0 leaves it to that.
        self.processors = 0
        #: MiB that it needs for itself.
        self.memory = 0
        if name == "extra":
            self.patience = int(os.environ.get("IPFC_KERNEL_PATIENCE", "1"))
            self.memory = int(os.environ.get("IPFC_KERNEL_MEMORY", "0"))
            self.processors = int(os.environ.get("IPFC_KERNEL_PROCESSORS", "0"))
            self.image = _from_environment("IPFC_KERNEL_IMAGE")
            self.build = _from_environment("IPFC_KERNEL_BUILD")
            self._stock = self.build
        else:
            base = ROOT / ".cache" / "kernels" / name
            self.image = base / "image"
            self.build = base / "build"
            self._stock = base / "modules"
        for path in (self.image, self.build, self._stock):
            if not path.exists():
                raise NotReady(f"kernel {name}: {path} is missing; ./test or ./run lays it down")
        #: Whether it is older than what this computer's C library was built for.
        self.old = self._version() < (3, 2)
        #: ipfc.ko and brim_platform.ko for this kernel.
        self.out = ROOT / "out" / name
        self._index = None

    def _version(self):
        release = (self.build / "include" / "config" / "kernel.release").read_text()
        return tuple(int(number) for number in re.findall(r"\d+", release)[:2])

    def closure(self, names):
        """The stock modules `names` with all they need, as (name, content), in loading order.

        A name that is no module of this kernel is taken as built in; a machine that misses it
        fails at once, because its network device does not appear.
        """
        if self._index is None:
            self._index = {_module_name(path): path for path in _modules_below(self._stock)}
        order = {}

        def visit(name):
            name = name.replace("-", "_")
            if name in order or name not in self._index:
                return
            content = _read_module(self._index[name])
            for needed in _depends(content):
                visit(needed)
            order[name] = content

        for name in names:
            visit(name)
        return list(order.items())


def _from_environment(variable):
    if not os.environ.get(variable):
        raise NotReady(f"kernel extra: set {variable}")
    return pathlib.Path(os.environ[variable]).resolve()


def _modules_below(top):
    for folder, _, files in os.walk(top.resolve()):
        for name in files:
            if re.search(r"\.ko(\.xz|\.gz)?$", name):
                yield pathlib.Path(folder) / name


def _module_name(path):
    return path.name.split(".ko")[0].replace("-", "_")


def _read_module(path):
    content = path.read_bytes()
    if path.suffix == ".xz":
        return lzma.decompress(content)
    if path.suffix == ".gz":
        return gzip.decompress(content)
    return content


def _depends(content):
    """The names in the "depends=" line of a module's information section."""
    found = re.search(rb"\0depends=([^\0]*)\0", content)
    return [name for name in found.group(1).decode().split(",") if name] if found else []
