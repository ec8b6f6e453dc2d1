"""Scenarios: hosts that are written down in TOML. docs/scenarios.md tells the format."""

from libkestrel.lab.scenario.building import load_scenario, load_scenario_text
from libkestrel.lab.scenario.format import Scenario
from libkestrel.lab.scenario.problems import Problem, ScenarioError
from libkestrel.lab.scenario.reading import parse_scenario, read_scenario

__all__ = [
    "Problem",
    "Scenario",
    "ScenarioError",
    "load_scenario",
    "load_scenario_text",
    "parse_scenario",
    "read_scenario",
]
