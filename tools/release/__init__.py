"""What makes and checks a release. Each module is a command: python -m release.wheels, ..."""
