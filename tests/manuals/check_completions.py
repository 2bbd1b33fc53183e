"""Asks a shell what it offers behind the beginning of a command line, and holds that against --help.

check_completions.py bash|zsh|fish COMPLETIONS PROGRAM; status 77 where the shell is not installed.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

shell, folder, program = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
if shutil.which(shell) is None:
    print(f"{shell} is not installed")
    sys.exit(77)

BASH = """
source "$1"
shift
for line in "$@"; do
    read -ra COMP_WORDS <<<"$line"
    [[ $line == *' ' ]] && COMP_WORDS+=('')
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    compopt() { :; }
    _qlnmedia
    echo "== $line"
    printf '%s\\n' "${COMPREPLY[@]}"
done
"""
FISH = """
source $argv[1]
for line in $argv[2..-1]
    echo "== $line"
    complete -C $line
end
"""
# An interactive shell of its own tells all matches as they are added, and ends behind them.
ZSH = r"""
zmodload zsh/zpty || exit 77
completions=$1
shift
for line in "$@"; do
    print -r -- "== $line"
    zpty session "PS1= zsh -f -i"
    zpty -w session "fpath=(${(q)completions} \$fpath); autoload -Uz compinit; compinit -u -d \$HOME/dump"
    zpty -w session 'compadd () {
        if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd "$@"; return; fi
        local -a hits; builtin compadd -A hits "$@"
        local hit; for hit in $hits; do print -r -- "<hit>$hit</hit>"; done
        builtin compadd "$@"
    }'
    zpty -w session 'finish () { print -r -- "<""end>"; exit }; comppostfuncs=(finish); bindkey "^I" complete-word'
    zpty -w session 'stty -echo; print -r -- "<""ready>"'
    text=
    while zpty -r session text '*<ready>*'; do [[ $text == *'<ready>'* ]] && break; done
    zpty -w -n session "$line"$'\t'
    while zpty -r session text; do print -rn -- "$text"; done
    zpty -d session
    print
done
"""


def ask(lines):
    """What is offered behind each line."""
    script, path = {"bash": (BASH, "bash-completion/completions/qlnmedia"), "fish": (FISH, "fish/vendor_completions.d/qlnmedia.fish"),
                    "zsh": (ZSH, "zsh/vendor-completions")}[shell]
    with tempfile.TemporaryDirectory() as home:
        here = pathlib.Path(home, "here")
        (here / "folder").mkdir(parents=True)
        for name in ("clip.mp4", "Clip.MOV", "notes.txt", "captions.scc"):
            (here / name).touch()
        command = {"bash": ["bash", "--norc", "-c", script, "bash"], "fish": ["fish", "--no-config", "-c", script],
                   "zsh": ["zsh", "-f", "-c", script, "zsh"]}[shell]
        done = subprocess.run([*command, str(folder / path), *lines], capture_output=True, text=True, check=False, cwd=here,
                              env={**os.environ, "HOME": home, "XDG_CONFIG_HOME": home, "TERM": "dumb"}, timeout=300)
    if done.returncode != 0 or (shell != "zsh" and done.stderr):
        sys.exit(f"{shell}: {done.stdout[-2000:]}{done.stderr[-2000:]}")
    offered, line = {}, None
    for row in done.stdout.replace("\r", "").split("\n"):
        if row.startswith("== "):
            line = row[3:]
            offered[line] = set()
        elif shell == "zsh":
            offered.setdefault(line, set()).update(hit.rstrip("/") for hit in re.findall(r"<hit>(.*?)</hit>", row))
        elif row:
            offered[line].add(row.split("\t")[0].rstrip("/"))
    return offered


def help_of(*command):
    return subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True).stdout


def options_in(text):
    rows = re.findall(r"^  (-[^\s].*)$", text, re.M)
    names = {name for row in rows for name in re.findall(r"(?<![\w-])--[a-z][\w-]*",
                                                         re.split(r"\s{2}| Needs: | Excludes: ", row)[0])}
    return names - {"--version"}


def commands_in(text):
    return re.findall(r"^  (\w+)", text.partition("Subcommands:\n")[2].partition("\n\n")[0], re.M)


tags = {row.split()[0] for row in subprocess.run([program, "metadata", "list", "--all"], capture_output=True, text=True,
                                                 check=True).stdout.split("\n") if row}
media = {"clip.mp4", "Clip.MOV", "folder"}
forms = {"mcc", "scc", "anc", "srt", "vtt", "ttml", "txt"}
wanted = {
    "qlnmedia pa": {"patch"},
    "qlnmedia metadata ": set(commands_in(help_of("metadata"))),
    "qlnmedia patch --tier ": {"main", "high"},
    "qlnmedia patch --colour bt2020-": {"bt2020-pq", "bt2020-hlg"},
    "qlnmedia patch --timecode-ty": {"--timecode-type"},
    "qlnmedia captions --form ": forms,
    "qlnmedia inspect ": media,
    "qlnmedia inspect --json ": media,
    "qlnmedia patch clip.mp4 ": media,
    "qlnmedia patch --captions ": media | {"captions.scc"},
    "qlnmedia metadata get File": {tag for tag in tags if tag.startswith("File")},
    "qlnmedia command rec": {"record", "recstop"},
    "qlnmedia check --max-": {"--max-memory", "--max-seconds"},
}
if shell != "zsh":
    # zsh leaves out what goes not together with what stands there.
    for name in commands_in(help_of()):
        wanted[f"qlnmedia {name} --"] = options_in(help_of(name)) | (options_in(help_of()))
offered = ask(list(wanted))
problems = []
for line, words in wanted.items():
    if offered.get(line) != words:
        found = offered.get(line, set())
        problems.append(f"{line!r}: missing {sorted(words - found)}, too many {sorted(found - words)}")
if problems:
    sys.exit("\n".join(problems))
print(f"{shell} offers what there is behind {len(wanted)} beginnings")
