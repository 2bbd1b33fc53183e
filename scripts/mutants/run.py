"""Builds a folder of the library with all its mutants behind a switch, and runs the tests that reach each of them."""
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from instrument import Finder, Instrumented  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent.parent
WORK = ROOT / "build" / "mutants"
TREE = WORK / "tree"  # a copy of the project, whose sources are the instrumented ones
BUILD = WORK / ("build" if not os.environ.get("QLN_MUTANT_SANITIZE") else "build_sanitized")
FOLDERS = ["bits", "format", "transport", "mediacmd", "clipinfo", "files", "h264", "hevc", "inband", "aac", "nalstream",
           "timecode", "kxutil"]
JOBS = int(os.environ.get("QLN_MUTANT_JOBS", "1"))
MOST_BUILDS = int(os.environ.get("QLN_MUTANT_BUILDS", "20"))
AGAIN = os.environ.get("QLN_MUTANT_AGAIN", "") not in ("", "0")
SANITIZE = os.environ.get("QLN_MUTANT_SANITIZE", "")
SLOWEST_TEST = float(os.environ.get("QLN_MUTANT_SLOWEST", "20"))  # seconds; tests that take longer are left out


def Run(arguments, seconds=3600, env=None, cwd=None):
    """The exit status of a program under limits, None where its time ran out, and what it printed."""

    def Limit():
        os.setsid()
        if not SANITIZE:
            resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 42, 1 << 42))  # tests have sparse files

    process = subprocess.Popen([str(a) for a in arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               env={**os.environ, **(env or {})}, cwd=cwd, preexec_fn=Limit)
    try:
        output, _ = process.communicate(timeout=seconds)
        return process.returncode, output.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return None, ""


def FolderPath(folder):
    inner = Path("support") / "qlnutil" / folder
    return inner if (ROOT / inner).is_dir() else Path("support") / folder


def PutIfChanged(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    if not path.exists() or path.read_bytes() != content:
        path.write_bytes(content)


def CopyTree():
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, capture_output=True, text=True,
                           check=True).stdout.split("\n")
    for name in filter(None, files):
        if (ROOT / name).is_file():
            PutIfChanged(TREE / name, (ROOT / name).read_bytes())
            shutil.copymode(ROOT / name, TREE / name)
    for old in TREE.rglob("*"):
        if old.suffix in (".cpp", ".h") and not (ROOT / old.relative_to(TREE)).exists():
            old.unlink()


def Configure():
    flags = f"-O1 -w -fpermissive -Wno-narrowing -include {ROOT / 'scripts/mutants/switch.h'}"
    status, output = Run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                          f"-DCMAKE_CXX_FLAGS_DEBUG={flags}", "-DCMAKE_C_FLAGS_DEBUG=-O1 -w", "-DQLN_TESTS=ON", f"-DQLN_SANITIZE={SANITIZE}"])
    if status != 0:
        sys.exit(output)


def Build(target, seconds=3600):
    return Run(["cmake", "--build", BUILD, "--target", target, "--parallel", max(JOBS, 1), "--", "-k", "0"], seconds)


class Folder:
    def __init__(self, name):
        self.name = name
        self.path = FolderPath(name)
        self.target = f"test_{name}"
        self.sources = sorted(p for p in (ROOT / self.path).iterdir() if p.suffix in (".cpp", ".h"))
        self.mutants = []
        self.program = BUILD / "tests" / self.target

    def Find(self):
        arguments = [f"-I{ROOT / 'support'}", "-DTIXML_USE_STL"]
        for source in self.sources:
            self.mutants += Finder(str(source), arguments).mutants
        for number, mutant in enumerate(self.mutants, 1):
            mutant.number = number

    def TreePath(self, mutant_path):
        return TREE / Path(mutant_path).relative_to(ROOT)

    def WriteInstrumented(self):
        for source in self.sources:
            mine = [m for m in self.mutants if m.switched and m.path == str(source)]
            PutIfChanged(self.TreePath(source), Instrumented(source.read_bytes(), mine))

    def Restore(self):
        for source in self.sources:
            PutIfChanged(self.TreePath(source), source.read_bytes())

    def BuildInstrumented(self):
        """Mutants on lines that the compiler refuses behind a switch go to those with a build of their own."""
        names = {str(self.TreePath(s)): str(s) for s in self.sources}
        for _ in range(8):
            self.WriteInstrumented()
            status, output = Build(self.target)
            if status == 0:
                return
            refused = set()
            for path, line in re.findall(r"^(?:In file included from )?(\S+?):(\d+)[:,]", output, re.M):
                path = os.path.normpath(os.path.join(BUILD, path))
                if path in names:
                    refused.add((names[path], int(line)))
            hit = [m for m in self.mutants if m.switched and (m.path, m.line) in refused]
            if not hit:
                sys.exit(output[-6000:])
            for mutant in hit:
                mutant.switched = False
        sys.exit("mutants: the instrumented sources do not build")

    # ---- tests ----

    def Environment(self, **more):
        scratch = WORK / "scratch"
        scratch.mkdir(parents=True, exist_ok=True)
        return {"TMPDIR": str(scratch), "ASAN_OPTIONS": "allocator_may_return_null=1:detect_leaks=0", **more}

    def Tests(self):
        _, output = Run([self.program, "--gtest_list_tests"])
        suite, tests = "", []
        for line in output.splitlines():
            if line.startswith("  "):
                tests.append(suite + line.split("#")[0].strip())
            elif line.endswith(".") or ".  #" in line:
                suite = line.split("#")[0].strip()
        return tests

    def Reach(self):
        """For each test its time, and for each mutant the tests that reach it."""
        self.seconds, self.reaching = {}, {}
        seen = WORK / "seen.txt"
        for test in self.Tests():
            seen.unlink(missing_ok=True)
            begin = time.monotonic()
            status, output = Run([self.program, f"--gtest_filter={test}"], SLOWEST_TEST,
                                 self.Environment(QLN_MUTANT_SEEN=str(seen)), WORK)
            if status is None:
                continue
            if status != 0:
                sys.exit(f"mutants: {test} fails without a mutant\n{output[-3000:]}")
            self.seconds[test] = time.monotonic() - begin
            numbers = {int(n) for n in seen.read_text().split()} if seen.exists() else set()
            for number in numbers:
                self.reaching.setdefault(number, []).append(test)

    def Survives(self, tests, number):
        """Whether all tests pass with the mutant on. The quickest go first; most mutants fall to one of them."""
        tests = sorted(tests, key=lambda t: self.seconds[t])
        for part in (tests[:8], tests[8:]):
            if not part:
                continue
            limit = 5 + 5 * sum(self.seconds[t] for t in part)
            status, _ = Run([self.program, "--gtest_fail_fast", "--gtest_brief=1", "--gtest_filter=" + ":".join(part)],
                            limit, self.Environment(QLN_MUTANT=str(number)), WORK)
            if status != 0:
                return False
        return True

    def RunSwitched(self, chosen):
        """Returns the survivors and the mutants that no test reaches."""
        with ThreadPoolExecutor(JOBS) as pool:
            reached = [m for m in chosen if m.number in self.reaching]
            alive = list(pool.map(lambda m: self.Survives(self.reaching[m.number], m.number), reached))
        return ([m for m, a in zip(reached, alive) if a], [m for m in chosen if m.number not in self.reaching])

    def RunBuilt(self, chosen):
        """One build each. What the compiler refuses is found."""
        self.Restore()
        survivors, refused = [], 0
        if chosen and Build(self.target)[0] != 0:
            sys.exit("mutants: the sources do not build")
        for mutant in chosen:
            begin, end, text = mutant.plain
            original = Path(mutant.path).read_bytes()
            self.TreePath(mutant.path).write_bytes(original[:begin] + text + original[end:])
            status, _ = Build(self.target, 600)
            if status == 0:
                status, _ = Run([self.program, "--gtest_fail_fast", "--gtest_brief=1", "--gtest_filter=" +
                                 ":".join(self.seconds)], 10 + 5 * sum(self.seconds.values()), self.Environment(), WORK)
                if status == 0:
                    survivors.append(mutant)
            else:
                refused += 1
            self.TreePath(mutant.path).write_bytes(original)
        return survivors, refused


class Known:
    """The survivors that docs/mutants.md explains: by their line of code and change, or by /a pattern/ that a whole
    line matches, with `any` for every change of it."""

    def __init__(self):
        page = ROOT / "docs" / "mutants.md"
        rows = re.findall(r"^\| `([^`]+)` \| `(.+?)` \| `([^`]+)` \|", page.read_text() if page.exists() else "", re.M)
        rows = [tuple(cell.replace("\\|", "|") for cell in row) for row in rows]
        self.exact = {row for row in rows if not self.IsPattern(row[1])}
        self.patterns = [(name, re.compile(code[1:-1]), what) for name, code, what in rows if self.IsPattern(code)]

    @staticmethod
    def IsPattern(code):
        return len(code) > 2 and code[0] == code[-1] == "/" and code[1] != "/"

    def Explains(self, name, code, what):
        return (name, code, what) in self.exact or any(
            name == n and change in (what, "any") and line.fullmatch(code) for n, line, change in self.patterns)


def Report(folder, counts, survivors, unreached):
    """Writes what was found to build/mutants/FOLDER.txt and prints it; returns the survivors that are not known."""
    known = Known()
    lines, fresh = [counts], 0
    for title, mutants in (("survives", survivors), ("not reached", unreached)):
        for m in mutants:
            name = str(Path(m.path).relative_to(ROOT / "support"))
            is_known = known.Explains(name, m.code, m.what)
            fresh += not is_known
            mark = " (known)" if is_known else ""
            lines.append(f"{title}{mark}: {name}:{m.line}:{m.column}: {m.what} | {m.code}")
    lines.append(f"{folder.name}: {fresh} survivors that docs/mutants.md does not explain")
    text = "\n".join(lines) + "\n"
    (WORK / f"{folder.name}.txt").write_text(text)
    print(text, end="", flush=True)
    return fresh


def LastSurvivors(folder):
    """Those of the last run over the folder, as (file, change, code): lines may have moved since."""
    page = (WORK / f"{folder.name}.txt").read_text()
    rows = re.findall(r"^(?:survives|not reached)(?: \(known\))?: (\S+?):\d+:\d+: (.+?) \| (.*)$", page, re.M)
    return set(rows)


def Mutate(name, most):
    folder = Folder(name)
    folder.Find()
    if AGAIN:
        last = LastSurvivors(folder)
        folder.mutants = [m for m in folder.mutants
                          if (str(Path(m.path).relative_to(ROOT / "support")), m.what, m.code) in last]
    folder.BuildInstrumented()
    folder.Reach()
    pick = random.Random(1)
    switched = [m for m in folder.mutants if m.switched]
    chosen = switched if most is None else pick.sample(switched, min(most, len(switched)))
    begin = time.monotonic()
    survivors, unreached = folder.RunSwitched(sorted(chosen, key=lambda m: m.number))
    if MOST_BUILDS != 0:  # builds take long; this much stands if they are broken off
        Report(folder, f"{name}, before the builds: {len(chosen)} run behind the switch", survivors, unreached)
    # What only the compiler evaluates is never reached: such a mutant is judged by a build.
    own = [m for m in folder.mutants if not m.switched] + [m for m in unreached if m.compileTime]
    unreached = [m for m in unreached if not m.compileTime]
    built = sorted(pick.sample(own, min(MOST_BUILDS, len(own))), key=lambda m: m.number)
    more, refused = folder.RunBuilt(built)
    folder.Restore()
    counts = (f"{name}: {len(folder.mutants)} mutants, {len(chosen)} run behind the switch in "
              f"{time.monotonic() - begin:.0f} s, {len(built)} of {len(own)} built ({refused} refused by the compiler), "
              f"{len(survivors) + len(more)} survive, {len(unreached)} not reached")
    return Report(folder, counts, survivors + more, unreached)


def Main(arguments):
    folders = [a for a in arguments if not a.isdigit()] or FOLDERS
    numbers = [int(a) for a in arguments if a.isdigit()]
    WORK.mkdir(parents=True, exist_ok=True)
    CopyTree()
    Configure()
    fresh = sum(Mutate(folder, numbers[0] if numbers else None) for folder in folders)
    return 1 if fresh else 0


if __name__ == "__main__":
    sys.exit(Main(sys.argv[1:]))
