"""Reads what llvm-cov exported and tells lines and branches of each folder: coverage_report.py EXPORT ROOT DOCUMENT [--hold] FOLDER...

A branch is one side of a condition in the source. DOCUMENT (docs/coverage.md) has a table of what no test reaches, by file,
line of code and side, and one of the least figures of folders. A folder whose figures are to be 100 is held whole: each line
and side that is not reached stands in the first table. With --hold the run fails where one does not, where a row of the table
is reached or matches nothing, and where a folder is below its figures.
"""
import argparse
import collections
import json
import os
import re
import sys


NO_CODE = re.compile(r'\s*(#\s*define\b.*|[})\];,]*)')


class File:
    """Counts of one source file."""

    def __init__(self):
        self.lines = {}  # number: how often it ran
        self.branches = {}  # (line, column, end line, end column): [how often true, how often false]


def lines_of(segments):
    """How often each line ran: the most of the regions that begin in it and of the one that it begins in."""
    by_line = collections.defaultdict(list)
    for line, column, count, has_count, is_entry, is_gap in segments:
        by_line[line].append((count, has_count, is_entry, is_gap))
    lines = {}
    wrapped = None
    last = max(by_line, default=0)
    for line in range(min(by_line, default=1), last + 1):
        here = by_line.get(line, [])
        starts = [count for count, has_count, is_entry, is_gap in here if has_count and is_entry and not is_gap]
        skipped = bool(here) and not here[0][1] and here[0][2]
        if not skipped and (starts or wrapped is not None and wrapped[1]):
            lines[line] = max(starts + ([wrapped[0]] if wrapped is not None else []))
        if here:
            wrapped = here[-1]
    return lines


def count_at(segments, line, column):
    """How often the code at a place ran; 0 where nothing is known of it."""
    found = 0
    for at_line, at_column, count, has_count, _, _ in segments:
        if (at_line, at_column) > (line, column):
            break
        found = count if has_count else 0
    return found


def read_export(path, root, folders):
    """Files below the folders, by their names from the root."""
    with open(path) as export:
        data = json.load(export)['data'][0]
    wanted = tuple(os.path.join(root, folder) + '/' for folder in folders)
    files, segments = {}, {}
    for entry in data['files']:
        name = os.path.realpath(entry['filename'])
        if not name.startswith(wanted):
            continue
        segments[name] = entry['segments']
        files[name] = File()
        files[name].lines = lines_of(entry['segments'])
    evaluated = collections.defaultdict(set)
    for function in data['functions']:
        name = os.path.realpath(function['filenames'][0])
        if name not in files or function['count'] != 0:
            continue
        first, _, last, *_ = function['regions'][0]
        with open(name) as source:
            text = source.read().split('\n')
        head = text[first - 1]
        if not text[first - 2].endswith((';', '{', '}')):
            head = text[first - 2] + head
        # So are functions of nothing but assertions, which headers for older compilers of hosts have.
        asserts = all(line.lstrip().startswith('static_assert(') for line in text[first:last - 1])
        if asserts and last - first > 1 or re.search(r'\bconsteval\b', head):
            evaluated[name].update(range(first, last + 1))
    # Of a template each instance has counts of its own: a branch is taken where one of them took it.
    for function in data['functions']:
        for branch in function['branches']:
            name = os.path.realpath(function['filenames'][branch[6]])
            if name in files:
                sides = files[name].branches.setdefault(tuple(branch[:4]), [0, 0])
                sides[0] += branch[4]
                sides[1] += branch[5]
    for name, file in files.items():
        with open(name) as source:
            text = source.read().split('\n')
        # What a macro stands for counts where it is used, and the end of a block with the block.
        for line in [line for line in file.lines if NO_CODE.fullmatch(text[line - 1])]:
            del file.lines[line]
        # The way past all cases of a switch: compilers see to it that there is one for each enumerator.
        for at in [at for at in file.branches if text[at[0] - 1][:at[1] - 1].endswith('switch (')]:
            del file.branches[at]
        # What is consteval only the compiler evaluates; of constructors and members it writes counts down all the same.
        for at in [at for at in file.lines if at in evaluated[name]]:
            del file.lines[at]
        for at in [at for at in file.branches if at[0] in evaluated[name]]:
            del file.branches[at]
        # Both never, in code that ran: the compiler knew the condition.
        known = [at for at, sides in file.branches.items()
                 if sides == [0, 0] and count_at(segments[name], at[0], at[1]) > 0]
        for at in known:
            del file.branches[at]
    return {os.path.relpath(name, root): file for name, file in sorted(files.items())}


def missing_in(root, files):
    """(file, line of code, what, line number) of all that did not run."""
    missing = []
    for name, file in files.items():
        with open(os.path.join(root, name)) as source:
            text = source.read().split('\n')
        for line, count in sorted(file.lines.items()):
            if count == 0:
                missing.append((name, text[line - 1].strip(), 'line', line))
        for (line, column, end_line, end_column), sides in sorted(file.branches.items()):
            if file.lines.get(line, 1) == 0:
                continue  # told as a line
            last = end_column - 1 if end_line == line else len(text[line - 1])
            condition = text[line - 1][column - 1:last]
            for side, count in zip(('true', 'false'), sides):
                if count == 0:
                    missing.append((name, text[line - 1].strip(), f'{condition}: {side}', line))
    return missing


def rows_of(document, head):
    """The cells of the table that begins with that head, without marks of code."""
    with open(document) as lines:
        text = lines.read()
    at = text.find(head)
    if at < 0:
        return []
    rows = []
    for line in text[at:].split('\n')[2:]:
        if not line.startswith('|'):
            break
        cells = re.split(r'(?<!\\)\|', line)[1:-1]
        rows.append([cell.strip().replace('\\|', '|').strip('`').strip() for cell in cells])
    return rows


def share(part, whole):
    return 100.0 * part / whole if whole else 100.0


def figures(files, folder):
    """Lines, lines that ran, sides of branches, sides that were taken."""
    mine = [file for name, file in files.items() if name.startswith(folder + '/')]
    counts = [count for file in mine for count in file.lines.values()]
    sides = [side for file in mine for both in file.branches.values() for side in both]
    return len(counts), sum(count > 0 for count in counts), len(sides), sum(side > 0 for side in sides)


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument('export')
    arguments.add_argument('root')
    arguments.add_argument('document')
    arguments.add_argument('folders', nargs='+')
    arguments.add_argument('--hold', action='store_true')
    given = arguments.parse_args()
    files = read_export(given.export, os.path.realpath(given.root), given.folders)
    if not files:
        sys.exit('coverage: nothing was measured')

    told = collections.Counter()
    for name in files:
        parts = name.split('/')
        for depth in (1, 2, 3):
            if len(parts) > depth:
                told['/'.join(parts[:depth])] += 1
    print(f'{"folder":<28} {"lines":>7} {"ran":>9} {"branches":>9} {"taken":>9}')
    problems = []
    least = {row[0]: (float(row[1]), float(row[2])) for row in rows_of(given.document, '| folder |')}
    for folder in sorted(told):
        lines, ran, sides, taken = figures(files, folder)
        print(f'{folder:<28} {lines:>7} {share(ran, lines):>7.2f} % {sides:>9} {share(taken, sides):>7.2f} %')
        if folder in least and least[folder] != (100.0, 100.0) and (share(ran, lines) < least[folder][0] or share(taken, sides) < least[folder][1]):
            problems.append(f'{folder} is below {least[folder][0]} % of lines and {least[folder][1]} % of branches')

    reasons = {(row[0], row[1], row[2]) for row in rows_of(given.document, '| file |')}
    whole = {folder for folder, figure in least.items() if figure == (100.0, 100.0)}
    met = set()
    open_ones = []
    for name, code, what, line in missing_in(given.root, files):
        if (name, code, what) in reasons:
            met.add((name, code, what))
            continue
        text = f'{name}:{line}: not reached: {code}' + ('' if what == 'line' else f'  [{what}]')
        if os.path.dirname(name) in whole:
            problems.append(text)
        else:
            open_ones.append(text)
    for row in sorted(reasons - met):
        problems.append(f'{given.document}: reached, or not there: ' + ' | '.join(row))
    if not given.hold:
        print('\n'.join(open_ones))
    for problem in problems:
        print(problem)
    print(f'coverage: {len(problems)} to put right, {len(open_ones)} not reached where folders are not held whole')
    if problems and given.hold:
        sys.exit(1)


if __name__ == '__main__':
    main()
