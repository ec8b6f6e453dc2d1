"""The command line that all generators share."""

from __future__ import annotations

import argparse
from collections.abc import Callable
from pathlib import Path

from headers import model


def run(generate: Callable[..., str], *arguments: str) -> None:
    """Reads the headers, calls `generate` with them and the named string arguments, and writes the file."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--compiler", default="cc", help="C compiler to preprocess with")
    parser.add_argument("--include", type=Path, default=model.INCLUDE, help="folder that holds kestrel/")
    parser.add_argument("--output", type=Path, required=True, help="file to write")
    for name in arguments:
        parser.add_argument(f"--{name}", required=True)
    options = parser.parse_args()
    headers = model.read(options.compiler, options.include)
    options.output.parent.mkdir(parents=True, exist_ok=True)
    options.output.write_text(generate(headers, *(getattr(options, name) for name in arguments)))
