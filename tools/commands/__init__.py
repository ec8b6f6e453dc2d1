"""What is derived from the command line's tree of commands: reference pages, the JSON Schema, man pages."""
