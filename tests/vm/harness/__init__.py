# SPDX-License-Identifier: GPL-2.0-only
from .errors import CommandFailed, Failure, MachineDied, NotReady
from .kernel import ROOT, Kernel
from .lab import Lab
from .machine import Machine
