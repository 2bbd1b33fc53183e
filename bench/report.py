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
            goals.append((row, float(goal), reference))


def ratio_of(row, reference):
    """The median over the repetitions of ours to the reference; None where a case is missing."""
    cases = times.get(row, {})
    others = [case for case in cases if case != "ours"]
    names = [case for case in others if case == reference] if reference != "fastest" else others
    if "ours" not in cases or not names:
        return None
    count = min(len(cases[name]) for name in [*names, "ours"])
    ratios = []
    for i in range(count):
        best = min(cases[name][i] * int((re.search(r"_x(\d+)$", name) or [0, 1])[1]) for name in names)
        ratios.append(cases["ours"][i] / best)
    return statistics.median(ratios)


missed = 0
if markdown:
    print("| what | beside | ratio | goal | |\n|---|---|---|---|---|")
for row, goal, reference in goals:
    ratio = ratio_of(row, reference)
    if ratio is None:
        verdict, shown = "not measured", "-"
    else:
        verdict, shown = ("" if ratio <= goal else "falls short"), f"{ratio:.3f}"
        missed += ratio > goal
    if markdown:
        print(f"| {row} | {reference} | {shown} | {goal} | {verdict} |")
    else:
        print(f"{row:36} {reference:16} {shown:>8}  goal {goal:<6} {verdict}")
print(f"\n{len(goals) - missed} of {len(goals)} rows reach their goal or are not measured.")
