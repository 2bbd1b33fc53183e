"""Checks that files of the engine and the tools include what they use of the headers that are compiled once.

A precompiled header hides that an include was forgotten, so this looks at the names: what a file uses of a header below,
it includes itself, or through headers of this house.
"""
import os
import re
import sys

root = sys.argv[1]
ROOMS = ("media", "tools", "gst")

ALGORITHMS = ("sort stable_sort find find_if find_if_not any_of all_of none_of copy_n copy_if fill_n max_element min_element "
              "clamp remove remove_if transform lower_bound upper_bound equal_range search unique rotate reverse count "
              "count_if binary_search mismatch for_each adjacent_find partition generate merge includes minmax")
USED = {
    "algorithm": r"std::(?:%s)\(" % "|".join(ALGORITHMS.split()),
    "array": r"std::array\b",
    "cstdint": r"\bu?int(?:8|16|32|64)_t\b",
    "cstring": r"std::(?:memcpy|memcmp|memmove|memset|memchr|strlen|strcmp|strncmp|strerror|strchr)\b",
    "functional": r"std::(?:function|less|greater|hash|bind|invoke|ref|cref)\b",
    "map": r"std::(?:multi)?map\b",
    "memory": r"std::(?:unique_ptr|shared_ptr|weak_ptr|make_unique|make_shared)\b",
    "optional": r"std::(?:optional|nullopt)\b",
    "span": r"std::span\b",
    "stdexcept": r"std::(?:runtime_error|logic_error|invalid_argument|out_of_range|length_error|domain_error)\b",
    "string": r"std::(?:string|to_string|stoul|stoull|stoi|getline)\b",
    "string_view": r"std::string_view\b",
    "variant": r"std::(?:variant|visit|get_if|holds_alternative|monostate)\b",
    "vector": r"std::vector\b",
    "fmt/format.h": r"fmt::(?:format|format_to|join|print|arg)\b",
    "nlohmann/json.hpp": r"nlohmann::",
    "CLI/CLI.hpp": r"\bCLI::",
}
# A header that brings another by its own standard.
BRINGS = {"string": {"string_view"}, "filesystem": {"string"}}
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
TEXT = re.compile(r'"(?:[^"\\\n]|\\.)*"')
OURS = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)
OTHERS = re.compile(r"^\s*#\s*include\s*<([^>]+)>", re.M)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def resolved(include, folder):
    for base in (folder, *(os.path.join(root, room) for room in ("media", "support", "tools", "tools/qlnmedia"))):
        path = os.path.normpath(os.path.join(base, include))
        if os.path.isfile(path):
            return path
    return None


closures = {}


def closure(path):
    """The headers that are not ours and come with a file."""
    if path in closures:
        return closures[path]
    closures[path] = set()  # a circle ends here
    text = COMMENT.sub("", read(path))
    found = set(OTHERS.findall(text))
    for include in OURS.findall(text):
        inner = resolved(include, os.path.dirname(path))
        if inner is not None:
            found |= closure(inner)
    for header in list(found):
        found |= BRINGS.get(header, set())
    closures[path] = found
    return found


problems = []
for room in ROOMS:
    for folder, _, names in os.walk(os.path.join(root, room)):
        for name in sorted(names):
            if not name.endswith((".h", ".cpp")):
                continue
            path = os.path.join(folder, name)
            have = closure(path)
            text = TEXT.sub('""', COMMENT.sub("", read(path)))
            for header, used in USED.items():
                if header.startswith("CLI") and name.endswith(".h"):
                    continue  # named ahead there
                if header not in have and re.search(used, text):
                    problems.append(f"{os.path.relpath(path, root)}: uses names of <{header}> without including it")

for problem in problems:
    print(problem)
sys.exit(1 if problems else 0)
