"""The examples of the package's objects: they run where the package is installed, and tell what is."""

from __future__ import annotations

import ast
import subprocess
import sys
from pathlib import Path

import pytest

from libkestrel import host

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted((ROOT / "examples" / "objects").glob("*.py"))

TELLS = {
    "addresses": "switch dvs-addresses: set user multicast addresses: A parameter is not valid",
    "counters": "3: 0 frames (0 bytes) in, 12 out, 0 dropped\n10: ",
    "datapath": "host: deactivate enhanced datapath: (DatapathPortset(portset='DvsPortset-0', switch_mode=0,",
    "inventory": "  lag1: vmnic1, vmnic3 up of vmnic1, vmnic2, vmnic3\n",
    "mirrors": "changed: True\nchanged: False\nweb: what web servers send, to ['18']\nleft: ()\n",
    "options": "changed: True\n192.0.2.1\n",
    "plan": "8 changes made\nstep 2: port web-1 of switch dvs-plan: set VLAN policy: The VLAN identifier is not valid",
    "properties": "host: team of the host, changed: [True, False]\n",
    "store": "c41f8a37-0b92-4d6c-8e15-6f7d20b4e302: dvs-storage, version 7, at most 128 ports\n",
    "tables": "addresses by VLAN: {0: 2, 30: 1, 100: 5,",
    "teaming": "20 sends through vmnic4\nafter a failure through vmnic5\n20 follows 'second only'\n",
    "vlans": "first time: 5 changes\nsecond time: 0 changes\n",
}
"""A part of what each example prints."""


def output(*command: str) -> str:
    done = subprocess.run([sys.executable, *command], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def test_every_example_is_tried() -> None:
    assert {path.stem for path in EXAMPLES} == set(TELLS)


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_an_example_runs(path: Path) -> None:
    assert TELLS[path.stem] in output(str(path))


def attributes(path: Path) -> set[str]:
    """The names that a file asks its objects for."""
    return {node.attr for node in ast.walk(ast.parse(path.read_text())) if isinstance(node, ast.Attribute)}


FAMILIES = sorted(path for path in Path(host.__file__).parent.glob("*.py") if not path.stem.startswith("_"))


@pytest.mark.parametrize("family", FAMILIES, ids=lambda path: path.stem)
def test_every_family_of_objects_has_an_example(family: Path) -> None:
    """What users call of a module of objects is called in an example."""
    classes = [node for node in ast.parse(family.read_text()).body if isinstance(node, ast.ClassDef)]
    members = {node.name for cls in classes for node in cls.body if isinstance(node, ast.FunctionDef)}
    public = {name for name in members if not name.startswith("_")}
    assert public & set().union(*map(attributes, EXAMPLES)), "none of them is shown"


def test_the_rehearsal_of_a_script_runs() -> None:
    told = output("-m", "pytest", "-p", "no:cacheprovider", str(ROOT / "examples" / "test_rehearsal.py"))
    assert told.startswith("...")
