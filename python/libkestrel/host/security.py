"""Security policies of ports: what their clients may do with addresses."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import _libkestrel as flat

from libkestrel import records
from libkestrel.host._objects import HostObject, setting


@dataclass(frozen=True)
class SecurityPolicy:
    """What a port's client may do. By default it keeps to its own address."""

    promiscuous: bool = False
    """Whether the client may receive frames for others."""
    mac_changes: bool = False
    """Whether the client may take another address."""
    forged_transmits: bool = False
    """Whether the client may send from an address that is not its own."""

    @classmethod
    def from_flags(cls, flags: int) -> SecurityPolicy:
        """The policy that VSPORT_SECURITY_* flags stand for, each of which forbids something."""
        return cls(
            promiscuous=not flags & flat.VSPORT_SECURITY_DISALLOW_PROMISC,
            mac_changes=not flags & flat.VSPORT_SECURITY_DISALLOW_MAC_CHANGE,
            forged_transmits=not flags & flat.VSPORT_SECURITY_DISALLOW_FORGED_SRC,
        )

    @property
    def flags(self) -> int:
        """The policy as VSPORT_SECURITY_* flags."""
        return (
            (0 if self.promiscuous else flat.VSPORT_SECURITY_DISALLOW_PROMISC)
            | (0 if self.mac_changes else flat.VSPORT_SECURITY_DISALLOW_MAC_CHANGE)
            | (0 if self.forged_transmits else flat.VSPORT_SECURITY_DISALLOW_FORGED_SRC)
        )


class PortSecurity(HostObject):
    """The security side of a port."""

    _names: tuple[str, str]

    @setting("security policy", flat.VSPROP_PORT_SECURITY)
    def security(self) -> SecurityPolicy:
        """The security policy; by default everything is forbidden."""
        record = records.VSPropSecurity()
        self._check(flat.VSDVS_GetPortSecurity(*self._names, record), "read security policy")
        return SecurityPolicy.from_flags(record.flags)

    @security.writes
    def _set_security(self, policy: SecurityPolicy) -> None:
        record = records.VSPropSecurity(flags=policy.flags)
        self._check(flat.VSDVS_SetPortSecurity(*self._names, record), "set security policy")

    def ensure_security(self, policy: SecurityPolicy) -> bool:
        """Sets the security policy if it is another. Returns whether it was."""
        return PortSecurity.security.ensure(self, policy)


class SwitchSecurity(HostObject):
    """The security side of a switch."""

    name: str

    def port_security(self) -> dict[int, SecurityPolicy]:
        """The security policies of all ports, by port number."""
        result: list[Any] = flat.VSZEL_GetL2Security(self.name)
        with self._kept(result, "read security policies", flat.VSZEL_FreeMemory) as table:
            return {e.portID: SecurityPolicy.from_flags(e.l2SecPortInfo.flags) for e in table}
