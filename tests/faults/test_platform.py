"""Operations of which the nth call of a function of the platform fails, for each function and n = 1, 2, ...

The call answers with a status, or jumps out as far as the module. At each point the operation says what has failed, and
has changed nothing; and the next try does the work. Only memory that is not taken back, for a status, keeps nobody from
what he wanted.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import _libkestrel as k
import pytest

from faults.operation_works import command_lines, operations, stepwise_operations
from faults.points import chosen
from faults.table import TABLE
from faults.work import Work
from headers import fault_functions
from headers.model import Function
from libkestrel import lab
from support.functions import HEADERS

MESSAGE = "the platform is on fire"
WAYS: dict[str, dict[str, Any]] = {"jump": {"raises": BlockingIOError(MESSAGE)}, "status": {"status": k.ZEL_BUSY}}
FUNCTIONS = [f for f in HEADERS.functions if fault_functions.can_fail(f)]
TAKES_BACK = {"VSDVS_FreeMemory", "VSZEL_FreeMemory"}
SUBJECTS: dict[str, Callable[[], Iterator[Work]]] = {
    "operations": operations,
    "operations step by step": stepwise_operations,
    "commands": command_lines,
}


@pytest.fixture(autouse=True)
def _everything_as_it_was(monkeypatch: pytest.MonkeyPatch) -> Iterator[None]:
    monkeypatch.delenv("KESTREL_HOST", raising=False)  # which commands set
    with lab.scratch():
        yield
        lab.disarm_all()


def do(work: Work) -> Exception | None:
    """Does a work; how it failed."""
    function, arguments = work.prepare()
    try:
        function(*arguments)
    except Exception as error:
        return error
    return None


def calls_of(work: Work, functions: list[Function]) -> dict[str, int]:
    """How often a work calls each of the functions."""
    with lab.counted_calls() as calls:
        assert do(work) is None
        counted = {function.name: calls[function.name] for function in functions}
    work.restore()
    return counted


def tells(error: Exception | None, way: str) -> bool:
    """Whether an error says what has failed, in its own words or in those of what it comes from."""
    words = MESSAGE if way == "jump" else k.ZEL_ReturnStatusToString(k.ZEL_BUSY)
    return error is not None and (words in str(error) or tells(error.__cause__, way))  # type: ignore[arg-type]


@pytest.mark.parametrize("way", WAYS)
@pytest.mark.parametrize("subject", SUBJECTS)
def test_an_operation_that_the_platform_refuses_says_so_and_changes_nothing(subject: str, way: str) -> None:
    functions = [f for f in FUNCTIONS if way == "jump" or f.returns == "ZEL_ReturnStatus"]
    problems = []
    for work in SUBJECTS[subject]():
        before = work.state()
        counted = calls_of(work, functions)
        met = refused = 0
        for function, count in counted.items():
            for nth in chosen(count):
                where = f"{work.name}: {function}, call {nth}"
                with lab.fault(function, at=nth, **WAYS[way]):
                    error = do(work)
                    assert lab.armed_faults() == [], where
                met += 1
                refused += error is not None
                if way == "status" and function in TAKES_BACK:
                    assert error is None, where
                    work.restore()
                elif not tells(error, way):
                    problems.append(f"{where}: ended with {error!r}")
                if work.state() != before:
                    problems.append(f"{where}: something has changed")
                    work.restore()
        assert do(work) is None
        work.restore()
        assert met > 0
        TABLE.add(f"the platform, by {way}: {subject}", points=sum(counted.values()), hit=met, refused=refused)
    assert problems == []
