"""Checks that what docs/guide.md quotes of a program stands in that program, word for word."""
import os
import re
import sys

root = sys.argv[1]
with open(os.path.join(root, "docs/guide.md"), encoding="utf-8") as file:
    guide = file.read()
quotes = re.findall(r"^<!-- (examples/\S+) -->\n```\w+\n(.*?)^```$", guide, re.M | re.S)
problems = []
for path, quote in quotes:
    with open(os.path.join(root, path), encoding="utf-8") as file:
        if quote not in file.read():
            problems.append(f"docs/guide.md: what it quotes of {path} does not stand there:\n{quote}")
if len(quotes) != 5:
    problems.append(f"docs/guide.md: {len(quotes)} programs are quoted, wanted 5")
for problem in problems:
    print(problem)
if problems:
    sys.exit(1)
print(f"{len(quotes)} quotes stand in their programs")
