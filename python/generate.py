"""Writes what the records of the C headers look like from Python: a table for the extension, and the classes of its stub.

The headers are the one list: a member's name, type, shape and comment become the attribute's.

    generate.py INCLUDE_DIR STUB_HEAD TABLE.cpp STUB.pyi
"""
import re
import sys

# Header -> (record, Python class, module); a record stands behind those that it holds.
RECORDS = {
    "qlnh264_records.h": [
        ("H264HrdSchedule", "HrdSchedule", "h264"), ("H264HrdRecord", "Hrd", "h264"), ("H264SpsRecord", "Sps", "h264"),
        ("H264PpsRecord", "Pps", "h264"), ("H264SliceHeaderRecord", "SliceHeader", "h264"),
    ],
    "qlnhevc_records.h": [
        ("HevcProfileTierLevel", "ProfileTierLevel", "hevc"), ("HevcVpsRecord", "Vps", "hevc"),
        ("HevcShortTermRps", "ShortTermRps", "hevc"), ("HevcLongTermPicture", "LongTermPicture", "hevc"),
        ("HevcSpsRecord", "Sps", "hevc"), ("HevcPpsRecord", "Pps", "hevc"),
    ],
    "qlnhevc.h": [("HevcConfigRecord", "ConfigHead", "hevc"), ("DvvcConfigRecord", "DolbyVisionConfig", "hevc")],
    "qlnaac.h": [("QLNAacConfig", "AacConfig", "aac"), ("QLNAdtsHeader", "AdtsHeader", "aac")],
}
# Records that go back into a stream.
WRITERS = {
    "H264SpsRecord", "H264PpsRecord", "HevcVpsRecord", "HevcSpsRecord", "HevcPpsRecord", "HevcConfigRecord",
    "DvvcConfigRecord", "QLNAacConfig", "QLNAdtsHeader",
}
# Words that hold no element.
FREE = re.compile(r"^(free_words?_\d+|alignment_word|reserved)$")
WIDTHS = {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4, "uint64_t": 8, "int32_t": -4}

TOKEN = re.compile(
    r"/\*\*(?P<doc>.*?)\*/|/\*(?P<heading>.*?)\*/"
    r"|(?P<type>\w+)\s+(?P<name>\w+)(?P<shape>(?:\[\w+\])*);(?:[ \t]*/\*\*<?(?P<behind>.*?)\*/)?", re.S)


def words(comment):
    return " ".join(line.strip().lstrip("*").strip() for line in (comment or "").split("\n")).strip()


def python_name(record):
    for records in RECORDS.values():
        for name, python, module in records:
            if name == record:
                return {"h264": "H264", "hevc": "Hevc", "aac": ""}[module] + python
    raise SystemExit(f"generate.py: no class for {record}")


def number(text, constants):
    return int(text) if text.isdigit() else constants[text]


def members(header, record):
    """The members of a record as (name, type, counts, comment), and the comment in front of it."""
    found = re.search(r"((?:^///[^\n]*\n)+)typedef struct " + record + r" \{\n(.*?)^\} " + record + ";", header, re.S | re.M)
    if not found:
        raise SystemExit(f"generate.py: {record} is not in its header")
    constants = {name: int(value) for name, value in re.findall(r"^#define (QLN_\w+) (\d+)$", header, re.M)}
    fields, before = [], ""
    for token in TOKEN.finditer(found[2]):
        if token["heading"] is not None:
            before = ""
        elif token["doc"] is not None:
            before = words(token["doc"])
        else:
            counts = [number(count, constants) for count in re.findall(r"\[(\w+)\]", token["shape"])]
            if not FREE.match(token["name"]):
                fields.append((token["name"], token["type"], counts, words(token["behind"]) or before))
            before = ""
    text = " ".join(line.lstrip("/").strip() for line in found[1].strip().split("\n"))
    return text, fields


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def table(include, record, python, module, text, fields):
    out = [f"const Field k{record}Fields[] = {{"]
    for name, kind, counts, comment in fields:
        shape = (counts + [0, 0])[:2]
        known = WIDTHS.get(kind)
        out.append(
            f"    {{{quoted(name)}, {quoted(comment)}, offsetof({record}, {name}), "
            f"{abs(known) if known else f'sizeof({kind})'}, {'true' if known and known < 0 else 'false'}, "
            f"{{{shape[0]}, {shape[1]}}}, {'nullptr' if known else f'&k{kind}Type'}}},")
    out.append("};")
    out.append(
        f"constexpr RecordType k{record}Type = {{{quoted(python)}, {quoted('qlnutil.' + module)}, {quoted(text)}, "
        f"sizeof({record}), k{record}Fields, {f'&Write<{record}>' if record in WRITERS else 'nullptr'}}};")
    return out


def stub(record, python, text, fields):
    out = [f"class {python}(Record):", f'    """{text}"""', ""]
    types = []
    for name, kind, counts, comment in fields:
        inner = "int" if kind in WIDTHS else python_name(kind)
        given = "int" if kind in WIDTHS else f"{inner} | Mapping[str, Any]"
        for _ in counts:
            inner, given = f"tuple[{inner}, ...]", f"Sequence[{given}]"
        types.append((name, given))
        out += ["    @property", f"    def {name}(self) -> {inner}:", f'        """{comment or name}"""',
                f"    @{name}.setter", f"    def {name}(self, value: {given}) -> None: ..."]
    arguments = ", ".join(f"{name}: {given} = ..." for name, given in types)
    out.append(f"    def __init__(self, *, {arguments}) -> None: ...")
    out.append(f"    def copy(self) -> {python}: ...")
    if record in WRITERS:
        out += ["    def write(self) -> bytes:", '        """The record in the form in which streams and files hold it."""']
    return out + [""]


def main(include, stub_head, table_path, stub_path):
    tables = ["// Written by generate.py from the headers; not to be edited.", '#include "records.h"', "",
              '#include "writers.h"', "", "namespace qlnpython {", "namespace {", ""]
    with open(stub_head, encoding="utf-8") as file:
        stubs = [file.read()]
    every = []
    for header_name, records in RECORDS.items():
        with open(f"{include}/{header_name}", encoding="utf-8") as file:
            header = file.read()
        for record, python, module in records:
            text, fields = members(header, record)
            tables += table(include, record, python, module, text, fields) + [""]
            stubs += stub(record, python_name(record), text, fields)
            every.append((record, python_name(record)))
    tables += ["}  // namespace", ""]
    tables += [f"template <>\nconst RecordType& TypeOf<{record}>() {{\n  return k{record}Type;\n}}" for record, _ in every]
    tables.append("std::vector<NamedType> AllRecordTypes() {\n  return {")
    tables += [f"      {{{quoted(python)}, &k{record}Type}}," for record, python in every]
    tables += ["  };\n}", "", "}  // namespace qlnpython", ""]
    for path, lines in ((table_path, tables), (stub_path, stubs)):
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))


if __name__ == "__main__":
    main(*sys.argv[1:])
