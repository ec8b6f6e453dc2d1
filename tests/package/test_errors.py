"""Named errors: one class for each status, sentences, built-in bases."""

from __future__ import annotations

import copy
import pickle
from typing import Any

import _libkestrel
import pytest

from headers import model
from libkestrel import Host, errors

STATUSES = [c for c in model.read().constants if c.text is not None and c.value]


@pytest.mark.parametrize("constant", STATUSES, ids=lambda c: c.name)
def test_a_status_has_a_class_of_its_own(constant: Any) -> None:
    kind = getattr(errors, errors.class_name(constant.name))
    assert issubclass(kind, errors.KestrelError)
    assert errors.class_of(constant.value) is kind
    assert errors.status_name(constant.value) == constant.name
    with pytest.raises(kind) as caught:
        errors.check(constant.value, "do it", "thing")
    error = caught.value
    assert type(error) is kind
    assert (error.status, error.name, error.text) == (constant.value, constant.name, constant.text)
    assert (error.operation, error.object) == ("do it", "thing")
    assert str(error) == f"thing: do it: {constant.text} ({constant.name}, 0x{constant.value:08x})"
    for again in (pickle.loads(pickle.dumps(error)), copy.copy(error)):
        assert (type(again), again.args, str(again)) == (kind, error.args, str(error))


def test_there_are_no_classes_beside_those_of_statuses() -> None:
    classes = {name for name in errors.__all__ if name[0].isupper()} - {"KestrelError"}
    assert classes == {errors.class_name(c.name) for c in STATUSES}
    assert len(classes) == len(STATUSES)
    assert classes <= set(dir(errors))
    with pytest.raises(AttributeError, match="NoSuchThing"):
        errors.NoSuchThing  # type: ignore[attr-defined]


@pytest.mark.parametrize(
    ("name", "built_in"),
    [("NotFound", KeyError), ("NoMemory", MemoryError), ("BadParam", ValueError), ("Timeout", TimeoutError),
     ("ReadOnly", PermissionError), ("NotSupported", NotImplementedError), ("NameTooLong", ValueError)],
)  # fmt: skip
def test_fitting_built_in_exceptions_catch(name: str, built_in: type[Exception]) -> None:
    (status,) = [int(c.value) for c in STATUSES if errors.class_name(c.name) == name]
    with pytest.raises(built_in):
        errors.check(status)


def test_every_built_in_base_belongs_to_a_status() -> None:
    assert set(errors._BUILT_INS) <= set(errors.__all__)  # type: ignore[attr-defined]


def test_statuses_without_a_name_are_told_by_number() -> None:
    with pytest.raises(errors.KestrelError) as caught:
        errors.check(-5, "ask")
    assert type(caught.value) is errors.KestrelError
    assert caught.value.name == "0xfffffffb"
    with pytest.raises(errors.GenericLinuxError):
        errors.check(_libkestrel.ZEL_GENERIC_LINUX_ERROR + 5)
    with pytest.raises(OverflowError):
        errors.check(2**31)
    errors.check(_libkestrel.ZEL_OK)
    assert errors.status_name(_libkestrel.ZEL_OK) == "ZEL_OK"


def test_an_error_reads_as_a_sentence() -> None:
    with pytest.raises(errors.Busy) as caught:
        Host().switch("dvs-prod").ports.remove("10")
    assert str(caught.value) == "port 10 of switch dvs-prod: remove port: The object is in use (ZEL_BUSY, 0x0bad0004)"
    assert repr(caught.value) == "Busy(status=ZEL_BUSY, operation='remove port', object='port 10 of switch dvs-prod')"
    with pytest.raises(KeyError) as missing:
        Host().switches["nowhere"]
    assert str(missing.value) == ("switch nowhere: find switch: The object does not exist (ZEL_NOT_FOUND, 0x0bad0003)")
