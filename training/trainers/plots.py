# SPDX-License-Identifier: MIT
"""Curves as pictures."""
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt


def draw_curves(history, path):
    """One panel a quantity, over the pictures seen."""
    names = []
    for entry in history:
        names += [name for name in entry if name != "views" and name not in names]
    if not names:
        return
    figure, panels = plt.subplots(1, len(names), figsize=(4 * len(names), 3), squeeze=False)
    for panel, name in zip(panels[0], names):
        points = [(entry["views"], entry[name]) for entry in history if name in entry]
        panel.plot(*zip(*points), marker="." if len(points) < 50 else None)
        panel.set_title(name)
        panel.set_xlabel("pictures seen")
        panel.grid(alpha=0.3)
    figure.tight_layout()
    figure.savefig(path, dpi=90)
    plt.close(figure)
