"""Finds the mutants of a C++ source by clang's tree, and writes the source with all of them behind a run-time switch."""
import bisect
import subprocess
from dataclasses import dataclass, field

from clang.cindex import Config, CursorKind as K, Index, TokenKind, TranslationUnit, TypeKind

Config.set_library_file("/usr/lib/llvm-14/lib/libclang-14.so.1")

OPERATORS = {"<": ("Lt", "<="), "<=": ("Le", "<"), ">": ("Gt", ">="), ">=": ("Ge", ">"), "==": ("Eq", "!="),
             "!=": ("Ne", "=="), "+": ("Add", "-"), "-": ("Sub", "+"), "*": ("Mul", "+"), "/": ("Div", "*"),
             "%": ("Mod", "/"), "<<": ("Shl", ">>"), ">>": ("Shr", "<<"), "&": ("And", "|"), "|": ("Or", "&"),
             "^": ("Xor", "&")}
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.FUNCTION_TEMPLATE, K.CONVERSION_FUNCTION}
CLOSED = {K.STATIC_ASSERT, K.ENUM_DECL, K.TYPEDEF_DECL, K.TYPE_ALIAS_DECL, K.CXX_UNARY_EXPR, K.OVERLOADED_DECL_REF,
          K.TEMPLATE_TYPE_PARAMETER, K.TEMPLATE_NON_TYPE_PARAMETER, K.TYPE_REF, K.TEMPLATE_REF, K.USING_DECLARATION,
          K.TYPE_ALIAS_TEMPLATE_DECL, K.SIZE_OF_PACK_EXPR}
# Kinds of clang::Type that a switch function takes by value.
SCALARS = {TypeKind.BOOL, TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG,
           TypeKind.ULONGLONG, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG,
           TypeKind.LONGLONG, TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.ENUM, TypeKind.POINTER, TypeKind.NULLPTR,
           TypeKind.DEPENDENT, TypeKind.UINT128, TypeKind.INT128, TypeKind.UNEXPOSED, TypeKind.CONSTANTARRAY}


@dataclass
class Mutant:
    """One change. edits: insertions (offset, order, text) and replacements that put it behind the switch, with {} for
    its number; plain: (begin, end, text) that makes it for good. switched is False where no switch can stand."""
    path: str
    line: int
    column: int
    what: str
    code: str
    plain: tuple
    edits: list = field(default_factory=list)
    switched: bool = True
    compileTime: bool = False
    number: int = 0


class Finder:
    def __init__(self, path, arguments):
        self.path = path
        self.text = open(path, "rb").read()
        resources = subprocess.run(["clang-14", "-print-resource-dir"], capture_output=True, text=True).stdout.strip()
        self.unit = Index.create().parse(
            path, ["-x", "c++", "-std=c++20", "-resource-dir", resources, *arguments],
            options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d for d in self.unit.diagnostics if d.severity >= 3]
        if errors:
            raise RuntimeError(f"{path}: {errors[0]}")
        self.macros = sorted((c.extent.start.offset, c.extent.end.offset) for c in self.unit.cursor.get_children()
                             if c.kind == K.MACRO_INSTANTIATION and self.Mine(c))
        self.mutants = []
        self.seen = set()
        for cursor in self.unit.cursor.get_children():
            if self.Mine(cursor) and not cursor.kind.is_preprocessing():
                self.Visit(cursor, 0, False, False)

    # ---- places ----

    def Mine(self, cursor):
        return cursor.location.file is not None and cursor.location.file.name == self.path

    def Range(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def InMacro(self, begin, end):
        """Whether a macro's expansion lies across the place or around it."""
        at = bisect.bisect_right(self.macros, (begin, 1 << 40)) - 1
        return any(b < end and begin < e and not (b >= begin and e <= end) or (b, e) == (begin, end)
                   for b, e in self.macros[max(at - 1, 0):at + 3])

    def Line(self, offset):
        return self.text.count(b"\n", 0, offset) + 1

    def Put(self, begin, end, what, replacement, edits, constant, compileTime):
        if (begin, end, what) in self.seen or self.InMacro(begin, end):
            return
        self.seen.add((begin, end, what))
        lineBegin = self.text.rfind(b"\n", 0, begin) + 1
        lineEnd = self.text.find(b"\n", begin)
        self.mutants.append(Mutant(self.path, self.Line(begin), begin - lineBegin + 1, what,
                                   self.text[lineBegin:lineEnd].decode().strip(),
                                   (begin, end, replacement.encode()), edits, not constant, compileTime))

    # ---- the tree ----

    def Visit(self, cursor, depth, constant, compileTime):
        kind = cursor.kind
        if kind in CLOSED or kind.is_attribute() or not self.Mine(cursor):
            return
        children = [c for c in cursor.get_children()]
        begin, end = self.Range(cursor)
        if kind in FUNCTIONS:
            head = self.text[begin:self.BodyBegin(cursor)].split()
            constant = constant or b"consteval" in head
            compileTime = compileTime or b"constexpr" in head or b"consteval" in head
            children = [c for c in children if c.kind not in (K.TYPE_REF, K.NAMESPACE_REF, K.TEMPLATE_REF)]
        elif kind in (K.VAR_DECL, K.FIELD_DECL, K.PARM_DECL):
            start = self.InitBegin(cursor)
            if start is None:
                return
            children = [c for c in children if c.extent.start.offset >= start]
            if kind != K.PARM_DECL:
                constant = constant or self.IsConstantVariable(cursor, children)
        elif kind == K.CASE_STMT:
            children = children[1:]
        elif kind == K.DECL_REF_EXPR:
            self.Reference(cursor, depth, constant, compileTime)
            return
        elif kind == K.MEMBER_REF_EXPR:
            children = [c for c in children if c.extent.start.offset <= begin][:1]
        elif kind == K.IF_STMT and self.text[begin:begin + 20].split(b"(")[0].split() == [b"if", b"constexpr"]:
            children = children[1:]
        self.Own(cursor, children, depth, constant, compileTime)
        for child in children:
            self.Visit(child, depth + 8, constant, compileTime)

    def BodyBegin(self, cursor):
        for child in cursor.get_children():
            if child.kind == K.COMPOUND_STMT:
                return child.extent.start.offset
        return cursor.extent.end.offset

    def InitBegin(self, cursor):
        """Where a declaration's initialiser begins: behind its name and array bounds; None without one."""
        name, end = cursor.location.offset + len(cursor.spelling), cursor.extent.end.offset
        depth = 0
        for at in range(name, end):
            byte = self.text[at:at + 1]
            if byte in b"[":
                depth += 1
            elif byte in b"]":
                depth -= 1
            elif depth == 0 and (byte == b"=" or byte in b"{(" and cursor.kind != K.PARM_DECL):
                return at
        return None

    def IsConstantVariable(self, cursor, children):
        head = self.text[cursor.extent.start.offset:cursor.location.offset].split()
        if b"constexpr" in head or b"constinit" in head or b"static" in head:
            return True
        if cursor.semantic_parent is not None and cursor.semantic_parent.kind in (K.NAMESPACE, K.TRANSLATION_UNIT):
            return True
        canonical = cursor.type.get_canonical()
        return canonical.is_const_qualified() and not any(self.MayVary(c) for c in children)

    def MayVary(self, cursor):
        for c in cursor.walk_preorder():
            if c.kind in (K.MEMBER_REF_EXPR, K.CXX_THIS_EXPR, K.LAMBDA_EXPR):
                return True
            if c.kind == K.DECL_REF_EXPR and c.referenced is not None:
                if c.referenced.kind == K.PARM_DECL:
                    return True
                if c.referenced.kind == K.VAR_DECL and not c.referenced.type.get_canonical().is_const_qualified():
                    return True
                if c.referenced.kind == K.VAR_DECL and any(self.MayVary(i) for i in c.referenced.get_children()):
                    return True
        return False

    # ---- what a cursor itself gives ----

    def Own(self, cursor, children, depth, constant, compileTime):
        kind = cursor.kind
        begin, end = self.Range(cursor)
        if kind == K.BINARY_OPERATOR and len(children) == 2:
            self.Binary(cursor, children, depth, constant, compileTime)
        elif kind == K.UNARY_OPERATOR and len(children) == 1:
            self.Unary(begin, end, children[0], depth, constant, compileTime)
        elif kind in (K.INTEGER_LITERAL, K.FLOATING_LITERAL, K.CHARACTER_LITERAL):
            self.Wrap(begin, end, "plus one", f"({self.text[begin:end].decode()} + 1)", "qlnm::PlusOne({}, ", ")",
                      depth, constant, compileTime)
        elif kind == K.CXX_BOOL_LITERAL_EXPR:
            self.Wrap(begin, end, "flipped", f"(!{self.text[begin:end].decode()})", "qlnm::Flip({}, ", ")", depth,
                      constant, compileTime)
        elif kind in (K.IF_STMT, K.WHILE_STMT, K.CONDITIONAL_OPERATOR, K.DO_STMT, K.FOR_STMT):
            self.Condition(cursor, children, depth, constant, compileTime)
        if kind in (K.COMPOUND_STMT, K.IF_STMT, K.WHILE_STMT, K.FOR_STMT, K.DO_STMT, K.CASE_STMT, K.DEFAULT_STMT,
                    K.CXX_FOR_RANGE_STMT):
            bodies = children if kind == K.COMPOUND_STMT else children[-2:] if kind == K.IF_STMT else children[-1:]
            for child in bodies:
                self.Statement(child, depth, constant, compileTime)

    def Wrap(self, begin, end, what, plain, opening, closing, depth, constant, compileTime):
        self.Put(begin, end, what, plain, [(begin, (1, depth), opening), (end, (0, -depth), closing)], constant,
                 compileTime)

    def Binary(self, cursor, children, depth, constant, compileTime):
        left, right = children
        leftEnd, rightBegin = self.Range(left)[1], self.Range(right)[0]
        between = self.text[leftEnd:rightBegin].decode()
        token = between.split("//")[0].strip()
        at = leftEnd + between.find(token)
        if token in ("&&", "||"):
            for side in children:
                inner = list(side.get_children())
                if side.kind == K.BINARY_OPERATOR and len(inner) == 2 and token in self.text[
                        inner[0].extent.end.offset:inner[1].extent.start.offset].decode():
                    continue
                b, e = self.Range(side)
                forced, opening = ("true", "(qlnm::On({}) || (") if token == "&&" else ("false", "(!qlnm::On({}) && (")
                self.Wrap(b, e, f"operand {forced}", forced, opening, "))", depth + 4, constant, compileTime)
            return
        if token not in OPERATORS or any(c.type.get_canonical().kind not in SCALARS for c in children):
            return
        if token in "+-" and right.type.get_canonical().kind == TypeKind.POINTER:
            return
        function, mutated = OPERATORS[token]
        begin, end = self.Range(cursor)
        edits = [(begin, (1, depth), f"qlnm::{function}({{}}, ("), (at, (2, len(token)), "), ("),
                 (end, (0, -depth), "))")]
        if self.InMacro(at, at + len(token)):
            return
        plain = self.text[begin:at].decode() + mutated + self.text[at + len(token):end].decode()
        self.Put(begin, end, f"{token} to {mutated}", plain, edits, constant, compileTime)

    def Unary(self, begin, end, operand, depth, constant, compileTime):
        sign = self.text[begin:begin + 1].decode()
        inside = self.text[operand.extent.start.offset:end].decode()
        if operand.type.get_canonical().kind not in SCALARS or operand.extent.start.offset == begin:
            return
        if sign == "!":
            self.Wrap(begin, end, "without !", f"(!!({inside}))", "(qlnm::On({}) != (", "))", depth, constant,
                      compileTime)
        elif sign in "-~" and self.text[begin:begin + 2] != b"--":
            name = "Neg" if sign == "-" else "Not"
            self.Put(begin, end, f"without {sign}", f"({inside})",
                     [(begin, (2, 1), f"qlnm::{name}({{}}, "), (end, (0, -depth), ")")], constant, compileTime)

    def Condition(self, cursor, children, depth, constant, compileTime):
        kind = cursor.kind
        forced = ["true", "false"] if kind in (K.IF_STMT, K.CONDITIONAL_OPERATOR) else ["false"]
        if kind == K.FOR_STMT:
            body = children[-1].extent.start.offset if children else 0
            head = self.text[cursor.extent.start.offset:body]
            first = head.find(b";") + cursor.extent.start.offset
            second = self.text.find(b";", first + 1)
            inside = [c for c in children if first < c.extent.start.offset and c.extent.end.offset <= second]
            condition = inside[0] if inside else None
        else:
            condition = (children[-1] if kind == K.DO_STMT else children[0]) if children else None
        if condition is None or condition.kind in (K.DECL_STMT, K.VAR_DECL):
            return
        if kind == K.IF_STMT and self.text[cursor.extent.start.offset:condition.extent.start.offset].split() not in (
                [b"if", b"("],  [b"if("]):
            return
        begin, end = self.Range(condition)
        for way in forced:
            opening = "(qlnm::On({}) || (" if way == "true" else "(!qlnm::On({}) && ("
            self.Wrap(begin, end, f"condition {way}", way, opening, "))", depth + (2 if way == "true" else 3), constant,
                      compileTime)

    def Statement(self, cursor, depth, constant, compileTime):
        kind = cursor.kind
        begin, end = self.Range(cursor)
        if kind in (K.BREAK_STMT, K.CONTINUE_STMT):
            pass
        elif kind == K.RETURN_STMT:
            if any(True for _ in cursor.get_children()):
                return
        elif kind == K.BINARY_OPERATOR:
            pass  # an assignment
        elif kind not in (K.CALL_EXPR, K.COMPOUND_ASSIGNMENT_OPERATOR, K.UNARY_OPERATOR, K.UNEXPOSED_EXPR):
            return
        semicolon = self.text.find(b";", end)
        if semicolon < 0 or self.text[end:semicolon].strip() != b"":
            return
        self.Put(begin, semicolon + 1, "left out", ";",
                 [(begin, (1, depth - 4), "{{ if (!qlnm::On({})) "), (semicolon + 1, (0, -depth + 4), " }}")], constant,
                 compileTime)

    def Reference(self, cursor, depth, constant, compileTime):
        target = cursor.referenced
        if target is None or cursor.type.get_canonical().kind not in SCALARS - {
                TypeKind.POINTER, TypeKind.DEPENDENT, TypeKind.UNEXPOSED, TypeKind.CONSTANTARRAY, TypeKind.NULLPTR}:
            return
        if target.kind == K.VAR_DECL:
            first = target.extent.start.offset
            try:
                text = open(target.location.file.name, "rb").read()[first:target.location.offset]
            except OSError:
                return
            if b"constexpr" not in text.split():
                return
        elif target.kind != K.ENUM_CONSTANT_DECL:
            return
        begin, end = self.Range(cursor)
        if self.text[begin - 1:begin] == b"&" or self.text[begin:end].strip() == b"":
            return
        if self.text[begin - 1:begin] == b"<" and self.text[end:end + 1] in (b">", b","):
            constant = True  # an argument of a template
        code = self.text[begin:end].decode()
        cast = f"static_cast<decltype({code})>({code} + 1)"
        if target.kind == K.ENUM_CONSTANT_DECL:
            cast = f"static_cast<decltype({code})>(static_cast<long>({code}) + 1)"
        self.Wrap(begin, end, "plus one", cast, "qlnm::PlusOne({}, ", ")", depth, constant, compileTime)


def Instrumented(text, mutants):
    """The source with the given mutants behind the switch. Lines stay where they are."""
    edits = []
    for mutant in mutants:
        for offset, order, inserted in mutant.edits:
            edits.append((offset, order, inserted.format(mutant.number)))
    # Closings come first at a place, the innermost in front; then openings, the outermost in front; then operators.
    edits.sort(key=lambda e: (e[0], e[1][0], e[1][1]))
    out, at = [], 0
    for offset, order, inserted in edits:
        out += [text[at:offset], inserted.encode()]
        at = offset + (order[1] if order[0] == 2 else 0)
    return b"".join(out) + text[at:]
