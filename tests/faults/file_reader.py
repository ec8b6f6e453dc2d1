"""Another process that reads a host file.

The process whose host is in the file must not open it by itself as well: closing it again would drop the host's locks.
"""

from __future__ import annotations

import hashlib
import os
import sqlite3
import subprocess
import sys
from pathlib import Path


def contents(database: sqlite3.Connection) -> str:
    """Everything that the tables of a host file hold, as a digest: but for the numbers that switches have there, which
    no two ever share and which tell nothing but their order.
    """
    digest = hashlib.sha256()
    tables = [name for (name,) in database.execute("SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY 1")]
    numbers = [number for (number,) in database.execute("SELECT DISTINCT switch FROM switches ORDER BY 1")]
    for table in tables:
        digest.update(table.encode())
        columns = [row[1] for row in database.execute(f"PRAGMA table_info({table})")]
        for row in database.execute(f"SELECT * FROM {table} ORDER BY {', '.join(columns)}"):
            shown = dict(zip(columns, row, strict=True))
            if "switch" in shown:
                shown["switch"] = numbers.index(shown["switch"])
            if shown.get("name") == "next_switch":
                continue
            digest.update(repr(shown).encode())
    return digest.hexdigest()


class FileReader:
    """Tells what the file holds, as another process sees it."""

    def __init__(self, path: Path) -> None:
        environment = {name: value for name, value in os.environ.items() if name not in ("LD_PRELOAD", "PYTHONMALLOC")}
        self._process = subprocess.Popen(
            [sys.executable, "-m", "faults.file_reader", str(path)],
            env=environment,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )

    def contents(self) -> str:
        """What the file holds now."""
        assert self._process.stdin and self._process.stdout
        self._process.stdin.write("\n")
        self._process.stdin.flush()
        return self._process.stdout.readline()


def main() -> None:
    """Answers each line with what the file holds."""
    database = sqlite3.connect(f"file:{sys.argv[1]}?mode=ro", uri=True, isolation_level=None)
    version, seen = -1, ""
    for _ in sys.stdin:
        (now,) = database.execute("PRAGMA data_version").fetchone()
        if now != version:
            database.execute("BEGIN")
            version, seen = now, contents(database)
            database.execute("COMMIT")
        print(seen, flush=True)


if __name__ == "__main__":
    main()
