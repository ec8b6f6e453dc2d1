"""The published constants: names, values, types and order."""

from __future__ import annotations

import re

import _libkestrel
import pytest

from headers import model
from headers.model import Constant

CONSTANTS = model.read().constants

TELLING = {
    "ZEL_OK": 0,
    "ZEL_FAILURE": 0x0BAD0001,
    "ZEL_WOULD_BLOCK": 0x0BAD0002,
    "ZEL_NOT_FOUND": 0x0BAD0003,
    "ZEL_BUSY": 0x0BAD0004,
    "ZEL_EXISTS": 0x0BAD0005,
    "ZEL_LIMIT_EXCEEDED": 0x0BAD0006,
    "ZEL_BAD_PARAM": 0x0BAD0007,
    "ZEL_NO_MEMORY": 0x0BAD0014,
    "ZEL_NOT_SUPPORTED": 0x0BAD0020,
    "ZEL_TIMEOUT": 0x0BAD0021,
    "ZEL_READ_ONLY": 0x0BAD0022,
    "ZEL_NOT_INITIALIZED": 0x0BAD0031,
    "ZEL_NAME_TOO_LONG": 0x0BAD0033,
    "ZEL_NO_FCNTL_LOCK_HOLDER": 0x0BAD00E8,
    "ZEL_VSI_MODULE_NOT_FOUND": 0x0BAD00EA,
    "ZEL_FT_NOT_RUNNING": 0x0BAD0126,
    "ZEL_ELF_UNKNOWN_RELOCATIONS": 0x0BAD0128,
    "ZEL_SVM_IO_RETRY": 0x0BAD012F,
    "ZEL_PERM_DEV_LOSS": 0x0BAD0132,
    "ZEL_LAST_ERR": 0x0BAD016C,
    "ZEL_GENERIC_LINUX_ERROR": 0x2BAD0000,
    "ZEL_FALSE": 0,
    "ZEL_FMT64": "L",
    "ZEL_EXABYTE": 0x1000000000000000,
    "ZEL_PETABYTE": 0x4000000000000,
    "ALL_PROP_TYPE": -2147483396,
    "NO_SYNC_PROP_TYPE": -2147483648,
    "VS_DVMIRROR_MAGIC_NUM": -87114001,
    "VS_DVMIRROR_SNAPLEN_COMPLETE": -1,
    "ZEL_LINK_DUPLEX_AUTO": -1,
    "ZEL_ETH_ADDR_FMT_STR": "%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx",
    "NUM_RUNTIME_INT_OPTIONS": 15,
    "VS_NUM_RT_OPT": 17,
    "RTMDEV_PATH": "/oskara/devices/char/zeldriver/rtm",
    "VSPROP_SWITCH_STATUS": "com.talvex.common.opaqueDvs.status.component.vswitch",
    "RTM_IOCCMD_ENS_ACTIVATE": 1,
}


@pytest.mark.parametrize("name", TELLING)
def test_telling_values(name: str) -> None:
    assert getattr(_libkestrel, name) == TELLING[name]


@pytest.mark.parametrize("constant", [pytest.param(c, id=c.name) for c in CONSTANTS])
def test_a_constant_has_its_value_and_plain_type(constant: Constant) -> None:
    published = getattr(_libkestrel, constant.name)
    assert published == constant.value
    assert type(published) is type(constant.value)
    assert type(published) in (int, str)


def test_counts() -> None:
    assert len(CONSTANTS) == len({c.name for c in CONSTANTS}) == 1036
    assert sum(isinstance(c.value, int) for c in CONSTANTS) == 943
    assert sum(isinstance(c.value, str) for c in CONSTANTS) == 93


def test_publication_order_and_the_three_runs() -> None:
    attributes = [n for n in vars(_libkestrel) if n == "cvar" or n in {c.name for c in CONSTANTS}]
    place = attributes.index("cvar")
    assert place == 377
    assert attributes[:place] + attributes[place + 1 :] == [c.name for c in CONSTANTS]
    runs = [[c.name for c in CONSTANTS if c.run == run] for run in range(3)]
    assert [len(run) for run in runs] == [377, 371, 288]
    assert (runs[0][0], runs[0][-1]) == ("ZEL_MODULE_NAME_MAX", "ZEL_IOCTL_CALLER_32")
    assert (runs[1][0], runs[1][-1]) == ("ZEL_MISC_NAME_MAX", "RUNTIME_PROP_TYPE")
    assert runs[2][-1] == "RTM_IOCCMD_ENS_ACTIVATE"


def test_status_codes_come_in_value_order_between_general_and_other_constants() -> None:
    names = [c.name for c in CONSTANTS]
    codes = [c for c in CONSTANTS if c.text is not None and c.name != "ZEL_GENERIC_LINUX_ERROR"]
    numbers = [c.value for c in codes if isinstance(c.value, int)]
    assert len(codes) == len(numbers) == 361
    assert numbers == sorted(set(numbers))
    assert names.index("ZEL_OK") == 13
    assert names[13 : 13 + 361] == [c.name for c in codes]
    assert all(0x0BAD0001 <= n <= 0x0BAD016C for n in numbers[1:])
    gaps = set(range(0x0BAD0001, 0x0BAD016D)) - set(numbers)
    assert gaps == {0x0BAD00E9, 0x0BAD0127, 0x0BAD0130, 0x0BAD0131}


def test_runtime_option_codes_and_indexes_agree() -> None:
    codes = {c.name.removeprefix("VS_RT_OPT_"): c.value for c in CONSTANTS if c.name.startswith("VS_RT_OPT_")}
    prefix = "GET_RUNTIME_OPTIONS_"
    indexes = {c.name.removeprefix(prefix): c.value for c in CONSTANTS if c.name.startswith(prefix)}
    assert len(codes) == 17
    assert len(indexes) == 15
    assert indexes.items() <= codes.items()


def test_network_byte_order_twins_are_swapped() -> None:
    twins = [c for c in CONSTANTS if re.fullmatch(r"ZEL_ETH_TYPE_\w+_NBO", c.name)]
    assert len(twins) == 28
    for twin in twins:
        host = getattr(_libkestrel, twin.name.removesuffix("_NBO"))
        assert twin.value == int.from_bytes(host.to_bytes(2, "big"), "little")


def test_constants_can_be_replaced_like_any_attribute() -> None:
    before = _libkestrel.ZEL_OK
    vars(_libkestrel)["ZEL_OK"] = 5
    assert _libkestrel.ZEL_OK == 5
    vars(_libkestrel)["ZEL_OK"] = before
