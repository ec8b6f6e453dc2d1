"""A script of changes on a host file, in a process whose storage fails: it answers each point, a line of JSON, with
what became of each change.

    python -m faults.storage_script LIBRARY

A point is {"host": path, "call": kind, "nth": n, "forever": whether, "effect": number, "only": numbers of the changes
to make, or null for all}. Each is tried in a process of its own, which begins with the host file still to be opened.
"""

from __future__ import annotations

import ctypes
import json
import os
import sys
from collections.abc import Callable
from typing import Any

import _libkestrel as k

SWITCH, ID = "dvs-new", "5e0c4d7a-7b1e-4c11-9f5d-0b6f2b9c5a10"


def _transaction() -> int:
    from libkestrel import lab
    from libkestrel.lab import LabError

    try:
        with lab.transaction():
            for status in (k.VSDVS_AddDVPort("dvs-prod", "in-one", 1), k.VSDVS_SetMTU("dvs-storage", 1400)):
                if status != k.ZEL_OK:
                    raise LabError("transaction", status, "")
    except LabError as error:
        return error.status
    return int(k.ZEL_OK)


CHANGES: tuple[Callable[[], int], ...] = (
    lambda: k.VSDVS_SetMTU("dvs-prod", 1600),
    lambda: k.VSDVS_CreateVSwitch(SWITCH, ID, k.PS_CLASS_NAME, 4, 0, 64, 1500, k.DVS_VERSION_70),
    lambda: k.VSDVS_AddDVPort("dvs-prod", "new", 1),
    lambda: k.VSDVS_SetPortProp("dvs-prod", "10", "com.example.key", b"x" * 5000, 5000, None, 0),
    _transaction,
    lambda: k.VSDVS_RemoveDVPort("dvs-prod", "new"),
    lambda: k.VSDVS_SetMTU("dvs-prod", 9000),
)
"""Changes, each of which is one transaction and says by its status whether it has been made."""


def _try(library: Any, point: dict[str, Any]) -> dict[str, Any]:
    os.environ["KESTREL_HOST"] = os.environ["FAULT_FILE"] = point["host"]
    library.storage_calls_fail(point["call"].encode(), point["nth"], point["forever"], point["effect"])
    only = point["only"]
    statuses = [change() if only is None or number in only else None for number, change in enumerate(CHANGES)]
    counted = library.storage_calls_counted()
    library.storage_calls_fail(b"none", 0, 0, 0)
    again = k.VSDVS_AddDVPort("dvs-prod", "afterwards", 1) if only != [] else int(k.DVSLoadConfig())
    return {"statuses": statuses, "counted": counted, "again": again}


def main() -> None:
    """Tries points until there are no more."""
    library = ctypes.CDLL(sys.argv[1])
    library.storage_calls_fail.argtypes = [ctypes.c_char_p, ctypes.c_long, ctypes.c_int, ctypes.c_int]
    library.storage_calls_counted.restype = ctypes.c_long
    for line in sys.stdin:
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            os.write(writing, json.dumps(_try(library, json.loads(line))).encode())
            os.close(writing)
            sys.exit(0)  # as interpreters end, the host file is left
        os.close(writing)
        with os.fdopen(reading, "rb") as pipe:
            told = pipe.read()
        _, ended = os.waitpid(child, 0)
        print(json.dumps({"ended": ended} | (json.loads(told) if told else {})), flush=True)


if __name__ == "__main__":
    main()
