"""Where a source can be mutated: reads it with clang's parser and gives back its places, each with the ways to change it."""
import re
from dataclasses import dataclass, field

from clang.cindex import CursorKind as K
from clang.cindex import Index, LinkageKind, StorageClass, TypeKind

STATEMENT, RETURN, NEGATION, COMPARISON, CONSTANT, LITERAL = range(6)  # outer ones first where they share a place
EDGES = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
FUNCTIONS = (K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION, K.FUNCTION_TEMPLATE)
STRINGS = re.compile(rb'(?:(?:"(?:\\.|[^"\\\n])*")\s*)+(?<!\s)$')
NUMBER = re.compile(rb"([0-9][0-9a-fA-Fx'.]*)[uUlL]*$")
CHARACTER = re.compile(rb"'(\\.|[^'\\\n])'$")


@dataclass
class Mutant:
    file: str
    operator: str
    offset: int
    line: int
    shown: str  # the changed line
    plain: tuple = ()  # start, end, new text: the change without a switch
    number: int = -1

    @property
    def key(self):
        return f"{self.operator} {self.offset}"


@dataclass
class Place:
    start: int
    end: int
    rank: int
    form: bytes  # what it becomes: @N the mutant's number, @I what stands there
    mutants: list = field(default_factory=list)
    name: str = ""  # of a constant
    fixed: bool = False  # the compiler must know it
    edge: tuple = ()  # of a comparison: the operator and the other one


def other(c):
    if c.isdigit():
        return b"8" if c == b"9" else bytes([c[0] + 1])
    if c in b"xX":
        return b"y"
    return b"x" if c.isalpha() else b"-" if c == b"_" else b"_"


def other_digit(text, at):
    """Another last digit of a number; it stays one of its base."""
    digit = text[at:at + 1]
    if text[:1] == b"0" and text[1:2] not in b"xX.":
        return b"6" if digit == b"7" else other(digit)
    return b"E" if digit in b"fF" else bytes([digit[0] + 1]) if digit.isalpha() else other(digit)


def positions_in_text(text):
    """The first and the last character of each literal that is no escape or conversion."""
    found = []
    for literal in re.finditer(rb'"((?:\\.|[^"\\])*)"', text):
        units = []
        for unit in re.finditer(rb"\\.|%[-0-9.*]*[lz]*[a-zA-Z%]|(.)", literal.group(1)):
            if unit.group(1):
                units.append(literal.start(1) + unit.start())
        found += units if len(units) < 2 else [units[0], units[-1]]
    return found


class Finder:
    def __init__(self, name, path, arguments):
        self.name = name
        with open(path, "rb") as file:
            self.text = file.read()
        self.path = path
        unit = Index.create().parse(path, args=arguments)
        errors = [d for d in unit.diagnostics if d.severity >= 3]
        if errors:
            raise SystemExit(f"{name}: {errors[0]}")
        self.places = {}
        self.negated = set()  # the spans that are negated or returned as the other
        self.needed = set()  # names that the compiler must know the value of
        self.constants = {}  # name -> what stands in its declaration
        self.collect(unit.cursor, None, False)
        self.collect(unit.cursor, None, True)

    # --- Places

    def add(self, start, end, rank, form, operator, changes, name=""):
        """`changes`: the new texts for [start, end), or (start, end, text) for a part of it."""
        place = self.places.setdefault((start, end, rank), Place(start, end, rank, form, [], name))
        for change in changes:
            part = change if isinstance(change, tuple) else (start, end, change)
            offset = part[0]
            if any(m.offset == offset and m.operator == operator for m in place.mutants):
                continue
            mutant = Mutant(self.name, operator, offset, self.text.count(b"\n", 0, offset) + 1, self.shown(part), part)
            place.mutants.append(mutant)

    def shown(self, part):
        start, end, new = part
        begin = self.text.rfind(b"\n", 0, start) + 1
        changed = self.text[begin:start] + (new or b"") + self.text[end:]
        stop = changed.find(b"\n", start - begin + len(new or b""))
        return " ".join(changed[:stop].decode().split())

    def span(self, cursor):
        if cursor.extent.start.file is None or cursor.extent.start.file.name != self.path:
            return None
        return cursor.extent.start.offset, cursor.extent.end.offset

    # --- Operators

    def negate(self, cursor):
        span = self.span(cursor)
        if span is None or cursor.type.kind == TypeKind.VOID:
            return
        text = self.text[slice(*span)]
        if text in (b"true", b"false", b""):
            return
        plain = text[1:] if re.match(rb"!\w[\w.>()-]*$", text) else b"!(" + text + b")"
        self.add(*span, NEGATION, b"(mutant(@N) != static_cast<bool>(@I))", "negated", [plain])

    def negate_declared(self, variable):
        span = self.span(variable)
        if span is None:
            return
        name = variable.spelling.encode()
        form = b"@I; mutant(@N) != static_cast<bool>(%s)" % name
        self.add(*span, NEGATION, form, "negated", [self.text[slice(*span)] + b"; !" + name])

    def compare(self, cursor, left, right):
        span, left, right = self.span(cursor), self.span(left), self.span(right)
        if None in (span, left, right) or left[1] > right[0]:
            return
        between = self.text[left[1]:right[0]]
        operator = between.strip().decode()
        # A condition that is negated, or a truth that is returned as the other, is this mutant already.
        if operator not in EDGES or (operator in ("==", "!=") and span in self.negated):
            return
        new = EDGES[operator].encode()
        at = left[1] + between.index(operator.encode())
        length = len(operator)

        self.add(*span, COMPARISON, b"", "edge", [(at, at + length, new)])
        self.places[(*span, COMPARISON)].edge = operator.encode(), new
        # What stands around it grows: the operator is found by its mark.
        self.places[(at, at + length, LITERAL)] = Place(at, at + length, LITERAL, b"\0")

    def remove(self, cursor):
        if not cursor.kind.is_expression():
            return
        span = self.span(cursor)
        if span is None or re.match(rb"\(void\)\s*\w+$", self.text[slice(*span)]):
            return
        self.remove_text(span)

    def remove_text(self, span):
        semicolon = re.compile(rb"\s*;").match(self.text, span[1])
        if not semicolon:
            return
        end = semicolon.end()
        shown = b"/* " + self.text[span[0]:end].split(b"\n")[0] + b" */"
        self.add(span[0], end, STATEMENT, b"{ if (!mutant(@N)) { @I } }", "removed", [shown])

    def change_return(self, cursor, function):
        span = self.span(cursor)
        if span is None:
            return
        children = list(cursor.get_children())
        if not children:
            self.remove_text(span)
            return
        value = self.span(children[0])
        result = function.result_type if function is not None else children[0].type
        if value is None or result.kind in (TypeKind.VOID, TypeKind.LVALUEREFERENCE, TypeKind.RVALUEREFERENCE):
            return
        text = self.text[slice(*value)]
        if re.match(rb"([0-9]+|true|false|nullptr|std::nullopt|\{\}|\"\")$", text):
            return
        spelled = result.get_canonical().spelling.replace("(anonymous namespace)::", "").encode()
        # A local variable moves out of the function, as it does without a switch.
        form = b"mutant_return<%s>(@N, std::move(@I))" if self.is_local(children[0]) else b"mutant_return<%s>(@N, @I)"
        self.add(*value, RETURN, form % spelled, "returned", [b"other(" + text + b")"])

    @staticmethod
    def is_local(cursor):
        children = list(cursor.get_children())
        while cursor.kind != K.DECL_REF_EXPR and len(children) == 1:
            cursor = children[0]
            children = list(cursor.get_children())
        variable = cursor.referenced if cursor.kind == K.DECL_REF_EXPR else None
        return (variable is not None and variable.kind == K.VAR_DECL and variable.linkage == LinkageKind.NO_LINKAGE
                and variable.storage_class == StorageClass.NONE and variable.type.kind in (TypeKind.RECORD, TypeKind.ELABORATED,
                                                                                           TypeKind.TYPEDEF))

    def literal(self, cursor, fixed=False):
        span = self.span(cursor)
        if span is None:
            return
        start, end = span
        text = self.text[start:end]
        if cursor.kind == K.STRING_LITERAL and STRINGS.match(text):
            at = positions_in_text(text)
        elif cursor.kind == K.CHARACTER_LITERAL and CHARACTER.match(text):
            at = [len(text) - 2]
            if text[1:2] == b"\\":
                at = []
        elif cursor.kind in (K.INTEGER_LITERAL, K.FLOATING_LITERAL) and NUMBER.match(text):
            at = NUMBER.match(text).end(1) - 1
            self.choose(start, end, [(start + at, start + at + 1, other_digit(text, at))], fixed)
            return
        elif cursor.kind == K.CXX_BOOL_LITERAL_EXPR and text in (b"true", b"false"):
            self.choose(start, end, [(start, end, b"false" if text == b"true" else b"true")], fixed)
            return
        else:
            return
        self.choose(start, end, [(start + p, start + p + 1, other(text[p:p + 1])) for p in at], fixed)

    def choose(self, start, end, changes, fixed):
        if not changes:
            return
        self.add(start, end, LITERAL, b"", "literal", changes)
        self.places[(start, end, LITERAL)].fixed = fixed

    def constant(self, cursor):
        """A constant becomes a variable, a function that a compiler can run one that it cannot, where nothing needs it so."""
        span = self.span(cursor)
        if span is None:
            return
        head = re.compile(rb"constexpr\b").search(self.text, *span)
        if not head or re.search(rb"[={(]", self.text[span[0]:head.start()]):
            return
        start, end, new = head.start(), head.end(), b"const"
        if cursor.kind in FUNCTIONS:
            new = b"inline"
        else:
            array = re.compile(rb"constexpr char (k\w+)\[\] =(?=\s*\")").match(self.text, start)
            if array and self.name.endswith(".h"):
                self.needed.add(cursor.spelling)  # the tests' objects know it as an array
            elif array:
                end, new = array.end(), b"const auto &" + array.group(1) + b" ="
            elif re.match(rb"constexpr const char \*|constexpr auto", self.text[start:start + 30]):
                new = b"const" if self.text[end:].startswith(b" auto") else b""
        self.places[(start, end, CONSTANT)] = Place(start, end, CONSTANT, new, [], cursor.spelling)
        self.constants[cursor.spelling] = span

    # --- The way through the tree

    def collect(self, cursor, function, compare, fixed=False):
        kind = cursor.kind
        children = list(cursor.get_children())
        if kind == K.TRANSLATION_UNIT:
            children = [c for c in children if c.location.file is not None and c.location.file.name == self.path]
        if kind == K.STATIC_ASSERT:
            fixed = True
        if fixed and kind == K.CALL_EXPR and cursor.spelling == "size":
            return  # of an array: whatever is in it
        if fixed and kind == K.DECL_REF_EXPR:
            self.needed.add(cursor.spelling)
        if kind in FUNCTIONS:
            function = cursor
        if kind == K.LAMBDA_EXPR:
            function = None
        if compare and not fixed:
            self.comparisons(cursor, kind, children)
        elif compare:
            pass
        elif fixed and kind != K.STATIC_ASSERT:
            self.literal(cursor, fixed)
        elif not fixed:
            self.operators(cursor, kind, children, function)
        for child in children:
            self.collect(child, function, compare, fixed or self.is_fixed(child, cursor, children))

    def is_fixed(self, child, parent, children):
        if parent.kind == K.ENUM_CONSTANT_DECL or (parent.kind == K.CASE_STMT and child == children[0]):
            return True
        span = self.span(child)
        bounded = parent.kind in (K.VAR_DECL, K.FIELD_DECL, K.PARM_DECL, K.TYPEDEF_DECL, K.TYPE_ALIAS_DECL)
        return bounded and span is not None and self.text[:span[0]].rstrip().endswith((b"[", b"<"))

    def comparisons(self, cursor, kind, children):
        if kind == K.BINARY_OPERATOR and len(children) == 2:
            self.compare(cursor, *children)
        if kind == K.CALL_EXPR and cursor.spelling.startswith("operator") and len(children) == 3:
            self.compare(cursor, children[0], children[2])

    def operators(self, cursor, kind, children, function):
        if kind in (K.VAR_DECL,) or kind in FUNCTIONS:
            self.constant(cursor)
        for condition in self.conditions(cursor, kind, children):
            if condition.kind == K.VAR_DECL:
                self.negate_declared(condition)
                continue
            self.negate(condition)
            self.negated.add(self.span(condition))
        if kind == K.RETURN_STMT:
            self.change_return(cursor, function)
            if children:
                self.negated.add(self.span(children[0]))
        if kind in (K.BREAK_STMT, K.CONTINUE_STMT) and self.span(cursor):
            self.remove_text(self.span(cursor))
        for child in self.statements(kind, children):
            self.remove(child)
        if not children or kind in (K.STRING_LITERAL,):
            self.literal(cursor)

    def statements(self, kind, children):
        if kind == K.COMPOUND_STMT:
            return children
        if kind == K.IF_STMT:
            return [c for c in children[1:] if self.after_condition(c, children)]
        if kind in (K.WHILE_STMT, K.FOR_STMT, K.CXX_FOR_RANGE_STMT, K.CASE_STMT, K.DEFAULT_STMT):
            return children[-1:]
        return children[:1] if kind == K.DO_STMT else []

    @staticmethod
    def after_condition(child, children):
        first = 1 if children[0].kind != K.VAR_DECL else 2
        return child in children[first:]

    def conditions(self, cursor, kind, children):
        if kind == K.IF_STMT:
            span = self.span(cursor)
            if span is None or re.match(rb"if\s+constexpr", self.text[span[0]:]):
                return []
            first = 1 if children[0].kind == K.DECL_STMT else 0  # "if (int x = f(); x > 1)"
            return children[first:first + 1]
        if kind == K.WHILE_STMT:
            return children[:1] if children[0].kind != K.VAR_DECL else []
        if kind == K.DO_STMT:
            return children[1:2]
        if kind == K.CONDITIONAL_OPERATOR:
            return children[:1]
        if kind == K.FOR_STMT:
            return self.for_condition(cursor, children)
        if kind == K.BINARY_OPERATOR and len(children) == 2:
            left, right = self.span(children[0]), self.span(children[1])
            if left and right and self.text[left[1]:right[0]].strip() in (b"&&", b"||"):
                return children
        return []

    def for_condition(self, cursor, children):
        """The child between the first and the second semicolon of the head."""
        span = self.span(cursor)
        if span is None:
            return []
        depth, semicolons = 0, []
        for at in range(span[0], span[1]):
            c = self.text[at:at + 1]
            depth += (c in b"([{") - (c in b")]}")
            if c == b";" and depth == 1:
                semicolons.append(at)
            if len(semicolons) == 2:
                break
        inside = [c for c in children if self.span(c) and semicolons[0] < self.span(c)[0] and self.span(c)[1] <= semicolons[1]]
        return inside[:1]


def switched(text, place, inner, on):
    """What stands at the place, `inner` being that with the switches inside it."""
    if place.edge:
        usual, other_edge = inner.replace(b"\0", place.edge[0]), inner.replace(b"\0", place.edge[1])
        return b"(mutant(%d) ? (%s) : (%s))" % (on[0].number, other_edge, usual) if on else usual
    if place.rank == LITERAL and place.mutants:
        chosen = text[place.start:place.end]
        for mutant in reversed(on):
            first, last, new = mutant.plain
            changed = text[place.start:first] + new + text[last:place.end]
            chosen = b"(mutant(%d) ? %s : %s)" % (mutant.number, changed, chosen)
        return chosen
    if place.mutants:
        return place.form.replace(b"@N", b"%d" % on[0].number).replace(b"@I", inner) if on else inner
    return place.form


def render(text, places, on, kept):
    """The source with a switch for each mutant whose number is in `on`; constants in `kept` stay what they are."""
    ordered = sorted(places.values(), key=lambda p: (p.start, -p.end, p.rank))

    def part(start, end, index):
        out, at = [], start
        while index < len(ordered) and ordered[index].start < end:
            place = ordered[index]
            if place.start < at or place.end > end:
                index += 1  # overlaps what is not around it: left out
                continue
            inner, following = part(place.start, place.end, index + 1)
            if place.name and place.name in kept:
                inner = text[place.start:place.end]
            else:
                inner = switched(text, place, inner, [m for m in place.mutants if m.number in on])
            out += [text[at:place.start], inner]
            at, index = place.end, following
        return b"".join(out) + text[at:end], index

    return part(0, len(text), 0)[0]
