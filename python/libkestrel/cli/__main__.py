"""`python -m libkestrel.cli` is `kestrel`."""

from libkestrel.cli.entry import main

if __name__ == "__main__":
    main()
