"""Which of the opportunities for a fault are taken: all of them, or a few of each work."""

from __future__ import annotations

import os

VARIABLE = "FAULT_POINTS"
_FEW = 3


def chosen(count: int) -> list[int]:
    """Numbers from 1 to `count`: as many as FAULT_POINTS says, spread evenly with the first and the last among them;
    all of them for "all".
    """
    wanted = os.environ.get(VARIABLE, str(_FEW))
    most = count if wanted == "all" else int(wanted)
    if count <= most:
        return list(range(1, count + 1))
    if most == 1:
        return [1]
    return sorted({1 + step * (count - 1) // (most - 1) for step in range(most)})
