"""Writes the manual pages of the libraries from Doxygen's XML of their installed headers: qlnutil(3), a page for each
header, for each class, and for each function.

library_manuals.py XML_FOLDER VERSION DATE FOLDER
"""
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

import roff
from roff import Page, bold, italic, safe

# Folder of the installed headers -> what a host includes, links and calls its pages by.
LIBRARIES = {"qlnutil": "qlnutil", "kxutil": "kxutil", "timecode": "kxtimecode", "qlnmedia": "qlnmedia"}


class Header:
    def __init__(self, compound):
        path = pathlib.PurePath(compound.find("location").get("file"))
        self.name, self.folder = path.name, path.parent.name
        self.include = f"{self.folder}/{self.name}"
        self.library = LIBRARIES[self.folder]
        # Some have names that are anybody's.
        common = self.folder == "qlnmedia" or self.name == "helpers.h"
        self.page = f"{self.folder}-{self.name}" if common else self.name
        self.compound = compound
        self.functions, self.classes, self.records, self.others = [], [], [], []


# ---- text of the XML as roff


def inline(node):
    """The text of a paragraph, marked up; blocks inside of it are left out."""
    text = safe(node.text or "")
    for child in node:
        if child.tag in ("parameterlist", "simplesect", "itemizedlist", "verbatim", "programlisting", "para"):
            pass
        elif child.tag in ("bold", "computeroutput"):
            text += r"\fB" + inline(child) + r"\fR"
        elif child.tag == "emphasis":
            text += r"\fI" + inline(child) + r"\fR"
        elif child.tag in ("sp", "nonbreakablespace"):
            text += " "
        elif child.tag in ("ndash", "mdash"):
            text += r"\-\-"
        elif child.tag in ("lsquo", "rsquo"):
            text += safe("'")
        else:
            text += inline(child)
        text += safe(child.tail or "")
    return text


def listing(node):
    if node.tag == "verbatim":
        return (node.text or "").strip("\n")
    return "\n".join(text_of(line) for line in node.findall("codeline"))


def text_of(node):
    text = node.text or ""
    for child in node:
        text += (" " if child.tag == "sp" else text_of(child)) + (child.tail or "")
    return text


def blocks(node):
    """A description as blocks of rows, without what is said of parameters and results."""
    out = []
    for para in node.iter("para") if node.tag != "para" else [node]:
        # The paragraphs inside of lists and sections come with these.
        if para is not node and any(para in holder.iter("para") for holder in node.iter()
                                    if holder.tag in ("parameterlist", "simplesect", "itemizedlist")):
            continue
        text = inline(para).strip()
        if text:
            out.append(roff.lines(text))
        for child in para:
            if child.tag in ("verbatim", "programlisting"):
                out.append(roff.code(listing(child))[1:])
            elif child.tag == "itemizedlist":
                rows = []
                for item in child.findall("listitem"):
                    rows += [r".IP \(bu 2"] + roff.lines(" ".join(inline(part) for part in item.findall("para")))
                out.append(rows)
    return out


def one_line(node):
    return " ".join(" ".join(inline(para).split()) for para in node.iter("para")).strip() if node is not None else ""


def descriptions(member):
    """All that is said of a member, the sentence in front first."""
    found = []
    for tag in ("briefdescription", "detaileddescription"):
        if member.find(tag) is not None:
            found += blocks(member.find(tag))
    return found


def parameters(member, kind):
    """Pairs of names and a description, in the order of the text."""
    for node in member.iter("parameterlist"):
        if node.get("kind") != kind:
            continue
        for item in node.findall("parameteritem"):
            names = [name for name in item.iter("parametername")]
            way = {name.get("direction") for name in names} - {None}
            yield ([text_of(name).strip() for name in names], way.pop() if way else "",
                   one_line(item.find("parameterdescription")))


def results(member):
    for node in member.iter("simplesect"):
        if node.get("kind") == "return":
            yield one_line(node)


def name_line(text):
    """What NAME says: the first sentence, with no mark-up and not too long."""
    text = re.sub(r"\\f[BIR]", "", text)
    text = re.split(r"(?<=[a-z0-9)])[.:;] ", text)[0].rstrip(".")
    return text[:1].lower() + text[1:] if re.match(r"[A-Z][a-z]*[ ,]", text) else text


def short(member):
    said = one_line(member.find("briefdescription")) or next(iter(
        " ".join(rows) for rows in descriptions(member)), "") or next(("gives " + text for text in results(member)), "")
    return name_line(said) or safe(member.findtext("name"))


# ---- declarations


def prototype(member):
    """A declaration in rows: what stands in front of the name, and each parameter behind it."""
    definition = re.sub(r"\s+([*&])", r"\1", re.sub(r"\b(inline|static) ", "", member.findtext("definition")))
    arguments = re.sub(r"\s+([*&])", r" \1", member.findtext("argsstring") or "")
    arguments = re.sub(r" ([*&]+)", r"\1 ", arguments)
    template = "template <" + ", ".join(
        text_of(part.find("type")) + (" " + part.findtext("declname") if part.find("declname") is not None else "")
        for part in member.findall("templateparamlist/param")) + "> " if member.find("templateparamlist") is not None else ""
    return f"{template}{definition}{arguments};"


def declared(text):
    """A declaration, its name bold, in rows that hang."""
    found = re.match(r"(.*?)((?:~?\w|::)+|operator[^\w\s(]+|operator\(\))(\(.*)$", text)
    head, name, rest = found.groups() if found else ("", text, "")
    return [".HP 4"] + roff.lines(f"{safe(head)}{bold(name)}{safe(rest)}")


def say_function(page, member, heading):
    for number, rows in enumerate(descriptions(member)):
        if not number and heading:
            page.heading("DESCRIPTION")
        page.paragraph(rows)
    for names, way, text in parameters(member, "param"):
        term = safe(", ").join(italic(name) for name in names) + (safe(f" [{way}]") if way not in ("", "in") else "")
        page.add(roff.entry(term, text))


def say_results(page, member):
    told = list(results(member))
    if told:
        page.heading("RETURN VALUE")
        for text in told:
            page.paragraph(roff.lines(text[:1].upper() + text[1:]))
    thrown = list(parameters(member, "exception"))
    if thrown:
        page.heading("ERRORS")
        for names, _, text in thrown:
            page.add(roff.entry(", ".join(bold(name) for name in names), text or "is thrown."))


def include_rows(header):
    return [rf"\fB#include <{safe(header.include)}>\fR"]


def function_page(header, name, members, new_page):
    page = new_page(name)
    page.heading("NAME")
    page.add(roff.lines(rf"{safe(name)} \- {short(members[0])}"))
    page.heading("SYNOPSIS")
    page.add(include_rows(header))
    for member in members:
        page.add(declared(prototype(member)))
    for number, member in enumerate(members):
        say_function(page, member, number == 0)
    if not any(descriptions(member) or list(parameters(member, "param")) for member in members):
        page.heading("DESCRIPTION")
        page.add(roff.plain(f"Declared in {header.include}, whose page says what it is about."))
    for member in members[:1]:
        say_results(page, member)
    page.see_also([(header.page, 3), ("qlnutil", 3)])
    return page


def elements(page, node):
    """The members of a record or class, each with its type and what it is."""
    for member in node.iter("memberdef"):
        said = descriptions(member) or list(results(member)) or list(parameters(member, "param"))
        if member.get("prot") == "private" or not said:
            continue
        kind = member.get("kind")
        if kind == "variable":
            term = f"{safe(text_of(member.find('type')))} {bold(member.findtext('name'))}" \
                   f"{safe(member.findtext('argsstring') or '')}"
        elif kind == "enum":
            term = f"enum {bold(member.findtext('name'))}"
        elif kind == "function":
            term = safe(re.sub(r"\w+::(?=[~\w]+\(|operator)", "", prototype(member)))
        else:
            term = bold(member.findtext("name"))
        said = [" ".join(rows) for rows in descriptions(member) if not rows[0].startswith(".")]
        said += [", ".join(italic(n) for n in names) + ": " + text for names, _, text in parameters(member, "param")]
        said += ["Result: " + text for text in results(member)]
        page.add(roff.entry(term, *said))
        for value in member.findall("enumvalue"):
            page.add([".RS"] + roff.entry(bold(value.findtext("name")), one_line(value.find("briefdescription")) or
                                          one_line(value.find("detaileddescription")) or r"\&") + [".RE"])


def class_page(header, compound, new_page):
    name = compound.findtext("compoundname")
    page = new_page(name)
    page.heading("NAME")
    page.add(roff.lines(rf"{safe(name)} \- {short(compound)}"))
    page.heading("SYNOPSIS")
    page.add(include_rows(header))
    page.heading("DESCRIPTION")
    for tag in ("briefdescription", "detaileddescription"):
        for rows in blocks(compound.find(tag)):
            page.paragraph(rows)
    before = len(page.rows)
    page.heading("MEMBERS")
    elements(page, compound)
    if len(page.rows) == before + 1:
        page.rows.pop()
    page.see_also([(header.page, 3), ("qlnutil", 3)])
    return page


def header_page(header, new_page):
    page = new_page(header.page)
    page.heading("NAME")
    page.add(roff.lines(rf"{safe(header.page)} \- {short(header.compound)}"))
    page.heading("SYNOPSIS")
    page.add(include_rows(header))
    page.heading("DESCRIPTION")
    for tag in ("briefdescription", "detaileddescription"):
        for rows in blocks(header.compound.find(tag)):
            page.paragraph(rows)
    named = {}
    for member in header.functions:
        named.setdefault(function_name(member), member)
    if named or header.classes:
        page.heading("FUNCTIONS AND CLASSES")
    for name, member in named.items():
        page.add(roff.entry(rf"{bold(name)}(3)", short(member) + "."))
    for compound in header.classes:
        page.add(roff.entry(rf"{bold(compound.findtext('compoundname'))}(3)", short(compound) + "."))
    for compound in header.records:
        page.heading(compound.findtext("compoundname"))
        for rows in descriptions(compound):
            page.paragraph(rows)
        elements(page, compound)
    if header.others:
        page.heading("NAMES")
    for member in header.others:
        value = f" {safe(text_of(member.find('initializer')))}" if member.find("initializer") is not None else ""
        page.add(roff.entry(bold(member.findtext("name")) + value, *[" ".join(rows) for rows in descriptions(member)]))
        for number in member.findall("enumvalue"):
            page.add([".RS"] + roff.entry(bold(number.findtext("name")), one_line(number.find("briefdescription")) or
                                          one_line(number.find("detaileddescription")) or r"\&") + [".RE"])
    page.see_also([("qlnutil", 3)])
    return page


def function_name(member):
    return re.sub(r"^.* [*&]?", "", re.sub(r"\s*\(.*", "", member.findtext("definition")))


def overview(headers, new_page):
    page = new_page("qlnutil")
    page.heading("NAME")
    page.add(roff.lines(r"qlnutil \- video formats, transports, metadata and coded streams at the bit level"))
    page.heading("SYNOPSIS")
    page.add([r"\fB#include <qlnutil/qlnutil.h>\fR", ".HP 4"] +
             roff.lines(rf"{italic('cc')} {italic('host.c')} $(pkg\-config \-\-cflags \-\-libs qlnutil)"))
    page.heading("DESCRIPTION")
    for text in ("qlnutil is a library for professional video applications: capture, playout, transport, transcode, wrap. "
                 "libqlnutil stands on libkxutil (memory, files, the configuration store, diagnostics) and libkxtimecode "
                 "(timecode as text), for which a host may bring its own. libqlnmedia puts it to work on whole media files.",
                 "Results are 0 for success and negative for failure unless a page says otherwise. The caller owns every "
                 "record and buffer. Nothing throws across the C surface, nothing starts threads; calls on different "
                 "records may run at the same time. Diagnostics go through ErrOut to one sink, which a host sets with "
                 "kxSetDiagnosticSink. Streams come from strangers: no input makes a function leave the memory that its "
                 "arguments describe, loop without end, or take more than linear time."):
        page.paragraph(roff.plain(text))
    for library in ("qlnutil", "kxutil", "kxtimecode", "qlnmedia"):
        page.heading({"qlnutil": "HEADERS", "kxutil": "HEADERS OF LIBKXUTIL", "kxtimecode": "HEADERS OF LIBKXTIMECODE",
                      "qlnmedia": "HEADERS OF LIBQLNMEDIA"}[library])
        for header in headers:
            if header.library == library:
                page.add(roff.entry(f"{bold(header.page)}(3)", short(header.compound) + "."))
    page.see_also([("qlnmedia", 1)])
    return page


def read_headers(folder):
    index = ElementTree.parse(folder / "index.xml").getroot()
    compounds = [ElementTree.parse(folder / f"{entry.get('refid')}.xml").getroot().find("compounddef")
                 for entry in index.findall("compound")]
    headers = {}
    for compound in compounds:
        if compound.get("kind") == "file":
            headers[compound.find("location").get("file")] = Header(compound)
    seen = set()
    for compound in compounds:
        where = compound.find("location").get("file") if compound.find("location") is not None else None
        if compound.get("kind") in ("struct", "class") and where in headers and compound.get("prot") == "public":
            members = [member for member in compound.iter("memberdef")
                       if member.get("kind") == "function" and member.get("prot") != "private"]
            (headers[where].classes if members else headers[where].records).append(compound)
        if compound.get("kind") not in ("file", "namespace"):
            continue
        for member in compound.iter("memberdef"):
            place = member.find("location").get("file")
            if place not in headers or member.get("id") in seen or member.get("prot") == "private":
                continue
            seen.add(member.get("id"))
            header = headers[place]
            said = descriptions(member) or list(results(member))
            # Operators stand with their types.
            if member.get("kind") == "function" and "operator" not in member.findtext("name"):
                header.functions.append(member)
            elif said and not (member.get("kind") == "define" and member.findtext("name").endswith("_H")):
                header.others.append(member)
    return sorted(headers.values(), key=lambda header: (header.folder, header.name))


def main():
    folder, version, date, out = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3], pathlib.Path(sys.argv[4])
    headers = read_headers(folder)

    def new_page(name):
        return Page(name, 3, date, f"qlnutil {version}", "Library Functions Manual")

    overview(headers, new_page).write(out)
    for header in headers:
        if header.page == "qlnutil.h":
            continue
        header_page(header, new_page).write(out)
        for compound in header.classes:
            class_page(header, compound, new_page).write(out)
        named = {}
        for member in header.functions:
            named.setdefault(function_name(member), []).append(member)
        for name, members in named.items():
            function_page(header, name, members, new_page).write(out)


main()
