"""Teams uplinks: a policy of the switch, a named one that a port follows, and a port that is tied to an uplink."""

from __future__ import annotations

from libkestrel import Host, TeamingPolicy
from libkestrel.host import LoadBalance, NamedTeamingPolicy


def main() -> None:
    """Configures the storage switch of the sample host and brings it back to its defaults."""
    switch = Host().switch("dvs-storage")
    port = switch.port("20")
    switch.teaming = TeamingPolicy(active=("uplink1",), standby=("uplink2",), balance=LoadBalance.EXPLICIT_FAILOVER)
    print(f"{port.id} sends through {port.uplink_in_use()}")

    switch.uplinks["vmnic4"].admin_up = False
    print(f"after a failure through {port.uplink_in_use()}")
    switch.uplinks["vmnic4"].admin_up = True

    switch.named_teaming = (NamedTeamingPolicy("second only", active=("uplink2",)),)
    port.named_teaming = "second only"
    print(f"{port.id} follows {port.named_teaming!r}")

    port.teaming_override = "uplink1"
    print(f"and is tied to {port.teaming_override}")
    port.ensure_default("named_teaming", "teaming_override")
    switch.ensure_default("named_teaming", "teaming")


if __name__ == "__main__":
    main()
