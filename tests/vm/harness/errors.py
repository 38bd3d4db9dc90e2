# SPDX-License-Identifier: GPL-2.0-only
"""What can go wrong in a scenario, each as a type of its own."""


class Failure(Exception):
    """The scenario did not show what it had to show."""


class CommandFailed(Failure):
    """A command in a machine ended with a status other than 0."""


class MachineDied(Failure):
    """A machine panicked, hung or lost its servant."""


class NotReady(Exception):
    """Something the harness needs on this computer is missing."""


def expect(condition, what):
    """Fails with `what` (a sentence that ought to be true) unless `condition` holds."""
    if not condition:
        raise Failure(f"not so: {what}")
