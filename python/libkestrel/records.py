"""A class for each record of the platform, and for its two plain arrays.

A record is an object over C memory: its own, a part of another record's, or the platform's. Members are attributes
with natural values: flags are bool, names str, MAC addresses `MacAddress`, IP addresses objects of `ipaddress`,
enumerations enumerators of `libkestrel.enums`, arrays sequences with bounds. Records can be passed to every function of
`_libkestrel` that takes a pointer to them, and once this module is imported such functions give records back.

Memory. A part keeps the record alive that it lies in, and a record what its pointers point to. A record's memory goes
with it, unless it is the platform's, which `release_with` ties to the function that takes it back. Whoever uses memory
that has gone gets a ReferenceError.

Errors. Setting a member raises TypeError for a value of the wrong kind, OverflowError for an int out of range and
ValueError for text that does not fit, a malformed address, or a count that says more than the memory holds.
"""

from __future__ import annotations

import _libkestrel

from libkestrel import _records
from libkestrel._bases import Record, Table
from libkestrel._records import Array, Field, MacAddress, Rows

_CLASSES = _records.make_classes(Record, Table, _libkestrel)
globals().update(_CLASSES)

__all__ = ["Array", "Field", "MacAddress", "Record", "Rows", "Table", *_CLASSES]
