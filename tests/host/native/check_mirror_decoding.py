"""Lets tshark read the packets that mirror sessions send to collectors.

What it finds is compared with what the sessions were told: tunnel headers, VLANs and the frame inside. Nothing may be
malformed and no checksum wrong.
"""

from __future__ import annotations

import argparse
import json
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Any

GRE, ERSPAN2, ERSPAN3 = range(3)
PROTOCOLS = {GRE: 0x6558, ERSPAN2: 0x88BE, ERSPAN3: 0x22EB}
# What makes a packet one that tshark does not accept. A frame that was cut off ends early by itself.
FAULTS = (
    "_ws.malformed || ip.checksum.status == 0 || udp.checksum.status == 0 || _ws.expert.severity == 0x00800000"
    " || erspan.version.unknown"
)

# The values of fields in a packet, outermost first.
Record = dict[str, list[int | str]]


def tshark(pcap: Path, *options: str) -> list[str]:
    checks = ["ip.check_checksum:TRUE", "udp.check_checksum:TRUE", "ip.defragment:TRUE", "ipv6.defragment:TRUE"]
    command = ["tshark", "-r", str(pcap), "-n", *(word for check in checks for word in ("-o", check)), *options]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


def value(text: str) -> int | str:
    """A number as such, be it written with base 10 or 16."""
    try:
        return int(text, 0)
    except ValueError:
        return text


def decoded(pcap: Path, fields: list[str]) -> list[Record]:
    """The values of some fields in each frame."""
    columns = [word for field in fields for word in ("-e", field)]
    lines = tshark(pcap, "-T", "fields", "-E", "separator=;", "-E", "occurrence=a", *columns)
    cells = ([[value(text) for text in cell.split(",") if text] for cell in line.split(";")] for line in lines)
    return [dict(zip(fields, row, strict=True)) for row in cells]


def expected(sample: dict[str, Any]) -> Record:
    """What a packet must say, by field."""
    is_erspan = sample["encapsulation"] != GRE
    outer, inner = ("ipv6" if ":" in address else "ip" for address in (sample["collector"], sample["source"]))
    addresses: Record = {"ip.dst": [], "ipv6.dst": []}
    addresses[f"{outer}.dst"].append(sample["collector"])
    addresses[f"{inner}.dst"].append(sample["destination"])
    vlans = [sample["carrier"]] * bool(sample["carrier"]) + [sample["vlan"]] * sample["keeps_tag"]
    return {
        **addresses,
        "eth.dst": ["02:00:00:00:00:07", "02:00:00:00:00:02"],
        "vlan.id": vlans,
        "gre.proto": [PROTOCOLS[sample["encapsulation"]]],
        "gre.key": [] if is_erspan or not sample["key"] else [sample["key"]],
        "gre.sequence_number": [0] if is_erspan else [],
        "erspan.version": [sample["encapsulation"]] if is_erspan else [],
        "erspan.vlan": [sample["vlan"]] if is_erspan else [],
        "erspan.truncated": [int(sample["is_cut"])] if is_erspan else [],
        "erspan.spanid": [sample["session"]] if is_erspan else [],
        "erspan.encap": [3 if sample["keeps_tag"] else 2] if sample["encapsulation"] == ERSPAN2 else [],
        "erspan.index": [sample["port"]] if sample["encapsulation"] == ERSPAN2 else [],
        "erspan.direction": [int(sample["is_out"])] if sample["encapsulation"] == ERSPAN3 else [],
        "erspan.gra": [0] if sample["encapsulation"] == ERSPAN3 else [],
        "udp.length": [sample["size"]],
    }


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", nargs=argparse.REMAINDER, help="host_mirror_samples, behind what it is run with")
    program = parser.parse_args().program
    with tempfile.TemporaryDirectory() as folder:
        pcap, expectations = Path(folder, "mirrors.pcap"), Path(folder, "expectations")
        subprocess.run([*program, pcap, expectations], check=True)
        samples = [json.loads(line) for line in expectations.read_text().splitlines()]
        records = decoded(pcap, list(expected(samples[0])))
        cut = {sample["last"] for sample in samples if sample["is_cut"]}
        faulty = {int(line) for line in tshark(pcap, "-Y", FAULTS, "-T", "fields", "-e", "frame.number")} - cut

    faults = [f"frame {number}: not accepted" for number in sorted(faulty)]
    for sample in samples:
        # Fragments are read where the last of them comes.
        record = records[sample["last"] - 1]
        for field, values in expected(sample).items():
            if record[field] != values:
                faults.append(f"frame {sample['last']}: {field} is {record[field]}, not {values}")
    print("\n".join(faults[:40]))
    print(f"{len(records)} frames of {len(samples)} samples, {len(faults)} faults")
    return int(bool(faults) or len(records) != samples[-1]["last"])


if __name__ == "__main__":
    sys.exit(main())
