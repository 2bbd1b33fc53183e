"""Holds a built library against the description of the last release: names, signatures, layouts, values.

check_abi.py compare LIBRARY DESCRIPTION HEADERS SYMBOLS  fails where something is gone or changed; additions pass
check_abi.py describe LIBRARY DESCRIPTION HEADERS         writes the description, at a release
"""
import lzma
import os
import re
import subprocess
import sys
import tempfile

# What a description leaves out: paths, and all that only the library itself sees.
REDUCED = ["--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-parameter-names", "--no-elf-needed",
           "--exported-interfaces-only", "--drop-private-types", "--type-id-style", "hash"]
# abidiff's exit status: it or its command line failed.
BROKEN = 1 | 2


def describe(library, headers):
    """The description of a library's surface, as bytes of XML."""
    done = subprocess.run(["abidw", *REDUCED, "--headers-dir", headers, library], capture_output=True, check=False)
    if done.returncode != 0 or b"<abi-corpus" not in done.stdout:
        sys.exit(f"abidw does not describe {library}: {done.stderr.decode(errors='replace')}")
    return done.stdout


def differences(description, library, headers):
    """What is gone or changed since the description was written, in abidiff's words; empty where nothing is."""
    with tempfile.TemporaryDirectory() as folder:
        # Both sides are reduced in the same way first: what one side alone leaves out, abidiff takes for unchanged.
        paths = [os.path.join(folder, name) for name in ("released.abi", "built.abi")]
        for path, text in zip(paths, (description, describe(library, headers))):
            with open(path, "wb") as file:
                file.write(text)
        done = subprocess.run(["abidiff", "--no-added-syms", *paths], capture_output=True, text=True, check=False)
    if done.returncode & BROKEN:
        sys.exit(f"abidiff fails on {library}: {done.stdout}{done.stderr}")
    return done.stdout if done.returncode != 0 else ""


def named_in_package(symbols):
    """The names with their versions that a package's symbols file promises."""
    with open(symbols, encoding="utf-8") as file:
        return {line.split()[0] for line in file if line.startswith(" ")}


def exported(library):
    """The names with their versions that the dynamic linker finds in a library."""
    listed = subprocess.run(["nm", "-D", "--defined-only", library], capture_output=True, text=True, check=True).stdout
    names = set()
    for line in listed.splitlines():
        kind, name = line.split()[-2:]
        base, _, version = name.partition("@@")
        names.add(f"{base}@{base if kind == 'A' else version or 'Base'}")
    return names


def compare(library, stored, headers, symbols):
    problems = []
    wanted = re.match(r"lib\w+\.so\.\d+", os.path.basename(stored))[0]
    sections = subprocess.run(["readelf", "-dW", library], capture_output=True, text=True, check=True).stdout
    if f"soname: [{wanted}]" not in sections:
        problems.append(f"its SONAME is not {wanted}")
    with lzma.open(stored) as file:
        told = differences(file.read(), library, headers)
    if told:
        problems.append(told + "docs/versions.md says what may change when")
    promised, built = named_in_package(symbols), exported(library)
    problems += [f"exported, and not in {os.path.basename(symbols)}: {name}" for name in sorted(built - promised)]
    problems += [f"in {os.path.basename(symbols)}, and not exported: {name}" for name in sorted(promised - built)]
    print("\n".join(problems) or f"{wanted} has what the last release had")
    return 1 if problems else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["compare"]:
        sys.exit(compare(*sys.argv[2:6]))
    elif sys.argv[1:2] == ["describe"]:
        text = describe(sys.argv[2], sys.argv[4])
        with open(sys.argv[3], "wb") as out:
            out.write(lzma.compress(text, preset=9))
    else:
        sys.exit(__doc__)
