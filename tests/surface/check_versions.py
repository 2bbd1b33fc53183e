"""Checks that the packages' changelog has the version and the date that the build and the manual pages have."""
import os
import re
import sys
from email.utils import parsedate_to_datetime

root = sys.argv[1]


def found(name, pattern):
    with open(os.path.join(root, name), encoding="utf-8") as file:
        match = re.search(pattern, file.read(), re.M)
    if match is None:
        sys.exit(f"{name}: nothing there matches {pattern}")
    return match.group(1)


version = found("CMakeLists.txt", r"^project\(qlnutil VERSION (\S+)")
date = found("cmake/Manuals.cmake", r"^set\(QLN_VERSION_DATE (\S+)\)")
packaged = found("debian/changelog", r"\Aqlnutil \((.+?)\) ")
packaged_on = parsedate_to_datetime(found("debian/changelog", r"^ -- .+?  (.+)$")).date().isoformat()
problems = []
if packaged != version:
    problems.append(f"debian/changelog begins with {packaged}, CMakeLists.txt says {version}")
if packaged_on != date:
    problems.append(f"debian/changelog is of {packaged_on}, cmake/Manuals.cmake says {date}")
for problem in problems:
    print(problem)
if problems:
    sys.exit(1)
print(f"version {version} of {date}, everywhere")
