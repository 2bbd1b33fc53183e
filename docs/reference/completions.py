"""Writes the completions of qlnmedia for bash, zsh and fish from its option tables: commands, options, words that an option
takes, and files whose endings fit.

completions.py TABLES.json FOLDER
"""
import json
import pathlib
import sys

PROGRAM = "qlnmedia"
MADE = f"# Completions of {PROGRAM}, made from its option tables."


class Command:
    """A command with the options that may follow it. `path` is its words: "" for the program, "metadata set"."""

    def __init__(self, table, path, common):
        self.table, self.path = table, path
        self.options = [option for option in table["options"] if not option["positional"]] + common
        self.places = [option for option in table["options"] if option["positional"]]
        self.below = table["commands"]


def commands_of(tables):
    def walk(table, path, common):
        yield Command(table, path, common)
        for sub in table["commands"]:
            yield from walk(sub, f"{path} {sub['name']}".strip(), guards)

    guards = [option for option in tables["options"] if not {"--help", "--version"} & set(option["names"])]
    return list(walk(tables, "", []))


def quoted(text):
    """For bash and zsh."""
    return "'" + text.replace("'", "'\\''") + "'"


def fish_quoted(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def short(text):
    """A description in a menu's line."""
    return text.split("; ")[0].split(", or ")[0].rstrip(".")


# ---- bash

BASH_WALK = """
_qlnmedia_offer()
{
    local current=$1 kind=$2 path ending name
    local -a folders=() fitting=() others=()
    shift 2
    if [[ $kind == words ]]; then
        while read -r name; do COMPREPLY+=("$name"); done < <(compgen -W "$*" -- "$current")
        [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *: ]] && compopt -o nospace 2>/dev/null
        return
    fi
    [[ $kind == files ]] || return
    compopt -o filenames 2>/dev/null
    while read -r path; do
        name=${path,,}
        others+=("$path")
        [[ -d $path ]] && folders+=("$path")
        for ending in "$@"; do [[ ! -d $path && $name == *"$ending" ]] && fitting+=("$path"); done
    done < <(compgen -f -- "$current")
    # Where no file has such an ending, another one is meant.
    if [[ ${#fitting[@]} -eq 0 ]]; then COMPREPLY=("${others[@]}"); else COMPREPLY=("${folders[@]}" "${fitting[@]}"); fi
}

_qlnmedia()
{
    local current=${COMP_WORDS[COMP_CWORD]} command='' option='' word i
    local -i place=0
    local -a takes=()
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        # Readline parts --option=value into three words.
        if [[ $word == '=' ]]; then continue; fi
        if [[ -n $option ]]; then
            option=''
        elif [[ $word == -?* ]]; then
            _qlnmedia_value "$command" "$word"
            [[ ${#takes[@]} -eq 0 ]] || option=$word
        elif _qlnmedia_below "$command" "$word"; then
            command=${command:+$command }$word
        else
            place+=1
        fi
    done
    [[ $current == '=' ]] && current=''
    if [[ -n $option ]]; then
        _qlnmedia_value "$command" "$option"
    elif [[ $current == -* ]]; then
        _qlnmedia_options "$command"
    else
        _qlnmedia_argument "$command" "$place"
    fi
    [[ ${#takes[@]} -eq 0 ]] || _qlnmedia_offer "$current" "${takes[@]}"
}

complete -F _qlnmedia qlnmedia
"""


class BashSets:
    """Lists of endings by name, since several options take the same files."""

    def __init__(self):
        self.names = {}

    def takes(self, option):
        if option["files"]:
            endings = " ".join(option["endings"])
            if not endings:
                return "takes=(files)"
            name = self.names.setdefault(endings, f"_qlnmedia_files_{len(self.names) + 1}")
            return f'takes=(files "${{{name}[@]}}")'
        if option["words"]:
            return f"takes=(words {' '.join(quoted(word) for word in option['words'])})"
        return "takes=(text)"


def bash_cases(title, rows, last="takes=()"):
    out = [f"\n{title}()", "{", '    case "$1 $2" in']
    out += [f"        {patterns}) {action} ;;" for patterns, action in rows]
    return out + [f"        *) {last} ;;", "    esac", "}"]


def bash(commands):
    sets = BashSets()
    values, arguments, below = [], [], []
    for command in commands:
        for option in command.options:
            if option["argument"]:
                patterns = " | ".join(quoted(f"{command.path} {name}") for name in option["names"])
                values.append((patterns, sets.takes(option)))
        for number, option in enumerate(command.places):
            many = option["most"] > 1
            place = quoted(command.path + " ") + "*" if many else quoted(f"{command.path} {number}")
            arguments.append((place, sets.takes(option)))
        if command.below:
            names = [sub["name"] for sub in command.below]
            below += [quoted(f"{command.path} {name}") for name in names]
            arguments.append((quoted(f"{command.path} 0"), f"takes=(words {' '.join(names)})"))
    out = [MADE]
    functions = bash_cases("_qlnmedia_value", values) + bash_cases("_qlnmedia_argument", arguments)
    functions += bash_cases("_qlnmedia_below", [(" | ".join(below), "return 0")], "return 1")
    functions += ["\n_qlnmedia_options()", "{", '    case "$1" in']
    for command in commands:
        names = " ".join(name for option in command.options for name in option["names"])
        functions.append(f"        {quoted(command.path)}) takes=(words {names}) ;;")
    functions += ["    esac", "}"]
    out += [f"{name}=({endings})" for endings, name in sets.names.items()]
    return "\n".join(out + functions) + "\n" + BASH_WALK


# ---- zsh


def zsh_text(text):
    for sign in "\\[]:":
        text = text.replace(sign, "\\" + sign)
    return text


def zsh_action(option):
    if option["files"]:
        endings = "|".join(ending[1:] for ending in option["endings"])
        return f'_files -g "*.(#i)({endings})"' if endings else "_files"
    if option["words"]:
        return f"({' '.join(zsh_text(word) for word in option['words'])})"
    return " "


def zsh_specs(command):
    for option in command.options:
        others = option["excludes"] + ([] if option["repeats"] else option["names"])
        head = f"({' '.join(others)})" if others else ""
        value = f":{zsh_text(option['argument'])}:{zsh_action(option)}" if option["argument"] else ""
        for name in option["names"]:
            mark = "=" if value and name.startswith("--") else ""
            star = "*" if option["repeats"] else ""
            yield quoted(f"{head}{star}{name}{mark}[{zsh_text(short(option['description']))}]{value}")
    for option in command.places:
        head = "*" if option["most"] > 1 else "" if option["required"] else ":"
        yield quoted(f"{head}:{zsh_text(option['names'][-1])}:{zsh_action(option)}")


def zsh_function(path):
    return "_".join(["_qlnmedia", *path.split()])


def zsh(commands):
    out = [f"#compdef {PROGRAM}", MADE]
    for command in commands:
        name = zsh_function(command.path)
        out += ["", f"{name}() {{"]
        if not command.below:
            out += ["  _arguments -S \\"] + [f"    {spec} \\" for spec in zsh_specs(command)]
            out[-1] = out[-1].removesuffix(" \\")
            out.append("}")
            continue
        out += ["  local curcontext=$curcontext state line", "  typeset -A opt_args", "  local -a commands=("]
        out += [f"    {quoted(sub['name'] + ':' + zsh_text(sub['description']))}" for sub in command.below]
        out += ["  )", "  _arguments -C \\"] + [f"    {spec} \\" for spec in zsh_specs(command)]
        out += ["    '1: :->command' '*:: :->arguments'", "  case $state in",
                "    command) _describe -t commands command commands ;;", "    arguments)", "      case $words[1] in"]
        for sub in command.below:
            below = zsh_function(f"{command.path} {sub['name']}")
            out.append(f"        {sub['name']}) {below} ;;")
        out += ["      esac ;;", "  esac", "}"]
    return "\n".join(out) + '\n\n_qlnmedia "$@"\n'


# ---- fish

FISH_WALK = """
# The command that stands in front of the cursor, and the number of arguments behind it.
function __qlnmedia_walk
    set -l command ''
    set -l place 0
    set -l skip 0
    set -l words (commandline -opc)
    for word in $words[2..-1]
        if test $skip = 1
            set skip 0
        else if string match -q -- '-?*' $word
            if __qlnmedia_takes "$command $word"
                set skip 1
            end
        else if __qlnmedia_below (string trim -- "$command $word")
            set command (string trim -- "$command $word")
        else
            set place (math $place + 1)
        end
    end
    printf '%s\\n' $command $place
end

# Whether the command stands there, and, where a place is asked for, that argument.
function __qlnmedia_at
    set -l walk (__qlnmedia_walk)
    test "$walk[1]" = "$argv[1]"; or return 1
    test (count $argv) = 1; or test "$walk[2]" = "$argv[2]"
end

# Files with one of these endings and folders; all files where none has one.
function __qlnmedia_files
    set -l fitting
    set -l folders
    set -l all (complete -C "__fish_command_without_completions "(commandline -ct))
    for path in $all
        if string match -q -- '*/' (string split \\t -- $path)[1]
            set -a folders $path
        end
        for ending in $argv
            if string match -qi -- "*$ending" (string split \\t -- $path)[1]
                set -a fitting $path
            end
        end
    end
    if test (count $fitting) = 0
        printf '%s\\n' $all
    else
        printf '%s\\n' $fitting $folders
    end
end

complete -c qlnmedia -f
"""


def fish_values(option):
    if option["files"]:
        return fish_quoted(f"(__qlnmedia_files {' '.join(option['endings'])})")
    return fish_quoted(" ".join(option["words"])) if option["words"] else None


def fish_test(title, patterns):
    return [f"\nfunction {title}", "    switch $argv[1]", f"        case {' '.join(fish_quoted(p) for p in patterns)}",
            "            return 0", "    end", "    return 1", "end"]


def fish(commands):
    takes = [f"{command.path} {name}" for command in commands for option in command.options if option["argument"]
             for name in option["names"]]
    below = [command.path for command in commands if command.path]
    out = [MADE] + fish_test("__qlnmedia_takes", takes) + fish_test("__qlnmedia_below", below) + [FISH_WALK]
    for command in commands:
        for sub in command.below:
            out.append(f"complete -c {PROGRAM} -n {fish_quoted(f'__qlnmedia_at {quoted(command.path)} 0')} "
                       f"-a {sub['name']} -d {fish_quoted(sub['description'])}")
        for option in command.options:
            names = " ".join(f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}" for name in option["names"])
            values = fish_values(option)
            value = f" -x{f' -a {values}' if values else ''}" if option["argument"] else ""
            out.append(f"complete -c {PROGRAM} -n {fish_quoted(f'__qlnmedia_at {quoted(command.path)}')} {names}{value} "
                       f"-d {fish_quoted(short(option['description']))}")
        for number, option in enumerate(command.places):
            values = fish_values(option)
            place = "" if option["most"] > 1 else f" {number}"
            if values:
                out.append(f"complete -c {PROGRAM} -n {fish_quoted(f'__qlnmedia_at {quoted(command.path)}{place}')} "
                           f"-a {values}")
    return "\n".join(out) + "\n"


def main():
    tables = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    share = pathlib.Path(sys.argv[2])
    commands = commands_of(tables)
    for path, text in (("bash-completion/completions/qlnmedia", bash(commands)),
                       ("zsh/vendor-completions/_qlnmedia", zsh(commands)),
                       ("fish/vendor_completions.d/qlnmedia.fish", fish(commands))):
        file = share / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")


main()
