"""What the public headers declare, read from the headers themselves.

`model` reads them; the other modules generate from the model: `layout_assertions` the compile-time proof of every
size and offset, `recorder` the platform that the tests put in the host's place.
"""
