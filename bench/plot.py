"""The plot of cost against size: a panel for each work, a line for each candidate."""

import math

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "bench"  # the same numbers make the same file
import matplotlib.pyplot as pyplot  # noqa: E402


def draw(rows, file):
    rows = [row for row in rows if row["size"] is not None]
    panels = list(dict.fromkeys((row["work"], row["unit"]) for row in rows))
    columns = min(3, len(panels))
    lines = math.ceil(len(panels) / columns)
    figure, axes = pyplot.subplots(
        lines, columns, figsize=(4.2 * columns, 3.2 * lines), squeeze=False
    )
    names = list(dict.fromkeys(row["candidate"] for row in rows))
    colours = {name: "C%d" % (i % 10) for i, name in enumerate(names)}
    for panel, (work, unit) in zip(axes.flat, panels):
        here = [row for row in rows if (row["work"], row["unit"]) == (work, unit)]
        for name in names:
            points = sorted((r["size"], r["median"]) for r in here if r["candidate"] == name)
            if points:
                panel.plot(*zip(*points), marker="o", markersize=3, label=name, color=colours[name])
        panel.set(title=work.format("n"), xlabel="n", ylabel=unit, xscale="log", yscale="log")
        panel.grid(True, which="major", alpha=0.3)
        panel.legend(fontsize="small")
    for panel in list(axes.flat)[len(panels) :]:
        panel.remove()
    figure.tight_layout()
    figure.savefig(file, format="svg", metadata={"Date": None})
    pyplot.close(figure)
