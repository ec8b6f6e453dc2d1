"""What the tests share: raw memory, the recorder platform, values by conversion class."""
