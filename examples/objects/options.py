"""Runtime options and properties: values by name and by key."""

from __future__ import annotations

import _libkestrel

from libkestrel import Host, records


def main() -> None:
    """Reads and changes options and properties of the sample host, and brings them back."""
    host = Host()
    before = host.options.read(["IGMPVersion", "IGMPRouterIP"])
    print(before)
    print("changed:", host.options.ensure({"IGMPVersion": 2, "IGMPRouterIP": "192.0.2.1"}))
    print(host.options["IGMPRouterIP"])
    host.options.update(before)

    properties = host.switch("dvs-storage").properties
    print({key: value.hex() for key, value in properties.items()})
    print("MTU:", properties.read(_libkestrel.VSPROP_MTU, int))
    print("learning:", properties.read(_libkestrel.VSPROP_SWITCH_MAC_LEARNING, records.VSPropMACLearning).to_dict())
    properties["org.example.owner"] = "storage team"
    print("owner:", properties.read("org.example.owner", str))
    del properties["org.example.owner"]


if __name__ == "__main__":
    main()
