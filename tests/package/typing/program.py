"""A program as users write it; mypy reads it, nothing runs it."""

import ipaddress
from typing import assert_type

import _libkestrel
from _libkestrel import SwigPyObject

from libkestrel import enums, records
from libkestrel.records import MacAddress, VSInfo, VSMACTable

info = VSInfo(mtu=9000, dvsName="a")
assert_type(info.mtu, int)
assert_type(info.dvsName, str)
info.mtu = 1500
status: int = _libkestrel.VSZEL_GetVSInfo("a", info)
entry = records.VSMACEntry(macAddress="00:00:00:00:00:01")
assert_type(entry.macAddress, MacAddress)
entry.macAddress = "00:00:00:00:00:02"
assert_type(entry.aging, bool)
table = VSMACTable(macEntries=[entry, {"vid": 4}])
for row in table:
    assert_type(row, records.VSMACEntry)
assert_type(table.macEntries[0], records.VSMACEntry)
assert_type(records.VSMACTable.macEntries, records.Field)
assert_type(records.zel_LinkStatus(state=enums.zel_LinkState.ZEL_LINK_STATE_UP).state, enums.zel_LinkState | int)
assert_type(records.zel_IPv4Hdr().saddr, ipaddress.IPv4Address)
assert_type(_libkestrel.new_VSInfo(), SwigPyObject)
assert_type(_libkestrel.ZEL_ReturnStatusToString(_libkestrel.ZEL_OK), str | None)
lags = records.VSLAGTable(lags=[])
assert_type(lags.lags, tuple[records.VSLAGStatus, ...])
