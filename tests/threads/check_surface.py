"""Sees to it that each exported name is called from what the threads run.

    check_surface.py "EXPORTS;..." "OBJECT;..."
"""

import subprocess
import sys

# Tables of the compiler's, and what hosts call themselves around what is threaded.
NO_CALLS = ("vtable for ",)


def main():
    lists, objects = (argument.split(";") for argument in sys.argv[1:3])
    exported = set()
    for path in lists:
        with open(path) as file:
            exported |= {line.strip() for line in file if not line.startswith("#")}
    shown = subprocess.run(["nm", "--demangle", "--undefined-only", *objects], check=True, stdout=subprocess.PIPE, text=True).stdout
    called = {line.split(maxsplit=1)[1].strip() for line in shown.splitlines() if line.strip().startswith("U ")}
    missing = sorted(name for name in exported if name not in called and not name.startswith(NO_CALLS))
    for name in missing:
        print(f"no thread calls {name}")
    print(f"{len(exported) - len(missing)} of {len(exported)} names are called")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
