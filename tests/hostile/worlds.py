"""What hostile calls of the flat module meet: the embedded host, or the recorder in the platform's place."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import _libkestrel as k

from hostile.calls import Call
from hostile.flat import World
from support import refusals
from support.functions import FUNCTIONS, plain_arguments, visible
from support.recorder import Recorder, library_path

_FUNCTIONS = {function.name: function for function in FUNCTIONS}


class EmbeddedHost(World):
    """A host with one of everything, which is itself again from time to time."""

    names = (
        *(refusals.SWITCH, refusals.ID, refusals.PORT, refusals.FREE, refusals.UPLINK, refusals.NIC, refusals.KEY),
        *(refusals.EXTERNAL, refusals.SESSION, refusals.POLICY, "new", "com.talvex.vswitch.mtu", "show", "lag1"),
    )
    hands_out = True

    def __init__(self) -> None:
        self.fresh = refusals.prepare()

    def knows(self, call: Call) -> bool:
        return call.name in _FUNCTIONS

    def fitting(self, call: Call) -> list[Any]:
        function = _FUNCTIONS[call.name]
        return [refusals.good(function, parameter) for _, parameter in visible(function)]

    def done(self) -> None:
        refusals.let_go()

    def begin_anew(self) -> None:
        self.fresh.restore()

    def problems(self) -> list[str]:
        """The answers to some questions, where they are wrong on the host as it was at first."""
        handle = k.DVSState_SwitchFindByAlias(refusals.SWITCH)
        port = k.DVSState_PortFind(refusals.ID, refusals.PORT)
        new = ("n", "n", k.PS_CLASS_NAME, 4, 0, 64, 1500, k.DVS_VERSION_70)
        answers = {
            "the switch's name": k.DVS_SwitchName(handle) == refusals.SWITCH,
            "the switch's identifier": k.DVS_SwitchId(handle) == refusals.ID,
            "the port's identifier": k.DVS_PortId(port) == refusals.PORT,
            "a new switch": k.VSDVS_CreateVSwitch(*new) == k.ZEL_OK,
            "and its end": k.VSDVS_DestroyVSwitch("n") == k.ZEL_OK,
        }
        return [question for question, right in answers.items() if not right]


class RecorderPlatform(World):
    """Notes and answers nothing, and has no host."""

    def __init__(self) -> None:
        self.recorder = Recorder()

    def knows(self, call: Call) -> bool:
        return call.name in _FUNCTIONS and bool(call.arguments)

    def fitting(self, call: Call) -> list[Any]:
        return plain_arguments(_FUNCTIONS[call.name])

    def begin_anew(self) -> None:
        self.recorder.reset()

    def problems(self) -> list[str]:
        self.recorder.reset()
        k.DVSLoadConfig()
        return [] if [c.function for c in self.recorder.calls()] == ["DVSLoadConfig"] else ["what it notes"]


def is_recorder() -> bool:
    """Whether the recorder is in the platform's place."""
    path = library_path("libmorrow.so")
    return path is not None and b"recorder_log" in path.read_bytes()


def world() -> World:
    """The one that this process has."""
    return RecorderPlatform() if is_recorder() else EmbeddedHost()


def audit(host: str) -> list[str]:
    """What is wrong with a host file."""
    from libkestrel.cli.verifying import verified

    return verified(Path(host)).problems
