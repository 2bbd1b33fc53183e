"""Manual pages as their readers take them."""
import filecmp
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SIGNS = {r"\(rs": "\\", r"\-": "-", r"\(aq": "'", r"\(ga": "`", r"\(ha": "^", r"\(ti": "~", r"\&": "", r"\(bu": ""}


def fail(text):
    sys.exit(text)


def expect(what, found, wanted):
    if found != wanted:
        fail(f"{what}: {found!r}, wanted {wanted!r}")


def text_of(path):
    """The page without its mark-up, blanks as one."""
    text = re.sub(r"\\f[BIR]", "", path.read_text(encoding="utf-8"))
    text = re.sub(r"^\.[A-Z]{2}\b ?", "", text, flags=re.M)
    return " ".join(re.sub(r"\\(?:\(..|[-&])", lambda sign: SIGNS[sign[0]], text).split())


def expect_readable(paths):
    """Two readers have nothing to say about them."""
    for tool, command in (("mandoc", ["mandoc", "-Tlint", "-Wstyle"]), ("groff", ["groff", "-ww", "-mandoc", "-Tutf8", "-z"])):
        if shutil.which(tool) is None:
            fail(f"{tool} is not installed")
        done = subprocess.run([*command, *map(str, paths)], capture_output=True, text=True, check=False)
        if done.returncode != 0 or done.stdout or done.stderr:
            fail(f"{tool}: {(done.stdout + done.stderr)[:3000]}")


def expect_same_again(folder, script, *arguments):
    """The script makes the same bytes once more, somewhere else."""
    with tempfile.TemporaryDirectory() as other:
        subprocess.run([sys.executable, "-B", script, *arguments, other], check=True)
        made = [path.relative_to(other) for path in pathlib.Path(other).rglob("*") if path.is_file()]
        if not made:
            fail(f"{script} makes nothing")
        for path in made:
            if not filecmp.cmp(pathlib.Path(other) / path, folder / path, shallow=False):
                fail(f"{path} is another one each time")


def expect_foot(paths, date, source):
    """Date and version are those of the release."""
    for path in paths:
        head = path.read_text(encoding="utf-8").split("\n")[0]
        if f" {date} " not in head or source not in head.replace("\\-", "-"):
            fail(f"{path}: {head}")
