"""What type checkers find for users; mypy reads it, nothing runs it."""

import _libkestrel

from libkestrel import records

info = records.VSInfo(nothing=1)  # wrong
info.mtu = "x"  # wrong
records.VSPortInfo().vlan = records.VSPortInfo_vlan()  # wrong
_libkestrel.VSZEL_GetVSInfo("a", 3)  # wrong
_libkestrel.nothing()  # wrong
_libkestrel.VSInfo_mtu_set(info, "9000")  # wrong
info.mtu = 9000
