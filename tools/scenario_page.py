"""Writes docs/scenarios.md: the format of scenarios, key by key, from the classes that read it.

Usage: python tools/scenario_page.py docs/scenarios.md
"""

from __future__ import annotations

import argparse
import dataclasses
from pathlib import Path
from typing import Any

from libkestrel.lab.scenario import format as scenario_format
from libkestrel.lab.scenario.kinds import Choice, Kind, ListOf, Mac, MapOf, Seconds, TableOf, TablesOf, Words, keys_of

HEAD = """# Scenarios

A scenario is a host written down in TOML: its NICs, its switches and what is plugged into them, their policies, and,
where one likes, frames to send. `libkestrel.lab.scenario.load_scenario(path)` makes the host of the process what the
file says, in one transaction: the whole of it or, when the file is wrong somewhere or the host refuses something,
nothing. Whatever the host was before is gone. `read_scenario(path)` only checks.

Scenarios in [examples/scenarios/](../examples/scenarios/) are the quickest start.

Nothing is guessed: an unknown key, a value of a wrong type or out of its range, a name that is there twice or that
refers to nothing raise ScenarioError, which tells everything that is wrong, each with the path of its key:

```text
office.toml: switch[0].uplink[1].nic: there is no NIC "vmnic9"
office.toml: switch[0].port[3].vlan: 4095 is not from 0 to 4094
```

Items of lists are counted from 0 in paths. Ethernet addresses are texts such as `"02:00:00:00:00:01"`, times are
seconds and may have fractions.

The tables below have the keys of each table of the format. A key without a default has to be given. A key whose kind is
"tables" is written as an array of tables, `[[switch.port]]`; one whose kind is "table" as `[switch.teaming]` or
`teaming = { ... }`.
"""


def tables() -> list[type]:
    """The classes of the format, each behind the one that first speaks of it."""
    found: list[type] = []

    def visit(table: type) -> None:
        if table in found:
            return
        found.append(table)
        for each in keys_of(table).values():
            kind = each.metadata["kind"]
            if isinstance(kind, (TableOf, TablesOf)):
                visit(kind.table)

    visit(scenario_format.Scenario)
    return found


def written(value: Any, kind: Kind) -> str:
    """A default as it would be written in TOML."""
    if isinstance(kind, Choice):
        return next(f'`"{word}"`' for word, meant in kind.words.items() if meant == value)
    if isinstance(kind, Words):
        words = [f'"{word}"' for word, bit in kind.words.items() if value & bit]
        return f"`[{', '.join(words)}]`"
    if isinstance(kind, (ListOf, TablesOf, MapOf)):
        return "none" if not value else f"`{list(value)}`"
    if isinstance(kind, Mac):
        return f'`"{value.hex(":")}"`'
    if isinstance(kind, Seconds):
        return f"`{value // 10**9}`"
    if isinstance(value, bool):
        return f"`{str(value).lower()}`"
    return f'`"{value}"`' if isinstance(value, str) else f"`{value}`"


def default(each: Any) -> str:
    """The default of a key."""
    if each.default is dataclasses.MISSING:
        return ""
    shown = each.metadata["shown"]
    return shown if shown is not None else written(each.default, each.metadata["kind"])


def section(table: type) -> str:
    """The keys of one table."""
    title = "The scenario" if table is scenario_format.Scenario else table.__name__
    lines = [f"## {title}", "", (table.__doc__ or "").replace("\n    ", "\n").strip(), ""]
    lines += ["| key | kind | default | meaning |", "|---|---|---|---|"]
    for name, each in keys_of(table).items():
        kind = each.metadata["kind"].shown
        lines.append(f"| `{name}` | {kind} | {default(each)} | {each.metadata['doc']} |")
    return "\n".join(lines)


def page() -> str:
    """The page as a whole."""
    return "\n\n".join([HEAD.rstrip(), *(section(table) for table in tables())]) + "\n"


def main() -> None:
    """Writes the page."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("output", type=Path)
    parser.parse_args().output.write_text(page())


if __name__ == "__main__":
    main()
