"""Plans changes of several objects, shows them, and makes them together: all of them or none."""

from __future__ import annotations

from libkestrel import AccessVlan, Host, PlanError, SecurityPolicy


def main() -> None:
    """Makes one plan that works and one that fails."""
    host = Host()
    switch = host.switches.create("dvs-plan", "91c4e2d8-03b7-4a8c-b6fd-5e2a7c190f36")
    with host.plan() as plan:
        planned = plan.switch("dvs-plan")
        planned.mtu = 9000
        for number in range(3):
            planned.ports.ensure_added(f"web-{number}")
            planned.port(f"web-{number}").ensure_vlan(AccessVlan(100))
        planned.port("web-0").ensure_security(SecurityPolicy(mac_changes=True))
    print(plan.show())
    print(f"{plan.apply()} changes made")

    with host.plan() as plan:
        plan.switch("dvs-plan").mtu = 1500
        plan.switch("dvs-plan").port("web-1").vlan = AccessVlan(5000)
    try:
        plan.apply()
    except PlanError as error:
        print(error)
    print(f"the MTU is still {switch.mtu}")
    host.switches.destroy(switch.name)


if __name__ == "__main__":
    main()
