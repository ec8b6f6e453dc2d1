"""Answers `kestrel [--host FILE] switch list --json` without the machinery that all other commands share.

Scripts ask this in loops, and reading the tree of commands takes several times as long as the answer. Nothing else is
known here: arguments in any other form, a host that is not there yet and every error go the ordinary way, which
asks the same `switches` for its rows.
"""

from __future__ import annotations

import os
from _json import encode_basestring_ascii as _quoted  # what json.dumps has for texts

import _libkestrel as flat

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any, NoReturn

_QUESTIONS = (["switch", "list", "--json"], ["--json", "switch", "list"])


def switches() -> list[dict[str, Any]]:
    """The switches of the host, as rows of the answer "switches". KestrelError where the host cannot be read."""
    info = flat.new_VSInfo()
    try:
        # The list below prints to standard output where it fails, so that the host is tried first.
        status = flat.VSZEL_GetVSInfo("", info)
        if status not in (flat.ZEL_OK, flat.ZEL_NOT_FOUND):
            _refuse(status)
        listed = flat.VSZEL_GetSwitchesPy(flat.VS_LIST_DVS_ALIAS)
        if listed is None:
            _refuse(flat.ZEL_NO_MEMORY)
        try:
            names = [flat.VSList___getitem__(listed, i) for i in range(flat.VSList_count_get(listed))]
        finally:
            flat.delete_VSList(listed)
        return [row for name in names if name is not None and (row := _row(name, info)) is not None]
    finally:
        flat.delete_VSInfo(info)


def _row(name: str, info: Any) -> dict[str, Any] | None:
    """The row of a switch; None for one that another process has just destroyed."""
    status = flat.VSZEL_GetVSInfo(name, info)
    if status == flat.ZEL_NOT_FOUND:
        return None
    if status != flat.ZEL_OK:
        _refuse(status)
    return {
        "name": name,
        "id": flat.DVS_SwitchId(flat.DVSState_SwitchFindByAlias(name)),
        "mtu": flat.VSInfo_mtu_get(info),
        "active_ports": flat.VSInfo_activePorts_get(info),
        "max_ports": flat.VSInfo_maxPorts_get(info),
    }


def _refuse(status: int) -> NoReturn:
    from libkestrel._kestrel_error import error

    raise error(status, "list switches", "host")


def _as_json(value: object) -> str:
    """As json.dumps writes it; importing that takes a tenth of the time that there is for the answer."""
    if isinstance(value, dict):
        return f"{{{', '.join(f'{_quoted(key)}: {_as_json(each)}' for key, each in value.items())}}}"
    if isinstance(value, list):
        return f"[{', '.join(_as_json(each) for each in value)}]"
    return _quoted(value) if isinstance(value, str) else str(value)


def answer(arguments: list[str]) -> bool:
    """Answers what is known here; False where the tree of commands has to."""
    from libkestrel.cli import places

    host = None
    if len(arguments) > 2 and arguments[0] == "--host":
        host, arguments = arguments[1], arguments[2:]
    if arguments not in _QUESTIONS or "_KESTREL_COMPLETE" in os.environ:
        return False
    path = places.host_file(host)
    if not os.path.isfile(path):  # noqa: PTH113  # pathlib takes longer to import than the answer
        return False
    os.environ["KESTREL_HOST"] = path
    from libkestrel.cli.envelopes import envelope

    try:
        print(_as_json(envelope("switches", switches())), flush=True)
    except Exception:
        return False
    return True
