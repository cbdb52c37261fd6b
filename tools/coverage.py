"""Sums up gcov's counters of the producers' folders. Called by tools/coverage: <root> <build folder>."""
import collections
import json
import pathlib
import subprocess
import sys

# What stands outside of the producers; every other folder with sources is one of theirs.
OUTSIDE = {"bench", "consumer", "demo", "examples", "include", "tests", "virtual_camera", "zr_u3v_tool"}


class File:
    def __init__(self):
        self.lines = collections.Counter()
        self.branches = collections.Counter()


def producer_folders(root):
    sources = subprocess.run(["git", "ls-files", "*.cpp"], cwd=root, capture_output=True, check=True, text=True).stdout
    return sorted({name.split("/")[0] for name in sources.split()} - OUTSIDE)


def counters(build, folders):
    """The reports of all objects of the producers' folders, and of nothing else that was built."""
    for folder in folders:
        for data in sorted((build / folder).rglob("*.gcda")):
            report = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities", data],
                                    cwd=build, capture_output=True, check=True, text=True).stdout
            for line in report.splitlines():
                yield json.loads(line)


def collect(root, build, folders):
    files = collections.defaultdict(File)
    for report in counters(build, folders):
        for entry in report["files"]:
            path = (build / entry["file"]).resolve()
            if not path.is_relative_to(root) or path.relative_to(root).parts[0] not in folders:
                continue
            add(files[str(path.relative_to(root))], entry)
    return files


def add(file, entry):
    for line in entry["lines"]:
        number = line["line_number"]
        file.lines[number] += line["count"]
        taken = [branch for branch in line["branches"] if not branch["throw"]]
        for position, branch in enumerate(taken):
            # A template or an inline function has the same branches in every object.
            file.branches[number, position] += branch["count"]


def share(counter):
    covered = sum(1 for count in counter.values() if count > 0)
    return covered, len(counter)


def row(name, lines, branches):
    def text(pair):
        return f"{pair[0]:5d}/{pair[1]:5d} {100.0 * pair[0] / pair[1] if pair[1] else 100.0:6.1f} %"
    return f"{name:<12} lines {text(lines)}   branches {text(branches)}"


def ranges(numbers):
    result = []
    for number in sorted(numbers):
        if result and number == result[-1][1] + 1:
            result[-1][1] = number
        else:
            result.append([number, number])
    return " ".join(str(first) if first == last else f"{first}-{last}" for first, last in result)


def main():
    root, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    folders = producer_folders(root)
    files = collect(root, build, folders)
    if not files:
        sys.exit("no counters: build and run the coverage preset first")
    print("uncovered lines")
    for name in sorted(files):
        missing = [number for number, count in files[name].lines.items() if count == 0]
        if missing:
            print(f"  {name}: {ranges(missing)}")
    totals = [[0, 0], [0, 0]]
    for folder in folders:
        sums = [[0, 0], [0, 0]]
        for name, file in files.items():
            if name.split("/")[0] == folder:
                for index, counter in enumerate((file.lines, file.branches)):
                    for position, value in enumerate(share(counter)):
                        sums[index][position] += value
                        totals[index][position] += value
        print(row(folder, *sums))
    print(row("producers", *totals))


main()
