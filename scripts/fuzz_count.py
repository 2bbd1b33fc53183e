"""Adds one run of a fuzz target to the table of docs/fuzzing.md: fuzz_count.py DOCUMENT TARGET LOG SECONDS STATUS.

The log is libFuzzer's, with its final statistics. Hours and executions add up, edges are the most that a run saw, and a
run that ended by a finding adds one.
"""
import re
import sys

HEAD = "| target | hours | executions | edges | findings |\n|---|---|---|---|---|\n"


def number(pattern, log):
    found = re.findall(pattern, log)
    return int(found[-1]) if found else 0


def main():
    document, target, log_path, seconds, status = sys.argv[1:6]
    with open(log_path, encoding="utf-8", errors="replace") as file:
        log = file.read()
    with open(document, encoding="utf-8") as file:
        text = file.read()
    begin = text.index(HEAD) + len(HEAD)
    end = begin
    rows = {}
    for line in text[begin:].splitlines(keepends=True):
        if not line.startswith("| "):
            break
        end += len(line)
        name, hours, executions, edges, findings = (cell.strip() for cell in line.strip("|\n ").split("|"))
        if name != "all":
            rows[name] = [float(hours), int(executions), int(edges), int(findings)]
    took = number(r"Done \d+ runs in (\d+) second", log) or int(seconds) * (status == "0")
    row = rows.setdefault(target, [0.0, 0, 0, 0])
    row[0] += took / 3600
    row[1] += number(r"stat::number_of_executed_units:\s*(\d+)", log)
    row[2] = max(row[2], max((int(n) for n in re.findall(r"\bcov: (\d+)", log)), default=0))
    row[3] += status != "0"
    total = [sum(r[i] for r in rows.values()) for i in range(4)]
    lines = [f"| {name} | {r[0]:.3f} | {r[1]} | {r[2]} | {r[3]} |\n" for name, r in sorted(rows.items())]
    lines.append(f"| all | {total[0]:.3f} | {total[1]} | {total[2]} | {total[3]} |\n")
    with open(document, "w", encoding="utf-8") as file:
        file.write(text[:begin] + "".join(lines) + text[end:])


if __name__ == "__main__":
    main()
