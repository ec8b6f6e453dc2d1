"""Pictures of a host: a tree of lines, and a graph in Graphviz's language."""

from __future__ import annotations

from collections.abc import Iterable
from typing import TYPE_CHECKING, Any

from libkestrel.cli.values import vlan_text

if TYPE_CHECKING:
    from libkestrel.host import Switch

Described = dict[str, Any]
"""A switch as a row of the answer "topology"."""


def described(switch: Switch, *, empty: bool) -> Described:
    """A switch with its uplinks and ports; ports that nobody is plugged into only where they are asked for."""
    from libkestrel.cli.nouns import port as ports
    from libkestrel.cli.nouns import uplink

    clients = ports.clients_of(switch.name)
    uplinks = uplink.rows(switch)
    outside = {row["port"] for row in uplinks}
    inside = [
        {
            "port": port.id,
            "vlan": vlan_text(port.vlan),
            "client": clients[port.id].name if port.id in clients else None,
            "mac": clients[port.id].used_mac if port.id in clients else None,
        }
        for port in switch.ports.values()
        if port.id not in outside and (empty or not clients or port.id in clients)
    ]
    return {
        "switch": switch.name,
        "mtu": switch.mtu,
        "uplinks": [
            {"name": row["uplink"], "nic": row["nic"], "up": row["link"] == "up", "lag": row["lag"]} for row in uplinks
        ],
        "ports": inside,
    }


def _by_vlan(switch: Described) -> dict[str, list[dict[str, Any]]]:
    found: dict[str, list[dict[str, Any]]] = {}
    for port in switch["ports"]:
        found.setdefault(port["vlan"], []).append(port)
    return found


def _vlan_title(vlan: str) -> str:
    return f"VLAN {vlan}" if vlan[0].isdigit() else vlan


# ---- Lines ----


def tree(switches: Iterable[Described]) -> list[str]:
    """The switches as a tree."""
    lines: list[str] = []
    for switch in switches:
        lines.append(f"{switch['switch']}  MTU {switch['mtu']}")
        parts = [("uplinks", [_uplink_line(uplink) for uplink in switch["uplinks"]])]
        parts += [(_vlan_title(vlan), [_port_line(port) for port in ports]) for vlan, ports in _by_vlan(switch).items()]
        lines += _branches([part for part in parts if part[1]])
    return lines


def _branches(parts: list[tuple[str, list[str]]]) -> list[str]:
    lines = []
    for i, (title, leaves) in enumerate(parts):
        is_last = i == len(parts) - 1
        lines.append(f"{'└' if is_last else '├'}─ {title}")
        for j, leaf in enumerate(leaves):
            lines.append(f"{'   ' if is_last else '│  '}{'└' if j == len(leaves) - 1 else '├'}─ {leaf}")
    return lines


def _uplink_line(uplink: dict[str, Any]) -> str:
    if uplink["nic"] is None:
        return f"{uplink['name']}: no NIC"
    group = f" in {uplink['lag']}" if uplink["lag"] else ""
    return f"{uplink['name']}: {uplink['nic']}{group}, {'up' if uplink['up'] else 'down'}"


def _port_line(port: dict[str, Any]) -> str:
    return f"{port['port']}: {port['client']} {port['mac']}" if port["client"] else f"{port['port']}: nobody"


# ---- A graph ----


def dot(switches: Iterable[Described]) -> str:
    """The switches as a graph: NICs at the left, switches in the middle, VLANs with their clients at the right."""
    lines = [
        "digraph host {",
        '  rankdir=LR; node [shape=box, style="rounded,filled", fillcolor=white, fontname="sans-serif"];',
        '  edge [dir=none, fontname="sans-serif", fontsize=10];',
    ]
    for number, switch in enumerate(switches):
        name = f"switch{number}"
        lines.append(f"  {name} [label={_quoted(switch['switch'], 'MTU ' + str(switch['mtu']))}, fillcolor=lightblue];")
        for i, uplink in enumerate(switch["uplinks"]):
            lines += _uplink_nodes(name, i, uplink)
        for i, (vlan, ports) in enumerate(_by_vlan(switch).items()):
            node = f"{name}_vlan{i}"
            lines.append(f"  {node} [label={_quoted(_vlan_title(vlan))}, shape=ellipse, fillcolor=lightyellow];")
            lines.append(f"  {name} -> {node};")
            for j, port in enumerate(ports):
                leaf = f"{node}_{j}"
                label = _quoted(port["client"] or "nobody", port["mac"] or "")
                lines.append(f"  {leaf} [label={label}]; {node} -> {leaf} [label={_quoted(port['port'])}];")
    return "\n".join([*lines, "}", ""])


def _uplink_nodes(switch: str, number: int, uplink: dict[str, Any]) -> list[str]:
    node = f"{switch}_uplink{number}"
    colour = "lightgreen" if uplink["up"] else "lightgrey" if uplink["nic"] is None else "salmon"
    words = _quoted(uplink["nic"] or "no NIC", uplink["lag"] or "")
    style = "" if uplink["up"] else ", style=dashed"
    return [
        f"  {node} [label={words}, fillcolor={colour}];",
        f"  {node} -> {switch} [label={_quoted(uplink['name'])}{style}];",
    ]


def _quoted(*lines: str) -> str:
    """A label of some lines."""
    escaped = (line.replace("\\", "\\\\").replace('"', '\\"') for line in lines if line)
    return '"' + "\\n".join(escaped) + '"'
