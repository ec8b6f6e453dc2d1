"""Faults, one after another: the nth allocation, the nth call of the system or of the platform fails, a signal comes.

Each piece of work is done again and again, with the fault at its first opportunity, its second, and so on until it
meets none. Whatever it does then it says so, leaves nothing behind, and what it was to change is whole or unchanged.
"""
