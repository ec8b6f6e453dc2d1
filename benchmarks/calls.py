"""The operations on a record, as each peer spells them.

The record is `zel_MgmtApiSignature`, with an unsigned 32-bit `version` and a nested `zel_Name` called `name`,
which is a text of at most 31 bytes and a zero. It has no flag: that is `synchronous` of `zel_MgmtCallbackInfo`.
"""

from __future__ import annotations

import importlib
import sys
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from types import ModuleType
from typing import Any

from benchmarks import descriptions

_NUMBER = 70001
_TEXT = "switch security policy"

INTEGER_GETTER = "integer getter"
INTEGER_SETTER = "integer setter"
TEXT_GETTER = "text getter"
TEXT_SETTER = "text setter"
NESTED_GETTER = "nested record getter"
CONSTRUCTOR = "constructor and release"
FLAG_SETTER = "flag setter"
PROXY_GETTER = "integer getter, of a proxy"
NESTED_PROXY_GETTER = "nested record getter, as proxy"


@dataclass(frozen=True)
class Contender:
    """A way of reaching the record."""

    title: str
    names: dict[str, Any]
    """What the statements speak of."""
    statements: dict[str, str]
    """Python statements by operation; an operation that does not exist here is left out."""


def contenders(module: ModuleType, folder: Path) -> list[Contender]:
    """Give the module and its peers, of which `folder` holds the built ones; ratios refer to the second."""
    sys.path.insert(0, str(folder))
    load = importlib.import_module
    return [
        _flat("_libkestrel", module),
        _flat("C, same protocol", load("tuple_protocol")),
        _fastest("C, fastest protocol", load("fastest_protocol")),
        _ctypes("ctypes"),
        _cffi("cffi, API mode", load("cffi_api")),
        _attributes("pybind11", load("pybind11_class")),
        _attributes("nanobind", load("nanobind_class")),
        _swig("SWIG, -builtin", load("swig_builtin")),
        _swig("SWIG", load("swig_proxies")),
    ]


def _flat(title: str, module: Any) -> Contender:
    """Functions that take pointer objects: the module, and the peer that has its protocol."""

    class Signature:
        __swig_destroy__ = module.delete_zel_MgmtApiSignature

    class Proxy:
        this: Any

    class CallbackInfo:
        __swig_destroy__ = module.delete_zel_MgmtCallbackInfo

    module.zel_MgmtApiSignature_swigregister(Signature)
    module.zel_MgmtCallbackInfo_swigregister(CallbackInfo)
    record = module.new_zel_MgmtApiSignature()
    proxy = Proxy()
    proxy.this = record
    names = {
        "record": record,
        "proxy": proxy,
        "callback": module.new_zel_MgmtCallbackInfo(),
        "name": module.zel_MgmtApiSignature_name_get(record),
        "new": module.new_zel_MgmtApiSignature,
        "version_get": module.zel_MgmtApiSignature_version_get,
        "version_set": module.zel_MgmtApiSignature_version_set,
        "name_get": module.zel_MgmtApiSignature_name_get,
        "synchronous_get": module.zel_MgmtCallbackInfo_synchronous_get,
        "synchronous_set": module.zel_MgmtCallbackInfo_synchronous_set,
        "name_register": module.zel_Name_swigregister,
        "string_get": module.zel_Name_string_get,
        "string_set": module.zel_Name_string_set,
    }
    own = {FLAG_SETTER: "synchronous_set(callback, True)", PROXY_GETTER: "version_get(proxy)"}
    return Contender(title, names, _FUNCTIONS | own)


def with_classes(all_contenders: list[Contender]) -> list[Contender]:
    """Register a class for nested records, for good, and give the operation that changes by it, where there is one."""
    flat = [contender for contender in all_contenders if "name_register" in contender.names]
    for contender in flat:
        contender.names["name_register"](type("Name", (), {}))
    return [Contender(c.title, c.names, {NESTED_PROXY_GETTER: "name_get(record)"}) for c in flat]


_FUNCTIONS = {
    INTEGER_GETTER: "version_get(record)",
    INTEGER_SETTER: "version_set(record, number)",
    TEXT_GETTER: "string_get(name)",
    TEXT_SETTER: "string_set(name, text)",
    NESTED_GETTER: "name_get(record)",
    CONSTRUCTOR: "new()",
}

_ATTRIBUTES = {
    INTEGER_GETTER: "record.version",
    INTEGER_SETTER: "record.version = number",
    TEXT_GETTER: "name.string",
    TEXT_SETTER: "name.string = text",
    NESTED_GETTER: "record.name",
    CONSTRUCTOR: "new()",
}


def _fastest(title: str, module: Any) -> Contender:
    record = module.new_signature()
    names = {
        "record": record,
        "name": module.name_get(record),
        "new": module.new_signature,
        "version_get": module.version_get,
        "version_set": module.version_set,
        "name_get": module.name_get,
        "string_get": module.string_get,
        "string_set": module.string_set,
    }
    return Contender(title, names, _FUNCTIONS)


def _ctypes(title: str) -> Contender:
    new: Any = descriptions.structure("zel_MgmtApiSignature")
    record = new()
    names = {"record": record, "name": record.name, "new": new}
    # Its text is bytes.
    texts = {TEXT_GETTER: "name.string.decode()", TEXT_SETTER: "name.string = text.encode()"}
    return Contender(title, names, _ATTRIBUTES | texts)


def _cffi(title: str, module: Any) -> Contender:
    record_type = module.ffi.typeof("zel_MgmtApiSignature *")
    record = module.ffi.new(record_type)
    names = {
        "record": record,
        "name": record.name,
        "new": module.ffi.new,
        "record_type": record_type,
        "string": module.ffi.string,
    }
    texts = {TEXT_GETTER: "string(name.string).decode()", TEXT_SETTER: "name.string = text.encode()"}
    return Contender(title, names, _ATTRIBUTES | texts | {CONSTRUCTOR: "new(record_type)"})


def _attributes(title: str, module: Any) -> Contender:
    """Classes with attributes that C++ describes."""
    record = module.Signature()
    return Contender(title, {"record": record, "name": record.name, "new": module.Signature}, _ATTRIBUTES)


def _swig(title: str, module: Any) -> Contender:
    """Classes with attributes, as SWIG makes them of the same headers."""
    record = module.zel_MgmtApiSignature()
    names = {
        "record": record,
        "name": record.name,
        "new": module.zel_MgmtApiSignature,
        "callback": module.zel_MgmtCallbackInfo(),
    }
    return Contender(title, names, _ATTRIBUTES | {FLAG_SETTER: "callback.synchronous = 1"})


def values(contender: Contender) -> dict[str, Any]:
    """Give what the contender's statements may name: its own objects and the values to set."""
    return {**contender.names, "number": _NUMBER, "text": _TEXT}


# ---- What is timed has to be the same work ----


def check(all_contenders: list[Contender]) -> None:
    """End the program if a contender does not do what its operations say.

    Also if the peer that has the module's protocol judges an argument otherwise than the module does.
    """
    for contender in all_contenders:
        given = values(contender)
        exec(contender.statements[INTEGER_SETTER], given)
        exec(contender.statements[TEXT_SETTER], given)
        got = [eval(contender.statements[operation], given) for operation in (INTEGER_GETTER, TEXT_GETTER)]
        if got != [_NUMBER, _TEXT]:
            sys.exit(f"{contender.title}: set {[_NUMBER, _TEXT]} and got {got}")
        given["name"] = eval(contender.statements[NESTED_GETTER], given)
        if eval(contender.statements[TEXT_GETTER], given) != _TEXT:
            sys.exit(f"{contender.title}: the nested record is not the one within")
    module, same = (_verdicts(contender.names) for contender in all_contenders[:2])
    for ours, theirs in zip(module, same, strict=True):
        if ours != theirs:
            sys.exit(f"{all_contenders[1].title}: {theirs} where the module has {ours}")


def _verdicts(names: dict[str, Any]) -> list[str]:
    """Give what the functions answer to arguments at and beyond their bounds."""
    record, name = names["record"], names["name"]
    numbers = (0, 2**32 - 1, True, -1, 2**32, 2**63, 2**64 - 1, 2**64, -(2**63), -(2**63) - 1, 1.0, "1", None)
    texts = ("", None, "x" * 31, "x" * 32, "\u00e9" * 15, "\u00e9" * 16, "\ud800", b"x", 1)
    found = []
    flags = (True, 0, 255, 256, -1, 2**63, -(2**64), "1", "", None, "ab", "\u00e9", 1.0, b"1")
    for setter, getter, target, arguments in (
        (names["version_set"], names["version_get"], record, numbers),
        (names["string_set"], names["string_get"], name, texts),
        (names["synchronous_set"], names["synchronous_get"], names["callback"], flags),
    ):
        for argument in arguments:
            found += [repr(argument), _answer(setter, target, argument), _answer(getter, target)]
    for function in (names["version_get"], names["name_get"], names["string_get"]):
        other = record if function is names["string_get"] else name
        found += [_answer(function, other), _answer(function, object()), _answer(function)]
    found += [
        _answer(names["version_set"], None, 1),
        _answer(names["new"], 1),
        _answer(names["version_get"], names["proxy"]),
    ]
    return found


def _answer(function: Callable[..., object], *arguments: object) -> str:
    try:
        return repr(function(*arguments))
    except Exception as error:
        return repr(error)
