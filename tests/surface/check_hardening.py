"""Looks at built files for what a hardened build leaves in them, and runs a program that it has to end.

    check_hardening.py PROBE LIBRARY...
"""

import platform
import re
import signal
import subprocess
import sys

# What readelf shows, by the flag that puts it there.
EVERYWHERE = {
    "relocations are made read-only (-z relro)": r"GNU_RELRO",
    "all of them, before the program runs (-z now)": r"BIND_NOW|FLAGS.*NOW",
    "the stack is no code (-z noexecstack)": r"GNU_STACK\s+\S+\s+\S+\s+\S+\s+\S+\s+\S+\s+RW\s",
}
OF_COMPILER = {
    "the compiler was asked for a guarded stack (-fstack-protector-strong)": r"-fstack-protector-strong",
    "and to touch each of its pages (-fstack-clash-protection)": r"-fstack-clash-protection",
}


def shown(option, path):
    return subprocess.run(["readelf", "--wide", *option.split(), path], check=True, stdout=subprocess.PIPE, text=True,
                          errors="replace").stdout


def missing(path, wanted, text):
    return [f"{path}: not so: {what}" for what, pattern in wanted.items() if not re.search(pattern, text)]


def unmarked(path):
    """Exported functions that do not begin with the mark of where a jump may go. The note that says so of a whole file is not
    there where the C library's own start-up code has none."""
    exported = {line.split()[-1].split("@")[0] for line in shown("--dyn-syms", path).splitlines()
                if re.search(r" FUNC +(GLOBAL|WEAK) +DEFAULT +\d", line)}
    code = subprocess.run(["objdump", "--disassemble", "--section=.text", path], check=True, stdout=subprocess.PIPE,
                          text=True).stdout
    first = dict(re.findall(r"(?m)^[0-9a-f]+ <(\S+)>:\n.*\t(\S+)", code))
    return [f"{path}: {name} has no mark (-fcf-protection)" for name in sorted(exported)
            if name in first and first[name] != "endbr64"]


def faults_of(path, is_program):
    told = shown("--segments --dynamic --notes", path)
    faults = missing(path, EVERYWHERE, told)
    if platform.machine() == "x86_64":
        faults += unmarked(path)
    # The compiler's name and options, in the debug information.
    info = subprocess.Popen(["readelf", "--wide", "--debug-dump=info", "--dwarf-depth=1", path], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, text=True, errors="replace")
    makers = [line for line in info.stdout if "DW_AT_producer" in line and "GNU C" in line]
    info.wait()
    if not makers:
        faults.append(f"{path}: the debug information names no compiler")
    for maker in makers:
        faults += missing(path, OF_COMPILER, maker)
    imports = shown("--dyn-syms", path)
    if not is_program and "__stack_chk_fail" not in imports:
        faults.append(f"{path}: nothing guards a stack")
    if is_program and not re.search(r"Type:\s+DYN", shown("--file-header", path)):
        faults.append(f"{path}: stands at one place (no -pie)")
    return faults


def main():
    probe, *libraries = sys.argv[1:]
    faults = faults_of(probe, True)
    for library in libraries:
        faults += faults_of(library, False)
    fortified = [library for library in libraries if re.search(r"UND __\w+_chk\b", shown("--dyn-syms", library))]
    if not fortified:
        faults.append("no library makes a fortified call")
    quiet = subprocess.run([probe, "0"], stdout=subprocess.DEVNULL)
    ended = subprocess.run([probe, "1"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if quiet.returncode != 0 or ended.returncode != -signal.SIGABRT or b"buffer overflow" not in ended.stderr:
        faults.append(f"{probe}: a block of a size that the run tells is not watched (_FORTIFY_SOURCE=3)")
    for fault in sorted(set(faults)):
        print(fault)
    print(f"{len(libraries) + 1} files, {len(set(faults))} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
