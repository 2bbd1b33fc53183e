"""Writes the manual pages of qlnmedia, one for each command, from its option tables and from commands.md.

tool_manuals.py TABLES.json VERSION DATE FOLDER
"""
import json
import pathlib
import re
import shlex
import sys

import roff
from roff import Page, bold, italic, safe

PROGRAM = "qlnmedia"


def read_words(path):
    """What is said of each command: its paragraphs, and its examples."""
    said = {}
    for section in re.split(r"^## ", path.read_text(encoding="utf-8"), flags=re.M)[1:]:
        name, _, body = section.partition("\n")
        blocks = [block.strip("\n") for block in re.split(r"\n\n+", body.strip("\n"))]
        examples = [row.strip() for block in blocks if block.startswith("    ") for row in block.split("\n")]
        said[name.strip()] = ([block for block in blocks if block and not block.startswith("    ")], examples)
    return said


def command_of(tables, words):
    """The command that these words name, as a table and the names on the way to it."""
    table, path = tables, []
    for word in words:
        below = {sub["name"]: sub for sub in table["commands"]}
        if word not in below:
            break
        table = below[word]
        path.append(word)
    return table, path


def check_example(tables, example):
    """Ends the build over an example that names what is not there."""
    words = shlex.split(example.split(" | ")[0])
    table, _ = command_of(tables, words[1:])
    known = {name for option in table["options"] + tables["options"] for name in option["names"]}
    for word in words[1:]:
        if word.startswith("-") and word != "-" and word.split("=")[0] not in known:
            sys.exit(f"tool_manuals: {example}: no option {word}")


def marked(text):
    """Paragraphs of commands.md: **bold** alone is known."""
    parts = re.split(r"\*\*(.+?)\*\*", text)
    return "".join(bold(part) if number % 2 else safe(part) for number, part in enumerate(parts))


def listed(names):
    return safe(", ").join(bold(name) for name in names)


def add_option(page, option):
    argument = " " + italic(option["argument"]) if option["argument"] else ""
    if option["positional"]:
        term = italic(option["names"][-1])
    else:
        term = ", ".join(bold(name) for name in option["names"]) + argument
    text = safe(option["description"].rstrip("."))
    tail = []
    if option["default"]:
        tail.append(f"Default: {safe(option['default'])}.")
    if option["required"]:
        tail.append("Required.")
    if option["repeats"] and option["argument"] and not option["positional"]:
        tail.append("May be given several times.")
    if option["needs"]:
        tail.append(f"Goes with {listed(option['needs'])}.")
    if option["excludes"]:
        tail.append(f"Not together with {listed(option['excludes'])}.")
    page.add(roff.entry(term, f"{text}. {' '.join(tail)}"))


def synopsis(table, path):
    """The program, its command, [OPTION...], and the positionals, each in brackets where it may be left out."""
    parts = [bold(" ".join([PROGRAM, *path]))]
    if any(not option["positional"] for option in table["options"]):
        parts.append("[" + italic("OPTION") + "...]")
    if table["commands"]:
        parts.append(italic("COMMAND") + " [" + italic("ARGUMENT") + "...]")
    for option in table["options"]:
        if option["positional"]:
            many = "..." if option["most"] > 1 else ""
            name = italic(option["names"][-1]) + many
            parts.append(name if option["required"] else f"[{name}]")
    return roff.lines(" ".join(parts))


def add_options(page, options, heading):
    if options:
        page.heading(heading)
    for option in options:
        add_option(page, option)


def add_exit_status(page, footer):
    page.heading("EXIT STATUS")
    for status, text in re.findall(r"(\d) (.*?)(?=, \d |$)", footer.removeprefix("Exit status: ").rstrip(".")):
        page.add(roff.entry(bold(status), safe(text + ".")))


def add_said(page, said):
    for paragraph in said:
        page.paragraph(roff.lines(marked(paragraph)))


def add_examples(page, examples):
    if examples:
        page.heading("EXAMPLES")
        page.add(roff.code("\n".join(examples)))


def own_options(table):
    return [option for option in table["options"] if not option["positional"]]


def program_page(tables, said, new_page):
    page = new_page(PROGRAM)
    page.heading("NAME")
    page.add(roff.lines(f"{PROGRAM} \\- " + safe(roff.first_small(tables["description"]))))
    page.heading("SYNOPSIS")
    page.add(synopsis(tables, []))
    page.heading("DESCRIPTION")
    add_said(page, said[0])
    page.heading("COMMANDS")
    for sub in tables["commands"]:
        page.add(roff.entry(rf"\fB{safe(PROGRAM)}\-{safe(sub['name'])}\fR(1)", safe(sub["description"] + ".")))
    add_options(page, own_options(tables), "OPTIONS")
    add_exit_status(page, tables["footer"])
    page.see_also([(f"{PROGRAM}-{sub['name']}", 1) for sub in tables["commands"]] + [("qlnutil", 3)])
    return page


def command_page(tables, table, said, new_page):
    name = f"{PROGRAM}-{table['name']}"
    page = new_page(name)
    page.heading("NAME")
    page.add(roff.lines(f"{safe(name)} \\- " + safe(roff.first_small(table["description"]))))
    page.heading("SYNOPSIS")
    page.add(synopsis(table, [table["name"]]))
    for sub in table["commands"]:
        page.add([".br"] + synopsis(sub, [table["name"], sub["name"]]))
    if table["footer"] != tables["footer"]:
        said = (said[0] + [table["footer"]], said[1])
    page.heading("DESCRIPTION")
    add_said(page, said[0] or [table["description"] + "."])
    positional = [option for option in table["options"] if option["positional"]]
    add_options(page, positional, "ARGUMENTS")
    add_options(page, own_options(table), "OPTIONS")
    if table["commands"]:
        page.heading("COMMANDS")
    for sub in table["commands"]:
        page.part(f"{table['name']} {sub['name']}")
        page.add(roff.plain(sub["description"] + "."))
        for option in sub["options"]:
            if "--help" not in option["names"]:
                add_option(page, option)
    common = [option for option in own_options(tables) if not {"--help", "--version"} & set(option["names"])]
    add_options(page, common, "OPTIONS OF ALL COMMANDS")
    add_exit_status(page, tables["footer"])
    add_examples(page, said[1])
    page.see_also([(PROGRAM, 1)])
    return page


def main():
    tables = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    version, date, folder = sys.argv[2], sys.argv[3], pathlib.Path(sys.argv[4])
    said = read_words(pathlib.Path(__file__).parent / "commands.md")
    for _, examples in said.values():
        for example in examples:
            check_example(tables, example)

    def new_page(name):
        return Page(name, 1, date, f"{PROGRAM} {version}", "User Commands")

    program_page(tables, said[PROGRAM], new_page).write(folder)
    for table in tables["commands"]:
        command_page(tables, table, said[table["name"]], new_page).write(folder)


main()
