# SPDX-License-Identifier: MIT
"""Pictures on their way into a training: shards, folders, augmentation, what is cut out of frames, and the
second space of heads made ready for the renderer. Nothing here knows a network's layers or a loss."""
