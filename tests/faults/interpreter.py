"""The interpreter in which memory runs out: it reads names of works, does each under faults, and answers with what came
of it, a line of JSON each.

    python -m faults.interpreter SUBJECT ALLOCATOR PROGRESS

SUBJECT is a key of WORKS, ALLOCATOR the library that is preloaded, PROGRESS a file in which the point under way stands
where a process that died of it cannot tell.
"""

from __future__ import annotations

import gc
import importlib
import json
import os
import sys
from collections.abc import Iterator

from faults.allocations import Allocator, sweep
from faults.work import Work

WORKS = {
    "imports": "import_works.imports",
    "constructors": "module_works.constructors",
    "members": "module_works.members",
    "owned texts": "module_works.owned_texts",
    "conveniences": "module_works.conveniences",
    "record classes": "record_works.classes",
    "record fields": "record_works.fields",
    "record rows": "record_works.rows",
    "commands": "command_works.commands",
    "commands on a file": "command_works.commands",
    "operations": "operation_works.operations",
    "operations on a file": "operation_works.operations",
    "operations step by step": "operation_works.stepwise_operations",
}
"""The subjects, and where each one's works are listed."""


def works(subject: str) -> Iterator[Work]:
    """The works of a subject."""
    module, name = WORKS[subject].split(".")
    found: Iterator[Work] = getattr(importlib.import_module(f"faults.{module}"), name)()
    return found


def main() -> None:
    """Serves names of works until there are no more; with none of its arguments it tells the names."""
    # What is printed by others goes where errors go.
    answers = os.fdopen(os.dup(sys.stdout.fileno()), "w", buffering=1)
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())
    gc.disable()  # so that it does not come in between
    subject, library, path = sys.argv[1:]
    listed = {work.name: work for work in works(subject)}
    print(json.dumps(list(listed)), file=answers)
    progress = os.open(path, os.O_RDWR | os.O_CREAT)
    allocator = Allocator(library)
    gc.collect()
    gc.freeze()  # what is there by now need not be looked through again and again
    for line in sys.stdin:
        print(json.dumps(sweep(allocator, listed[line.strip()], progress)), file=answers)


if __name__ == "__main__":
    main()
