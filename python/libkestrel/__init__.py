"""Companion of the flat module `_libkestrel`: what people use on top of it.

`platform_info` tells which platform libraries answer in this process.
"""

from libkestrel.platform_info import Library, PlatformInfo, platform_info

__all__ = ["Library", "PlatformInfo", "platform_info"]
