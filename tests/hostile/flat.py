"""Calls of every function of the flat module, with whatever a caller might pass, at random and by seed.

Records live in blocks of their own and in rooms; they are freed, given on, passed twice, nested in what they are
passed with. Before a call that trusts its caller is made, `rules` tells whether this one may.
"""

from __future__ import annotations

import ctypes
import gc
import importlib.util
import random
from collections import Counter, deque
from collections.abc import Callable
from typing import Any

import _libkestrel as k

from hostile.calls import COUNTERS, HANDLES, SIZES, Argument, Call, calls
from hostile.memory import Ledger
from hostile.rules import Given, claim
from hostile.values import RAISED, Liar, Reentrant, Trouble
from support import memory
from support.cells import Cell, pointer
from support.type_table import infos
from support.values import IntegerSubclass

KEPT = 5
"""Blocks of a record that live at a time."""
_REGISTERED = 40
"""Calls for which a class stays registered that nobody should register; a plain one follows it."""
_ALLOWED = (*RAISED, SystemError, RuntimeError)
_POINTER = type(k.cvar.runtimeOptionNames)
_libc = ctypes.CDLL(None)
_libc.free.argtypes = (ctypes.c_void_p,)


class SurpriseError(AssertionError):
    """A call that ended otherwise than it has to."""


class _Plain:
    """What may well be registered."""

    this: Any


class _Slotted:
    """Has no dictionary; its pointer is made when it is asked for."""

    __slots__ = ("deed",)

    def __init__(self, deed: Callable[[], Any]) -> None:
        self.deed = deed

    @property
    def this(self) -> Any:
        return self.deed()


class _Proxy:
    """Carries whatever as its pointer."""

    def __init__(self, this: Any) -> None:
        self.this = this


class _Evasive:
    """An object whose every attribute raises, its class's own too."""

    def __getattribute__(self, name: str) -> Any:
        raise ValueError(name)


class _OddText(str):
    def __str__(self) -> str:
        raise ValueError("no")

    def __len__(self) -> int:
        return 1 << 40


def _loop() -> Any:
    one, two = _Proxy(None), _Proxy(None)
    one.this, two.this = two, one
    return one


def _itself() -> Any:
    one = _Proxy(None)
    one.this = one
    return one


def _raise(*_: object) -> Any:
    raise KeyError("this")


_FALSE_POINTER = type("SwigPyObject", (), {})
_ODD: tuple[Any, ...] = (
    1.0,
    float("nan"),
    b"",
    b"1" * 40,
    bytearray(b"12345678"),
    memoryview(b"abcdef"),
    Liar(b"abc"),
    [],
    (),
    {},
    1j,
    object(),
    object,
    type,
    len,
    range(3),
    slice(None),
    Ellipsis,
    NotImplemented,
    lambda *_: None,
    k,
    _FALSE_POINTER(),
    _loop(),
    _itself(),
    _Proxy(5),
    _Proxy(_FALSE_POINTER()),
    _Slotted(_raise),
    _Slotted(object),
    Reentrant(gc.collect),
)
_WRONG: tuple[tuple[Any, str], ...] = (
    *((value, repr(value)[:24]) for value in _ODD),
    (Trouble(), "<trouble>"),
    (_Evasive(), "<evasive>"),
)
"""Values that are no number, no text and no pointer."""

_CLASSES: tuple[Any, ...] = (
    *(type(name, (), {}) for name in ("Plain", "SwigPyObject")),
    type("Destroys", (), {"__swig_destroy__": staticmethod(lambda *_: None)}),
    type("Breaks", (), {"__swig_destroy__": staticmethod(_raise)}),
    type("NoFunction", (), {"__swig_destroy__": 5}),
    type("NoInstance", (), {"__new__": lambda *_: None}),
    type("Raises", (), {"__new__": _raise}),
    type("Slots", (), {"__slots__": ()}),
    *(int, type, object, type(None), type(iter([])), type(len), _POINTER, None, 5, "x", Trouble(), _Evasive()),
)
"""What may be registered as a class."""

_TEXTS = ("", "x", "a\0b", "%n%s%s%n", "10.0.0.1", "::1", "00:11:22:33:44:55", "-1", "99999999999999999999")
_WIDTHS = (31, 32, 33, 47, 48, 49, 63, 64, 65, 80, 81, 82, 127, 128, 129, 130, 1039, 1040, 5000)
TEXTS: tuple[str, ...] = (
    *_TEXTS,
    *("x" * n for n in _WIDTHS),
    *("\u00e9" * (n // 2) for n in _WIDTHS),
    _OddText("odd"),
)
NOT_TEXTS = ("\ud800", "\udcff\udc80", "x\udfff")
"""Texts that have no UTF-8."""

_EDGES = (0, 1, 2, 3, 7, 8, 24, 25, 31, 32, 33, 127, 128, 255, 256, 32767, 32768, 65535, 65536, 2**31 - 1, 2**31)
NUMBERS: tuple[int, ...] = (*_EDGES, *(-n for n in _EDGES[1:]), 2**32 - 1, 2**32, 2**63 - 1, 2**63, 2**64 - 1, 2**64)
NUMBERS += (-(2**31) - 1, -(2**63), -(2**63) - 1, -(2**64), 10**40, True, False, IntegerSubclass(1))
_BOUNDS = {
    "u8": (0, 2**8 - 1),
    "u16": (0, 2**16 - 1),
    "u32": (0, 2**32 - 1),
    "u64": (0, 2**64 - 1),
    "size": (0, 2**64 - 1),
    "s32": (-(2**31), 2**31 - 1),
    "e8": (-(2**31), 2**31 - 1),
    "flag": (0, 255),
}
_CELLS = {"void *": "_p_p_void", "int": "_p_int", "zel_uint32": "_p_unsigned_int"}
"""The types that outputs are written through, and their mangled names."""


def _of_another_module() -> list[Any]:
    """Names that another module has made, where there is one; their memory is its own."""
    if importlib.util.find_spec("type_sharer") is None:
        return []
    return [Flat.bare(importlib.import_module("type_sharer").make("elsewhere"))]


class Flat:
    """Makes calls at random."""

    def __init__(self, seed: int, world: World, journal: Callable[[str], None] = lambda _: None) -> None:
        self.random = random.Random(seed)
        self.world = world
        self.journal = journal
        self.ledger = Ledger()
        self.functions = calls()
        self.weights = [0.01 if c.family == "registration" else 4 if c.function else 1 for c in self.functions]
        self.queue: list[Call] = []
        self.pool: dict[str, list[Any]] = {}
        self.blocks: dict[str, deque[Any]] = {}
        self.dead: deque[tuple[str, Any]] = deque(maxlen=60)
        self.handles: deque[Any] = deque(maxlen=20)
        self.cells = {kind: Cell(kind) for kind in ("_p_p_void", "_p_int", "_p_unsigned_int")}
        self.cells |= {kind: Cell(kind) for kind in infos() if kind.startswith("_p_p_") and kind[5:] in SIZES}
        self.registered: dict[str, int] = {}
        self.made: Counter[str] = Counter()
        self.returned: Counter[str] = Counter()
        self.raised: Counter[str] = Counter()
        self.outcomes: Counter[str] = Counter()
        self.left: Counter[str] = Counter()
        self.number = 0
        for call in self.functions:
            if call.family == "registration":  # no class that frees what its instances own: here that is counted
                getattr(k, call.name)(_Plain)
        self.others = _of_another_module()
        for name in SIZES:
            for _ in range(2):
                self._keep(name, self._aimed(name, self.ledger.room()))

    # ---- Records ----

    def _aimed(self, name: str, address: int) -> Any:
        return pointer(next(m for m in (f"_p_{name}", f"_p_struct_{name}") if m in infos()), address)

    def _keep(self, target: str, found: Any) -> None:
        held = self.pool.setdefault(target, [])
        entry = found, self.ledger.number(memory.address(found))
        if len(held) < 8:
            held.append(entry)
        else:
            held[self.random.randrange(2 if target in SIZES else 0, 8)] = entry

    def _own(self, target: str, found: Any) -> None:
        """Takes over a new block, and frees the oldest of its kind where there are many."""
        self.ledger.add(memory.address(found))
        self._keep(target, found)
        held = self.blocks.setdefault(target, deque())
        held.append((found, self.ledger.number(memory.address(found))))
        while len(held) > KEPT:
            self._free(target, *held.popleft())

    def _free(self, target: str, found: Any, block: int) -> None:
        address = memory.address(found)
        if self.ledger.number(address) != block:
            return
        if target == "VDSQuery":
            k.VDSQuery_propValue_set(found, None)
        self.ledger.remove(address)
        getattr(k, f"delete_{target}")(found)
        self.dead.append((target, found))

    def end(self) -> None:
        """Frees everything that is alive."""
        for target, held in self.blocks.items():
            while held:
                self._free(target, *held.popleft())

    # ---- Values ----

    def _given(self, value: Any, label: str, **known: Any) -> Given:
        return Given(value, label, **known)

    def _wrong(self) -> Given:
        value, label = self.random.choice(_WRONG)
        return Given(value, label, refused=True)

    def _pointed(self, target: str) -> Given:
        """One of the pointers that lead to such."""
        found, block = self.random.choice(self.pool[target])
        address = memory.address(found)
        stale = block != self.ledger.number(address)
        return Given(found, f"{'freed ' * stale}{target}@{address & 0xFFFFFF:x}", address=address, stale=stale)

    def _number(self, argument: Argument, call: Call) -> Given:
        low, high = _BOUNDS[argument.kind]
        roll = self.random.random()
        if roll < 0.15:
            if argument.kind == "flag":
                value: Any = self.random.choice(("", "\0", "1", None, 1, 0, 255))
                return Given(value, repr(value), number=value if isinstance(value, int) else 0)
            given = self._wrong()
            return self.random.choice((given, Given("1", "'1'", refused=True), Given(None, "None", refused=True)))
        number = self.random.choice((0, 1, 2, 3) if roll < 0.55 else NUMBERS)
        makes = call.family == "constructor" or call.name.startswith("alloc_")
        if makes and low <= number <= high and 64 < number % 2**32 < 2**31 and number < 2**40:
            number = self.random.choice((64, -number) if low < 0 else (64, 2**64 - 1))
        if low <= number <= high:
            return Given(number, str(number), number=int(number))
        beyond = argument.kind in ("s32", "e8") and not -(2**63) <= number < 2**63
        return Given(number, str(number), refused=not beyond, number=-1)

    def _text(self, argument: Argument) -> Given:
        roll = self.random.random()
        if roll < 0.1:
            return self.random.choice((self._wrong(), Given(7, "7", refused=True), Given(b"x", "b'x'", refused=True)))
        if roll < 0.15:
            return Given(self.random.choice(NOT_TEXTS), "surrogates", refused=True)
        if roll < 0.2:
            return Given(None, "None")
        if roll < 0.25 and "char" in self.pool:
            return self._pointed("char")
        value = self.random.choice(self.world.names if roll < 0.6 else TEXTS)
        limit = argument.width - (argument.kind == "text") if argument.width else None
        refused = limit is not None and len(value.encode()) > limit
        return Given(value, f"{value[:12]!r}~{str.__len__(value)}", refused=refused)

    def _pointer(self, argument: Argument) -> Given:
        roll = self.random.random()
        target = argument.target
        if roll < 0.08:
            return Given(None, "None", refused=argument.kind in ("source", "record"))
        if roll < 0.16:
            return self.random.choice((self._wrong(), Given(140737488355328, "address", refused=True)))
        if roll < 0.22:
            other, found = self.random.choice(self.dead) if self.dead else ("", None)
            if found is not None:
                refused = (
                    other != target and target != "void" and target not in HANDLES and not self._passes(other, target)
                )
                return Given(found, f"freed {other}", address=memory.address(found), stale=True, refused=refused)
        if roll < 0.23 and self.others:
            found = self.random.choice(self.others)
            refused = target not in ("void", "zel_Name", *HANDLES)
            address = memory.address(found)
            return Given(found, "another module's", address=address, stale=True, refused=refused)
        if roll < 0.3:
            other = self.random.choice(list(self.pool))
            if self.pool[other] and not self._alike(other, target):
                given = self._pointed(other)
                given.refused = target != "void" and target not in HANDLES
                return given
        if target in HANDLES or target == "void":
            if roll < 0.6 and self.handles:
                found = self.random.choice(self.handles)
                return Given(found, "handle", address=memory.address(found), stale=True)
            return self._pointed(self.random.choice(list(SIZES)))
        if target not in SIZES and (not self.pool.get(target) or (target in _CELLS and roll < 0.7)):
            return self._cell(target)
        given = self._pointed(target)
        if roll > 0.9:
            found = given.value
            given.value = self.random.choice((_Proxy(found), _Proxy(_Proxy(found)), _Slotted(lambda: found)))
            given.label = f"proxied {given.label}"
        return given

    def _cell(self, target: str) -> Given:
        kind = _CELLS.get(target) or f"_p_p_{target.removesuffix('*').strip()}"
        cell = self.cells.get(kind)
        if cell is None:
            return Given(None, "None")
        ctypes.c_uint64.from_address(memory.address(cell.pointer)).value = 0
        return Given(cell.pointer, f"cell {kind}")

    @staticmethod
    def _passes(given: str, wanted: str) -> bool:
        """Arrays pass for pointers to their elements."""
        return (given, wanted) in (("vidrangeArray", "zel_VDSPortVIDRange"), ("pvlanmapentryArray", "VSPvlanMapEntry"))

    def _alike(self, given: str, wanted: str) -> bool:
        """Whether pointers to one may pass for pointers to the other."""
        numbers = wanted not in SIZES and given not in SIZES
        return given == wanted or numbers or self._passes(given, wanted)

    def _value(self, argument: Argument, call: Call) -> Given:
        kind = argument.kind
        if kind in _BOUNDS:
            return self._number(argument, call)
        if kind in ("text", "text_pointer", "exactText"):
            return self._text(argument)
        if kind in ("pointer", "source", "record"):
            return self._pointer(argument)
        if kind == "callback":
            return Given(None, "None") if self.random.random() < 0.5 else self._wrong()
        if kind == "mac":
            value = self.random.choice(
                (b"123456", bytearray(b"1234567"), memoryview(b"x" * 9), b"", b"12345", None, "x")
            )
            return Given(value, repr(value), refused=not isinstance(value, (bytes, bytearray, memoryview)))
        if kind in ("bytesIn", "propertyValue"):
            text = self.random.choice((b"", b"x" * 16, b"y" * 200, bytes(16), "a text", None, 5))
            return Given(text, repr(text)[:12])
        if kind == "class":
            return Given(self.random.choice(_CLASSES), "class")
        return Given(self.random.choice((len, print, None, 5)), "callable")

    def _alias(self, call: Call, given: list[Given]) -> None:
        """Passes one of the pointers in the place of another, or what lies within it."""
        places = [
            i for i, a in enumerate(call.arguments) if a.kind in ("pointer", "source", "record") and given[i].address
        ]
        if len(places) < 2:
            return
        one, other = self.random.sample(places, 2)
        again = given[one]
        given[other] = Given(again.value, f"again {again.label}", address=again.address, stale=again.stale)
        # Whether it fits is not foreseen: what was given in the first place may be of any type that fits there.

    # ---- Calls ----

    def _next(self) -> Call:
        if not self.queue:
            self.queue = self.random.choices(self.functions, self.weights, k=4000)
        return self.queue.pop()

    def step(self) -> None:
        """One call, or what a rule says about one."""
        call = self._next()
        roll = self.random.random()
        if self.registered:
            self._register_plain()
        elif call.family == "function" and roll < 0.25 and not call.releases and self.world.knows(call):
            self._fitting(call)
            return
        given = [self._value(argument, call) for argument in call.arguments]
        if roll > 0.9:
            self._alias(call, given)
        if 0.85 < roll < 0.88:
            given = given[1:] if given and self.random.random() < 0.5 else [*given, Given(None, "too many")]
        if claimed := claim(call, given, self.ledger):
            self.left[claimed] += 1
            if claimed == "short" and self.ledger.in_room(given[0].address):
                size = min(SIZES.get(call.arguments[0].target, 8), self.ledger.extent(given[0].address))
                ctypes.memset(given[0].address, 0, size)
            return
        self.journal(f"{call.name}({', '.join(one.label for one in given)})")
        self._make(call, given)

    def _register_plain(self) -> None:
        for name in [name for name, left in self.registered.items() if left == 0]:
            getattr(k, name)(_Plain)
            del self.registered[name]
        for name in self.registered:
            self.registered[name] -= 1

    def _fitting(self, call: Call) -> None:
        """A call with arguments that do something, or come near to it."""
        self.journal(f"{call.name}(fitting)")
        self._make(call, [Given(value, "fitting") for value in self.world.fitting(call)])
        self.world.done()

    def _make(self, call: Call, given: list[Given]) -> None:
        function = getattr(k, call.name)
        counts = call.takes(len(given))
        refused = any(one.refused for one in given) or not counts
        answered = call.function is not None and call.function.library and not self.world.hands_out
        before = given[0].address if call.releases and counts and not answered else 0
        if before and not refused:
            self.ledger.remove(before)
            self.bare(given[0].value).disown()
            if call.arguments[0].target == "VDSQuery" and call.family == "destructor":
                k.VDSQuery_propValue_set(given[0].value, None)
        self.made[call.name] += 1
        self.number += 1
        try:
            result = function(*[one.value for one in given])
        except _ALLOWED as error:
            self.raised[call.name] += 1
            self.outcomes[type(error).__name__] += 1
            if before and not refused:
                raise SurpriseError(f"{call.name} has freed nothing: {error!r}") from error
            return
        self.returned[call.name] += 1
        if call.family == "registration":
            self.registered[call.name] = _REGISTERED
        if refused and call.name not in self.world.overloaded:
            raise SurpriseError(f"{call.name} takes {[one.label for one in given]}")
        self._take(call, given, result)

    def _take(self, call: Call, given: list[Given], result: Any) -> None:
        """Looks at what a call gave: pointers are kept, blocks are somebody's to free."""
        first = result[0] if isinstance(result, list) and result else result
        status = call.function is not None and call.function.returns == "ZEL_ReturnStatus"
        self.outcomes["ok" if not status else "status ok" if first == 0 else "status"] += 1
        if isinstance(result, list):
            for target, output in zip(call.outputs, result[1:], strict=False):
                if target and output is not None:
                    self._own(target, self.bare(output))
        elif call.gives and result is not None:
            self._given_back(call, given, self.bare(result))
        for one, argument in zip(given, call.arguments, strict=False):
            if one.label.startswith("cell _p_p_"):
                self._empty(one.value, argument)

    def _empty(self, cell: Any, argument: Argument) -> None:
        """Frees what the platform handed out through a cell."""
        place = ctypes.c_uint64.from_address(memory.address(cell))
        spelled = argument.parameter.type if argument.parameter else ""
        if not place.value or not self.world.hands_out:
            return
        if "DVSDataHandle" in spelled:
            k.DVSData_Free(pointer("_p_void", place.value))
        elif "DVSDataItem" in spelled:
            self.handles.append(pointer("_p_void", place.value))
        else:
            _libc.free(place.value)
        place.value = 0

    @staticmethod
    def bare(found: Any) -> Any:
        """The pointer object that is found, or that it carries."""
        while hasattr(found, "this"):
            found = found.this
        return found

    def _given_back(self, call: Call, given: list[Given], found: Any) -> None:
        if call.gives in HANDLES:
            self.handles.append(found)
            return
        address = memory.address(found)
        own_function = call.function is not None and not call.function.library and call.family == "function"
        if found.own() or own_function:
            if call.gives in SIZES and not self.ledger.extent(address):
                self._own(call.gives, found)
            return
        if call.member and call.member.kind == "pointer":  # blocks may have gone, and others be in their place
            leads_on = self.ledger.in_room(address)
        else:
            leads_on = self.ledger.number(address) == self.ledger.number(given[0].address) if given else False
        if leads_on and self.ledger.extent(address) >= SIZES.get(call.gives, 1):
            self._keep(call.gives, found)
        else:
            self.left["walk"] += 1

    def begin_anew(self) -> None:
        """The world as it was at first, and rooms without anything in them."""
        self.world.begin_anew()
        self.ledger.sweep()
        if problems := self.world.problems():
            raise SurpriseError(f"the world answers wrongly: {problems}")

    def counts(self) -> dict[str, dict[str, int]]:
        """What there was: calls by family, how they ended, what a rule kept from being called."""
        families: Counter[str] = Counter()
        for call in self.functions:
            families[call.family] += self.made[call.name]
        reached = {"functions": len(self.made), "returned": len(self.returned), "raised": len(self.raised)}
        left = {"not made, by rule": dict(self.left)}
        return {"reached": reached, "families": dict(families), "outcomes": dict(self.outcomes), **left}

    def finish(self) -> None:
        """Calls every function that has not yet both returned and raised until it has."""
        readers = {call.member: call for call in self.functions if call.family == "reader"}
        for call in self.functions:
            for _ in range(4000):
                if self.returned[call.name] and self.raised[call.name]:
                    break
                self.queue.append(call)
                if call.family == "method":
                    self._fill(call.arguments[0].target)
                if call.member and call.family == "writer":  # what it may be copied from
                    self.queue.append(readers[call.member])
                    self.step()
                self.step()

    def _fill(self, target: str) -> None:
        """Lets the rooms of a record say that some entries follow."""
        for found, _ in self.pool[target][:2]:
            for offset, width, swapped, _ in COUNTERS.get(target, ()):
                count = (3).to_bytes(width, "big" if swapped else "little")
                ctypes.memmove(memory.address(found) + offset, count, width)

    def missing(self) -> list[str]:
        """The functions that have not both returned and raised."""
        return [c.name for c in self.functions if not (self.returned[c.name] and self.raised[c.name])]


class World:
    """What the calls meet, as far as they have to know."""

    names: tuple[str, ...] = ("dvs", "p1", "up1")
    overloaded = ("DVSAliasToPortsetName",)
    """Functions whose other form takes what one form refuses."""
    hands_out = False
    """Whether blocks come through cells."""

    def knows(self, call: Call) -> bool:
        """Whether there are arguments for a call that do something."""
        raise NotImplementedError

    def fitting(self, call: Call) -> list[Any]:
        """Such arguments."""
        raise NotImplementedError

    def done(self) -> None:
        """What the arguments needed may go."""

    def begin_anew(self) -> None:
        """Everything is as it was at first."""

    def problems(self) -> list[str]:
        """What the world answers wrongly."""
        return []
