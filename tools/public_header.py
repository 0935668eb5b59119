"""What include/tarnquill.h declares: functions, callbacks, structures and constants, for the checks of
what a library exports and for the bindings of other languages."""
import dataclasses
import pathlib
import re

HEADER = pathlib.Path(__file__).resolve().parent.parent / "include" / "tarnquill.h"

# Sizes on 32-bit Windows. Every argument takes a multiple of 4 bytes on the stack.
SIZES = {
    "char": 1, "int8_t": 1, "uint8_t": 1, "short": 2, "int16_t": 2, "uint16_t": 2,
    "int": 4, "unsigned": 4, "long": 4, "int32_t": 4, "uint32_t": 4, "float": 4,
    "size_t": 4, "intptr_t": 4, "uintptr_t": 4, "ptrdiff_t": 4,
    "int64_t": 8, "uint64_t": 8, "double": 8,
}
NUMBER = r"-?(?:0x[0-9A-Fa-f]+|[0-9]+)"


@dataclasses.dataclass(frozen=True)
class Value:
    """A parameter, a field, or what a function returns."""
    type: str  # "int32_t", "img_view", "img_row_fn", "void"
    name: str = ""
    is_pointer: bool = False
    is_const: bool = False
    count: int = 0  # of a field that is an array


@dataclasses.dataclass(frozen=True)
class Function:
    name: str
    result: Value
    parameters: tuple
    convention: str = "stdcall"  # of callbacks also "cdecl"; on 32-bit Windows alone they differ


@dataclasses.dataclass
class Declarations:
    functions: dict = dataclasses.field(default_factory=dict)  # {name: Function}, as the rest
    callbacks: dict = dataclasses.field(default_factory=dict)
    structures: dict = dataclasses.field(default_factory=dict)  # {name: (Value, ...)}
    constants: dict = dataclasses.field(default_factory=dict)  # {name: int}
    complaints: list = dataclasses.field(default_factory=list)

    def stack_bytes(self, name):
        """Of the arguments on 32-bit Windows."""
        return sum(self._stack_bytes(parameter) for parameter in self.functions[name].parameters)

    def _stack_bytes(self, value):
        if value.is_pointer or value.type in self.callbacks:
            return 4
        return (SIZES.get(value.type, 0) + 3) // 4 * 4


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.DOTALL)
    return re.sub(r"//[^\n]*", " ", text)


def parse_value(text):
    """Of 'const int32_t* kernel'; None for what is not understood."""
    match = re.fullmatch(r"\s*(const\s+)?(?:struct\s+)?(\w+)\s*(\*?)\s*(\w*)\s*(?:\[\s*(\d+)\s*\])?\s*", text)
    if not match:
        return None
    const, kind, star, name, count = match.groups()
    return Value(kind, name, bool(star), bool(const), int(count or 0))


class Reader:
    def __init__(self, path):
        self.name = path.name
        self.text = without_comments(path.read_text())
        self.found = Declarations()

    def complain(self, text):
        self.found.complaints.append(f"{self.name}: {text}")

    def known(self, value):
        found = self.found
        return value and (value.type in SIZES or value.type in found.callbacks or value.is_pointer
                          and (value.type == "void" or value.type in found.structures))

    def parameters(self, name, text):
        values = []
        for part in text.split(",") if text.strip() not in ("", "void") else ():
            value = parse_value(part)
            if not self.known(value):
                self.complain(f"{name}: size of '{part.strip()}' is not known")
            else:
                values.append(value)
        return tuple(values)

    def add(self, kind, name, value):
        table = getattr(self.found, kind)
        if name in table:
            self.complain(f"{name} is declared twice")
        table[name] = value

    def read_constants(self):
        for body in re.findall(r"\benum\s*\{([^}]*)\}", self.text):
            value = -1
            for item in filter(str.strip, body.split(",")):
                match = re.fullmatch(rf"\s*(\w+)\s*(?:=\s*({NUMBER}))?\s*", item)
                if not match:
                    self.complain(f"constant '{item.strip()}' is not understood")
                    continue
                value = int(match[2], 0) if match[2] else value + 1
                self.add("constants", match[1], value)
        for name, value in re.findall(r"^#define (\w+) +(\S.*?)\s*$", self.text, re.MULTILINE):
            if re.fullmatch(NUMBER, value):
                self.add("constants", name, int(value, 0))
            elif name not in ("IMG_API", "IMG_CALL", "IMG_CB_STD", "IMG_CB_C"):
                self.complain(f"constant '{name}' is not understood")

    def read_callbacks(self):
        for result, convention, name, parameters in re.findall(
                r"\btypedef\s+(\w+)\s*\(\s*IMG_CB_(STD|C)\s*\*\s*(\w+)\s*\)\s*\(([^()]*)\)\s*;", self.text):
            self.add("callbacks", name, Function(name, Value(result), self.parameters(name, parameters),
                                                 "stdcall" if convention == "STD" else "cdecl"))

    def read_structures(self):
        for body, name in re.findall(r"\btypedef\s+struct\s*\w*\s*\{([^}]*)\}\s*(\w+)\s*;", self.text):
            fields = []
            for line in filter(str.strip, body.split(";")):
                first, *others = line.split(",")
                field = parse_value(first)
                if not self.known(field):
                    self.complain(f"{name}: field '{line.strip()}' is not understood")
                    continue
                fields.append(field)
                fields += [dataclasses.replace(field, name=other.strip()) for other in others]
            self.add("structures", name, tuple(fields))

    def read_functions(self):
        for result, name, parameters in re.findall(
                r"\bIMG_API\b([^;()]*?)\bIMG_CALL\s+(\w+)\s*\(([^()]*)\)\s*;", self.text):
            self.add("functions", name, Function(name, parse_value(result), self.parameters(name, parameters)))

    def count(self, kind, pattern):
        """A declaration that the expressions above do not understand must not slip through."""
        declared, understood = len(re.findall(pattern, self.text, re.MULTILINE)), len(getattr(self.found, kind))
        if declared != understood:
            self.complain(f"{declared} declarations of {kind}, but {understood} understood")


def read_header(path=HEADER):
    reader = Reader(path)
    reader.read_constants()
    reader.read_callbacks()
    reader.read_structures()
    reader.read_functions()
    reader.count("functions", r"^\s*IMG_API\b")
    reader.count("callbacks", r"\btypedef\b[^;{(]*\(")
    reader.count("structures", r"\btypedef\s+struct\b")
    return reader.found
