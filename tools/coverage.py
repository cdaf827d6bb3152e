"""Reports the branch coverage of src/: `coverage.py EXCLUSIONS OBJECTS PROFILES`, both lists
separated by ":".

A branch is a side of a condition. Those of all instantiations of a template, and of all the
objects, are one: it is covered where one of them is. Each side that is not covered has to be
listed in EXCLUSIONS, whose lines are

    FILE | TEXT OF THE LINE, OR PART OF IT | true or false | REASON

and each line there has to stand for exactly one side. Otherwise the exit status is 1.
"""

import collections
import json
import os
import subprocess
import sys
import tempfile

ROOT = os.getcwd()


def exported(objects, profiles):
    with tempfile.TemporaryDirectory() as directory:
        merged = os.path.join(directory, "merged.profdata")
        subprocess.check_call(["llvm-profdata-14", "merge", "-o", merged] + profiles)
        command = ["llvm-cov-14", "export", "-instr-profile", merged, objects[0]]
        for name in objects[1:]:
            command += ["-object", name]
        return json.loads(subprocess.check_output(command, stderr=subprocess.DEVNULL))


def branches(export):
    """{(file, line, column): [times true, times false]} for the files of src/."""
    counts = collections.defaultdict(lambda: [0, 0])
    for function in export["data"][0]["functions"]:
        names = [os.path.relpath(name, ROOT) for name in function["filenames"]]
        for line, column, _, _, true, false, index, *_ in function["branches"]:
            if names[index].startswith("src/"):
                found = counts[names[index], line, column]
                found[0] += true
                found[1] += false
    return counts


def exclusions(path):
    found = []
    with open(path) as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                name, text, side, reason = (part.strip() for part in line.split(" | "))
                if side not in ("true", "false") or not reason:
                    sys.exit("%s: what does this mean: %s" % (path, line))
                found.append((name, text, side, reason))
    return found


def main(exclusions_path, objects, profiles):
    counts = branches(exported(objects.split(":"), profiles.split(":")))
    if not counts:
        sys.exit("no branch of src/ was found")
    lines = {name: open(name).read().splitlines() for name in {key[0] for key in counts}}
    excluded = exclusions(exclusions_path)
    used, left = collections.Counter(), []
    total, covered, by_file = 0, 0, collections.defaultdict(lambda: [0, 0, 0])
    for (name, line, column), sides in sorted(counts.items()):
        for side, count in zip(("true", "false"), sides):
            row = by_file[name]
            row[0] += 1
            if count:
                row[1] += 1
                continue
            text = lines[name][line - 1]
            reasons = [entry for entry in excluded
                       if entry[0] == name and entry[1] in text and entry[2] == side]
            if reasons:
                row[2] += 1
                used.update(reasons[:1])
            else:
                left.append("%s:%d:%d: never %s: %s" % (name, line, column, side, text.strip()))
    print("%-36s %9s %9s %9s" % ("file", "branches", "covered", "excluded"))
    for name, row in sorted(by_file.items()):
        print("%-36s %9d %9d %9d" % (name, *row))
    sums = [sum(column) for column in zip(*by_file.values())]
    print("%-36s %9d %9d %9d" % ("", *sums))
    stale = [entry for entry in excluded if used[entry] != 1]
    for entry in stale:
        print("stands for %d branches: %s" % (used[entry], " | ".join(entry)))
    for line in left:
        print(line)
    print("%.1f %% of the reachable branches" % (100 * sums[1] / (sums[0] - sums[2])))
    return 1 if left or stale else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
