# SPDX-License-Identifier: MIT
"""The version that was installed."""
from importlib.metadata import PackageNotFoundError, version

try:
    __version__ = version("orvo-fr")
except PackageNotFoundError:  # used from a checkout, without installing
    __version__ = "0+checkout"
