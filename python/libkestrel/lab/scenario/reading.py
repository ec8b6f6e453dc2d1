"""From a TOML file to a scenario."""

from __future__ import annotations

import os
import tomllib
from pathlib import Path

from libkestrel.lab.scenario.format import Scenario
from libkestrel.lab.scenario.kinds import read_table
from libkestrel.lab.scenario.problems import Place, Problem, ScenarioError
from libkestrel.lab.scenario.references import check


def parse_scenario(text: str, source: str = "scenario") -> Scenario:
    """Reads and checks a scenario; nothing is done to a host. ScenarioError tells everything that is wrong with it."""
    try:
        text.encode()  # a text need not have a UTF-8 form
        table = tomllib.loads(text)
    except (ValueError, RecursionError) as error:  # the first of them also for numbers of thousands of digits
        raise ScenarioError(source, [Problem("", str(error))]) from None
    problems: list[Problem] = []
    scenario = read_table(Scenario, table, Place(problems))
    if not problems:
        check(scenario, Place(problems))
    if problems:
        raise ScenarioError(source, problems)
    return scenario


def read_scenario(path: str | os.PathLike[str]) -> Scenario:
    """The same for a file. OSError where it cannot be read."""
    try:
        text = Path(path).read_bytes().decode()
    except UnicodeDecodeError as error:
        raise ScenarioError(str(path), [Problem("", f"the file is not UTF-8: {error}")]) from None
    return parse_scenario(text, str(path))
