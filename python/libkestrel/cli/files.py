"""Writing files whole."""

from __future__ import annotations

import os
import tempfile
from pathlib import Path


def write_whole(path: Path, data: bytes) -> None:
    """Writes a file, or leaves the one that is there as it is: whoever looks finds the old or the new one."""
    if path.exists() and not path.is_file():  # a pipe or device, which cannot be replaced
        path.write_bytes(data)
        return
    try:
        handle, name = tempfile.mkstemp(dir=path.parent, prefix=f".{path.name}.")
    except OSError as error:
        raise type(error)(error.errno, error.strerror, str(path)) from error
    try:
        with os.fdopen(handle, "wb") as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
        mode = path.stat().st_mode & 0o777 if path.exists() else 0o666 & ~_umask()
        Path(name).chmod(mode)
        Path(name).replace(path)
    except BaseException:
        Path(name).unlink(missing_ok=True)
        raise


def _umask() -> int:
    mask = os.umask(0o077)
    os.umask(mask)
    return mask
