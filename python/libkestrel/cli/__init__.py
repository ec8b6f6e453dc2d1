"""The command line, `kestrel`: nouns and verbs over the host's objects. docs/command-line.md is the reference.

A noun is a module of its name. `entry` is where a process begins, `app` the tree of commands, `session` what all
commands share, `output` how answers are written, `exits` how a command ends.
"""
