"""Wrong calls of everything, at random and by seed: what makes them, and tests that make some.

`run` makes as many as are wanted, in processes of their own. `flat` calls the module's functions, except where `rules`
says by which of them a call would trust its caller; `records` and `objects` call what the companion package publishes.
"""
