"""Writes the C source of the cffi peer: cffi_source.py <file>. The peers' build runs it."""

from __future__ import annotations

import importlib
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from benchmarks import descriptions


def main() -> None:
    """Write the source to the file named on the command line."""
    records = ("zel_Name", "zel_MgmtApiSignature")
    builder = importlib.import_module("cffi").FFI()  # cffi has no type hints
    builder.cdef(descriptions.declarations(*records))
    builder.set_source("cffi_api", descriptions.headers_of(*records))
    builder.emit_c_code(sys.argv[1])


if __name__ == "__main__":
    main()
