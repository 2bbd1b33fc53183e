"""All sequence parameter sets of a folder's files as a table: sps_table.py FOLDER"""
from __future__ import annotations

import sys
from collections.abc import Iterator

from qlnutil import archive

COLUMNS = ("file", "id", "profile", "level", "size", "colour")


def rows(folder: str) -> Iterator[tuple[str, ...]]:
    """A row for each set, by the published syntax."""
    results = sorted(archive.inspect_all(archive.files(folder)), key=lambda result: result.path)
    for result in results:
        if result.error:
            print(result.error, file=sys.stderr)
            continue
        for stream in result.value["streams"]:
            for sps in stream.get("parameter_sets", {}).get("sps", []):
                elements, size = sps["elements"], sps["picture_size"]
                number = elements.get("seq_parameter_set_id", elements.get("sps_seq_parameter_set_id"))
                colour = ":".join(str(elements.get(name, "-")) for name in (
                    "colour_primaries", "transfer_characteristics",
                    "matrix_coefficients" if "matrix_coefficients" in elements else "matrix_coeffs"))
                yield (result.path, str(number), sps["profile"], str(sps["level"]),
                       f"{size['width']}x{size['height']}", colour)


def main(folder: str) -> None:
    for row in (COLUMNS, *rows(folder)):
        print("  ".join(cell.ljust(12) for cell in row).rstrip())


if __name__ == "__main__":
    main(sys.argv[1])
