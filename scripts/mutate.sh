#!/usr/bin/env bash
# Changes the library one place at a time and lists the changes that no test notices.
#
# scripts/mutate.sh [FOLDER] [N]: N mutants (default all) of support/qlnutil/FOLDER or support/FOLDER, spread over its
# files, against the tests of that folder; without FOLDER every folder in turn. Survivors come out with their lines;
# those that docs/mutants.md knows are counted apart. What was found stays in build/mutants/FOLDER.txt.
# QLN_MUTANT_BUILDS: mutants that take a build of their own, at most (default 20); QLN_MUTANT_JOBS: processes (1);
# QLN_MUTANT_NICE: the niceness at which all of it runs (19); QLN_MUTANT_SLOWEST: seconds of a test, above which it is
# left out (20; more on a machine that does other things, or survivors are told that such a test would notice).
# QLN_MUTANT_AGAIN=1: only what survived or was not reached the last time; QLN_MUTANT_SANITIZE=address,undefined: built
# with these, so that a mutant that reads or writes outside of memory is noticed, as it is where the tests run so.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh python3-clang-14
exec nice -n "${QLN_MUTANT_NICE:-19}" /usr/bin/python3 scripts/mutants/run.py "$@"
