"""The enhanced datapath: of a portset, of a module of it, and for a world that serves a port."""

from __future__ import annotations

from libkestrel import Host, errors
from libkestrel.host import DatapathModule, DatapathPortset


def main() -> None:
    """Turns the enhanced datapath of a switch on, and off again as a plan that is shown first."""
    host = Host()
    switch = host.switch("dvs-prod")
    host.set_datapath([DatapathPortset(switch.portset, switch_mode=1)], active=True, most_outage=500)
    host.set_module_datapath(switch.portset, [DatapathModule(3)], active=True)
    number = switch.port("10").number
    host.set_world_of_port(7, number, associated=True)
    with host.plan() as plan:
        plan.set_world_of_port(7, number, associated=False)
        plan.set_module_datapath(switch.portset, [DatapathModule(3)], active=False)
        plan.set_datapath([DatapathPortset(switch.portset)], active=False)
    print(plan.show())
    print(plan.apply(), "changes made")
    try:
        host.set_datapath([DatapathPortset("nowhere")], active=True)
    except errors.NotFound as error:
        print(error)


if __name__ == "__main__":
    main()
