"""The commands of the first level: a module for each, whose `command` is the noun."""
