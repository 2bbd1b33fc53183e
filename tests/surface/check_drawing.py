"""Checks that docs/architecture.svg was drawn from docs/architecture.dot as it is: the same rooms, words and arrows."""
import html
import os
import re
import sys

docs = os.path.join(sys.argv[1], "docs")
with open(os.path.join(docs, "architecture.dot"), encoding="utf-8") as file:
    text = re.sub(r"//.*|^.*style=invis.*$", "", file.read(), flags=re.M)
with open(os.path.join(docs, "architecture.svg"), encoding="utf-8") as file:
    drawing = file.read()


def arrows():
    for head, chain in re.findall(r"^\s*((?:\{[\w ]+\}|\w+))((?:\s*->\s*(?:\{[\w ]+\}|\w+))+)", text, re.M):
        ends = [end.strip("{} ").split() for end in [head] + chain.split("->")[1:]]
        ends = [[word for word in end if word] for end in ends]
        for before, behind in zip(ends, ends[1:]):
            yield from (f"{a}->{b}" for a in before for b in behind)


def words():
    for label in re.findall(r'\blabel="([^"]*)"', text):
        yield from (line.strip() for line in label.split("\\n"))


titles = re.findall(r"<title>(.*?)</title>", drawing)
drawn = [html.unescape(title) for title in titles if "-&gt;" in title or "&#45;&gt;" in title]
shown = {html.unescape(line).strip().replace("\u00a0", " ") for line in re.findall(r"<text [^>]*>(.*?)</text>", drawing)}
problems = [f"no arrow {arrow}" for arrow in sorted(set(arrows()) - set(drawn))]
problems += [f"an arrow too many: {arrow}" for arrow in sorted(set(drawn) - set(arrows()))]
problems += [f"no words: {line}" for line in words() if line not in shown]
rooms = {line for title in titles if "&#45;" not in title for line in [html.unescape(title)]}
problems += [f"no room {name}" for name in {end for arrow in arrows() for end in arrow.split("->")} - rooms]
for problem in problems:
    print(f"docs/architecture.svg: {problem}; draw it anew with scripts/docs.sh")
if problems:
    sys.exit(1)
print(f"{len(drawn)} arrows are drawn as they are told")
