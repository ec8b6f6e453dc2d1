"""Long tables at once: rows, columns and buffers over the platform's memory."""

from __future__ import annotations

from collections import Counter

from libkestrel import Host, records


def main() -> None:
    """Goes through a MAC table in three ways, and keeps a part of it."""
    with Host().switch("dvs-prod").mac_table() as table:
        for address, _kind, port, _aging, vlan, *_rest in table.rows():  # the fastest way through all of it
            print(f"{address} in VLAN {vlan} behind port {port:#x}")
        columns = table.columns()
        print("addresses by VLAN:", dict(Counter(columns["vid"])))
        view = memoryview(columns["vid"])  # or numpy.asarray(columns["vid"]): no byte is copied
        print(f"{len(view)} numbers of {view.itemsize} bytes, {view.strides[0] if view.strides else 0} apart")
        view.release()
        first = table[0].copy()
    # The table's memory has gone back to the platform; the copy is a record of its own.
    print(first.to_dict()["macAddress"], table.released)
    made = records.VSMACTable(macEntries=[first, {"macAddress": "02:00:00:00:00:01", "vid": 7}])
    print([entry.vid for entry in made], len(bytes(made)), "bytes")


if __name__ == "__main__":
    main()
