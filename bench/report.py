"""Tables, ratios and the page, from samples."""

import json
import pathlib
import statistics

BENCH = pathlib.Path(__file__).resolve().parent
RESULTS = BENCH / "results"
DOCS = BENCH.parent / "docs"


# --- from samples to results -------------------------------------------------------------------


def ratio(ours, theirs):
    if len(ours) == len(theirs):
        return statistics.median(a / b for a, b in zip(ours, theirs))
    return statistics.median(ours) / statistics.median(theirs)


def summarise(suite, samples):
    rows = []
    for (work, candidate, unit, size), values in samples.items():
        ratios = {
            peer: ratio(values, samples[work, peer, unit, size])
            for peer in suite.PEERS.get(candidate, ())
            if (work, peer, unit, size) in samples
        }
        rows.append(
            {
                "work": work,
                "candidate": candidate,
                "unit": unit,
                "size": size,
                "median": statistics.median(values),
                "lowest": min(values),
                "samples": len(values),
                "ratios": ratios,
            }
        )
    return {"rows": rows}


def save(name, result):
    RESULTS.mkdir(exist_ok=True)
    text = json.dumps(result, indent=1)
    (RESULTS / (name + ".json")).write_text(text + "\n", encoding="utf-8")


# --- tables ------------------------------------------------------------------------------------


def number(value):
    if value >= 1000:
        return "{:,.0f}".format(value)
    return "%.3g" % value


def shown_work(row):
    return row["work"] if row["size"] is None else row["work"].format(number(row["size"]))


def tables(suite, result):
    """For each unit: (unit, heading, lines), all of texts."""
    for unit in dict.fromkeys(row["unit"] for row in result["rows"]):
        rows = [row for row in result["rows"] if row["unit"] == unit]
        candidates = list(dict.fromkeys(row["candidate"] for row in rows))
        pairs = [
            (candidate, peer)
            for candidate in candidates
            for peer in suite.PEERS.get(candidate, ())
            if any(peer in row["ratios"] for row in rows if row["candidate"] == candidate)
        ]
        heading = [unit] + candidates + ["%s : %s" % pair for pair in pairs]
        lines = []
        for work in dict.fromkeys((row["work"], row["size"]) for row in rows):
            by = {r["candidate"]: r for r in rows if (r["work"], r["size"]) == work}
            line = [shown_work(next(iter(by.values())))]
            line += [number(by[c]["median"]) if c in by else "" for c in candidates]
            for candidate, peer in pairs:
                value = by.get(candidate, {"ratios": {}})["ratios"].get(peer)
                line.append("" if value is None else "%.2f" % value)
            lines.append(line)
        yield unit, heading, lines


def goal_lines(suite, result):
    """(what is wanted, the ratio that there is, whether it is reached)."""
    for goal in suite.GOALS:
        for row in result["rows"]:
            key = (row["work"], row["candidate"], row["unit"], row["size"])
            if key == (goal.work, goal.candidate, goal.unit, goal.size):
                value = row["ratios"].get(goal.peer)
                if value is None:
                    continue
                wanted = "%s: %s at most %g of %s" % (
                    shown_work(row),
                    goal.candidate,
                    goal.at_most,
                    goal.peer,
                )
                yield wanted, "%.3f" % value, value <= goal.at_most


def as_text(suite, result):
    text = ["", suite.TITLE]
    for _, heading, lines in tables(suite, result):
        widths = [max(len(cell) for cell in column) for column in zip(heading, *lines)]
        for cells in [heading] + lines:
            first = cells[0].ljust(widths[0])
            rest = [cell.rjust(width) for cell, width in zip(cells[1:], widths[1:])]
            text.append("  ".join([first] + rest))
        text.append("")
    for wanted, value, reached in goal_lines(suite, result):
        text.append("%s  %s  (%s)" % ("reached " if reached else "MISSED  ", wanted, value))
    return "\n".join(text)


# --- the page ----------------------------------------------------------------------------------

INTRODUCTION = """\
# Performance

Written by `./dev bench` from `bench/results/`; what is said in words stands in
`bench/*/notes.md`. Peers are run in turns with what they are compared to, on one processor;
numbers are medians, ratios are medians of the ratios turn by turn. Smaller is better in every
column. Instruction counts repeat exactly, times depend on the machine and on what else it does.
"""


def markdown_table(heading, lines):
    yield "| " + " | ".join(heading) + " |"
    yield "| --- |" + " ---: |" * (len(heading) - 1)
    for line in lines:
        yield "| " + " | ".join(line) + " |"


def section(name, suite, result):
    machine = result["machine"]
    yield "\n## %s\n" % suite.TITLE
    yield suite.ABOUT.strip() + "\n"
    yield "Measured on %(date)s: %(cpu)s, %(kernel)s; %(compiler)s; %(interpreter)s;" % machine
    yield "load %(load)s when it began; %(seconds)d s.\n" % machine
    for _, heading, lines in tables(suite, result):
        yield from markdown_table(heading, lines)
        yield ""
    goals = list(goal_lines(suite, result))
    if goals:
        cells = [[w, value, "yes" if reached else "**no**"] for w, value, reached in goals]
        yield from markdown_table(["goal", "ratio", "reached"], cells)
        yield ""
    if any(row["size"] is not None for row in result["rows"]):
        import plot

        file = "performance-%s.svg" % name
        plot.draw(result["rows"], DOCS / file)
        yield "![%s: cost against size](%s)\n" % (suite.TITLE, file)
    notes = BENCH / name / "notes.md"
    if notes.exists():
        yield notes.read_text(encoding="utf-8").strip() + "\n"


def write_page(suites):
    parts = [INTRODUCTION]
    for name, suite in suites.items():
        file = RESULTS / (name + ".json")
        if file.exists():
            result = json.loads(file.read_text(encoding="utf-8"))
            parts.append("\n".join(section(name, suite, result)))
    (DOCS / "performance.md").write_text("".join(parts), encoding="utf-8")
