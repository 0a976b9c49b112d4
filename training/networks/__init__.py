# SPDX-License-Identifier: MIT
"""The two networks written once (`layers`), the one walk over their operations, and three arithmetics to
walk it with: float, quantised for training, exact integers. The built library stands beside them as a
fourth. Nothing here knows of losses, files of pictures or people."""
