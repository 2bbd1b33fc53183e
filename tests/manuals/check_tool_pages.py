"""Holds the manual pages of qlnmedia against what its --help says, and against readers of roff."""
import pathlib
import re
import subprocess
import sys

from pages import expect, expect_foot, expect_readable, expect_same_again, fail, text_of

made, program, source, version, date = pathlib.Path(sys.argv[1]), *sys.argv[2:6]
folder = made / "man"


def help_of(*command):
    return subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True,
                          env={"COLUMNS": "80"}).stdout


def options_in(text):
    """Names at the beginning of the help's entries."""
    rows = re.findall(r"^  (-[^\s].*)$", text, re.M)
    return {name for row in rows for name in re.findall(r"(?<![\w-])--?[a-z][\w-]*", re.split(r"\s{2}| Needs: | Excludes: ",
                                                                                           row)[0])}


def commands_in(text):
    part = text.partition("Subcommands:\n")[2].partition("\n\n")[0]
    return re.findall(r"^  (\w+)", part, re.M)


commands = commands_in(help_of())
expect("commands", len(commands) >= 9, True)
pages = sorted((folder / "man1").glob("*.1"))
expect("pages", [page.name for page in pages],
       sorted(["qlnmedia.1"] + [f"qlnmedia-{command}.1" for command in commands]))
expect_readable(pages)
expect_foot(pages, date, f"qlnmedia {version}")

guards = options_in(help_of()) - {"--version"}
for command in [[]] + [[command] for command in commands]:
    page = text_of(folder / "man1" / ("-".join(["qlnmedia", *command]) + ".1"))
    helps = [help_of(*command)] + [help_of(*command, sub) for sub in (commands_in(help_of(*command)) if command else [])]
    wanted = set().union(*map(options_in, helps)) | guards
    for option in wanted:
        if not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", page):
            fail(f"{command}: {option} is not in the page")
    # Words of a description, which a table by hand would soon have otherwise.
    for text in helps:
        said = re.findall(r"^ {24,30}(\S.*)$", text.partition("Exit status")[0], re.M)
        for row in said:
            if " ".join(row.split()).rstrip(".") not in page and not row.startswith(("sets, captions",)):
                fail(f"{command}: the page does not say {row!r}")
for sub in commands:
    if f"qlnmedia-{sub}" not in text_of(folder / "man1/qlnmedia.1"):
        fail(f"qlnmedia(1) does not name {sub}")

scripts = pathlib.Path(source) / "docs/reference"
tables = made / "option_tables.json"
expect_same_again(folder, scripts / "tool_manuals.py", tables, version, date)
expect_same_again(made / "completions", scripts / "completions.py", tables)
print(f"{len(pages)} pages say what the help says")
