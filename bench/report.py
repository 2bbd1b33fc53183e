"""Reads a run of qln_bench and prints each row's ratio to its reference beside its goal; --markdown for the docs."""
import json
import os
import re
import statistics
import sys

result_path = sys.argv[1]
markdown = "--markdown" in sys.argv
here = os.path.dirname(os.path.abspath(__file__))

with open(result_path, encoding="utf-8") as file:
    result = json.load(file)
times = {}
for run in result["benchmarks"]:
    if run.get("run_type") == "iteration":
        row, case = run["run_name"].split("/")[:2]
        times.setdefault(row, {}).setdefault(case, []).append(run["real_time" if run["run_name"].endswith("manual_time") else "cpu_time"])

goals = []
with open(f"{here}/goals.txt", encoding="utf-8") as file:
    for line in file:
        if line.strip() and not line.startswith("#"):
            row, goal, reference = (part.strip() for part in line.split("|"))
            goals.append((row, None if goal == "-" else float(goal), reference))

# Cases that are no peers: what a memory operation takes at the least, or a second size of our own.
LIMITS = {"memchr", "memcpy", "memmove", "mmap"}


def streams_of(row):
    """The row itself and the rows of the same name over real streams, as they were measured."""
    return sorted(name for name in times if name.split(":")[0] == row)


def ratios_of(row, reference):
    """Ours to the reference, round by round; None where a case is missing."""
    cases = times.get(row, {})
    others = [case for case in cases if case != "ours" and case not in LIMITS]
    names = [case for case in cases if case == reference] if reference != "fastest" else others
    if "ours" not in cases or not names:
        return None
    count = min(len(cases[name]) for name in [*names, "ours"])
    ratios = []
    for i in range(count):
        best = min(cases[name][i] * int((re.search(r"_x(\d+)$", name) or [0, 1])[1]) for name in names)
        ratios.append(cases["ours"][i] / best)
    return ratios


def shown_as(ratio):
    return f"{ratio:.3f}" if ratio < 0.1 else f"{ratio:.2f}"


missed = 0
count = 0
if markdown:
    print("| what | beside | ratio | middle half | goal | |\n|---|---|---|---|---|---|")
for goal_row, goal, reference in goals:
    # A peer need not have a case for every stream.
    rows = [row for row in streams_of(goal_row) if ratios_of(row, reference) is not None]
    for row in rows or [goal_row]:
        ratios = ratios_of(row, reference)
        verdict, shown, spread = "", "-", "-"
        if ratios is None:
            verdict = "not measured"
        else:
            ratio = statistics.median(ratios)
            shown = shown_as(ratio)
            # Between the quartiles: half of the rounds lie there.
            low, _, high = statistics.quantiles(ratios, n=4) if len(ratios) > 1 else (ratio, ratio, ratio)
            spread = f"{shown_as(low)}-{shown_as(high)}"
            verdict = "falls short" if goal is not None and ratio > goal else ""
            missed += verdict != ""
        count += goal is not None
        told = "none" if goal is None else f"{goal:g}"
        if markdown:
            print(f"| {row} | {reference} | {shown} | {spread} | {told} | {verdict} |")
        else:
            print(f"{row:40} {reference:18} {shown:>8}  {spread:13} goal {told:<6} {verdict}")
print(f"\n{count - missed} of {count} rows reach their goal or are not measured.")
