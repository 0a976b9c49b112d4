# SPDX-License-Identifier: MIT
"""Measuring, through the built library: galleries, pairs, groups, the cone that features lie in, simple methods
to compare with. Pictures of real people come here and nowhere else; nothing found here goes back into a
weight or a threshold of the training."""
