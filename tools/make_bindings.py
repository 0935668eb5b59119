#!/usr/bin/env python3
"""Writes the bindings of other languages: what is kept in bindings/, and beside it one generated file
for each language with everything that the public header declares.

    make_bindings.py OUT

    OUT/python/tarnquill/_native.py    ctypes, below the package tarnquill
    OUT/csharp/Native.cs               P/Invoke, below Tarnquill.Image
    OUT/vb6/tarnquill.bas              Declare lines, types and constants
    OUT/delphi/tarnquill.pas           a unit for Delphi and Free Pascal

tools/check_bindings.py compares the result with what a library exports.
"""
import pathlib
import re
import shutil
import sys

from public_header import HEADER, SIZES, read_header

SOURCES = HEADER.parent.parent / "bindings"
WRITTEN_BY = "Written by tools/make_bindings.py from include/tarnquill.h, which says what everything does."

# Pointers through which arrays come and go; the others are one value each.
ARRAYS = {"counts", "images", "kernel", "rects", "table", "tables", "values"}
# Untyped ones that are handed on and never looked into.
HANDLES = {"bitmap", "hdc", "save_context", "sink_context", "window"}


def lines_of(items, indent, width=100):
    """Comma separated and broken into lines."""
    line, result = indent, []
    for number, item in enumerate(items):
        text = item + (", " if number + 1 < len(items) else "")
        if len(line) + len(text.rstrip()) > width and line.strip():
            result.append(line.rstrip())
            line = indent
        line += text
    return "\n".join([*result, line.rstrip()])


# ---- Python ----

PYTHON_TYPES = {"char": "c_char", "size_t": "c_size_t", "intptr_t": "c_ssize_t", "void": "None",
                **{name: f"c_{name.removesuffix('_t')}" for name in SIZES if re.match(r"u?int\d", name)}}


def python_type(value):
    if value.is_pointer and value.type in ("void", "char"):
        return f"c_{value.type}_p"
    plain = PYTHON_TYPES.get(value.type, value.type)
    return f"POINTER({plain})" if value.is_pointer else plain


def write_python(header):
    yield f'"""{WRITTEN_BY}"""'
    yield ("import sys\nfrom ctypes import (CDLL, CFUNCTYPE, POINTER, Structure, c_char, c_char_p, c_int32, c_size_t,\n"
           "                    c_ssize_t, c_uint8, c_uint32, c_void_p)\nfrom typing import Any\n")
    yield ('if sys.platform == "win32":\n    from ctypes import WINFUNCTYPE as STDCALL, WinDLL as Library\n'
           "else:\n    STDCALL, Library = CFUNCTYPE, CDLL\n")
    yield "\n".join(f"{name} = {value}" for name, value in header.constants.items()) + "\n"
    for name, fields in header.structures.items():
        listed = [f'("{field.name}", {python_type(field)}{f" * {field.count}" if field.count else ""})'
                  for field in fields]
        yield f"\nclass {name}(Structure):\n    _fields_ = [\n{lines_of(listed, ' ' * 8)}]\n"
    yield ""
    for callback in header.callbacks.values():
        maker = "STDCALL" if callback.convention == "stdcall" else "CFUNCTYPE"
        types = [python_type(value) for value in (callback.result, *callback.parameters)]
        yield f"{callback.name} = {maker}({', '.join(types)})"
    yield "\n# {name: (result, arguments)}\nPROTOTYPES: dict[str, tuple[Any, list[Any]]] = {"
    for function in header.functions.values():
        arguments = ", ".join(python_type(value) for value in function.parameters)
        yield f'    "{function.name}": ({python_type(function.result)}, [{arguments}]),'
    yield ("}\n\n\ndef load(path: str) -> Any:\n    library = Library(path)\n"
           "    for name, (result, arguments) in PROTOTYPES.items():\n        function = getattr(library, name)\n"
           "        function.restype, function.argtypes = result, arguments\n    return library")


# ---- C# ----

CSHARP_TYPES = {"int32_t": "int", "uint32_t": "uint", "uint8_t": "byte", "char": "byte", "size_t": "UIntPtr",
                "intptr_t": "IntPtr"}


def csharp_name(name):
    return f"@{name}" if name in ("in", "out", "ref", "params", "object", "string", "event", "base") else name


def csharp_type(value, structures):
    plain = CSHARP_TYPES.get(value.type, value.type)
    if not value.is_pointer:
        return plain
    if value.type == "void":
        return "IntPtr"
    if value.type in structures:  # a class, so that null can be given
        return f"[In, Out] {plain}"
    if value.is_const or value.type == "char" or value.name in ARRAYS:
        return f"[In, Out] {plain}[]" if not value.is_const else f"{plain}[]"
    return f"out {plain}"


def csharp_parameters(function, structures):
    return ", ".join(f"{csharp_type(value, structures)} {csharp_name(value.name)}" for value in function.parameters)


def write_csharp(header):
    yield f"// {WRITTEN_BY}\n// Texts are bytes with a 0 at their end: Native.Text makes them."
    yield "using System;\nusing System.Runtime.InteropServices;\n\nnamespace Tarnquill\n{"
    for callback in header.callbacks.values():
        convention = "StdCall" if callback.convention == "stdcall" else "Cdecl"
        yield (f"    [UnmanagedFunctionPointer(CallingConvention.{convention})]\n    public delegate int "
               f"{callback.name}({csharp_parameters(callback, header.structures)});\n")
    for name, fields in header.structures.items():
        yield (f"    [StructLayout(LayoutKind.Sequential, CharSet = CharSet.Ansi)]\n"
               f"    public sealed class {name}\n    {{")
        for field in fields:
            if field.count:
                yield (f"        [MarshalAs(UnmanagedType.ByValTStr, SizeConst = {field.count})]\n"
                       f"        public string {field.name};")
            else:
                yield f"        public {CSHARP_TYPES[field.type]} {field.name};"
        yield "    }\n"
    yield '    public static class Native\n    {\n        public const string Library = "tarnquill";\n'
    yield ("        public static byte[] Text(string text)\n        {\n"
           '            return text == null ? null : System.Text.Encoding.UTF8.GetBytes(text + "\\0");\n        }\n')
    for name, value in header.constants.items():
        yield f"        public const int {name} = {value};"
    for function in header.functions.values():
        result = "IntPtr" if function.result.is_pointer else CSHARP_TYPES[function.result.type]
        yield (f"\n        [DllImport(Library, CallingConvention = CallingConvention.StdCall)]\n        public static "
               f"extern {result} {function.name}({csharp_parameters(function, header.structures)});")
    yield "    }\n}"


# ---- Visual Basic 6 ----

VB6_WORDS = {"in", "on", "option", "type", "write", "read", "seek", "name", "step", "date", "string", "error", "input",
             "next", "loop", "is", "like", "get", "put", "width", "lock", "text"}


def vb6_name(name):
    return f"{name}_" if name in VB6_WORDS else name


def vb6_parameter(value, structures):
    name = vb6_name(value.name)
    if value.type == "char" and value.is_pointer:
        return f"ByVal {name} As String"
    if not value.is_pointer or value.name in HANDLES:
        return f"ByVal {name} As Long"
    if value.type in structures and not value.is_const:
        return f"ByRef {name} As {value.type}"
    if value.type == "int32_t" and not value.is_const:
        return f"ByRef {name} As Long"
    return f"ByRef {name} As Any"  # ByVal 0& gives null, ByVal an address


def write_vb6(header):
    yield 'Attribute VB_Name = "Tarnquill"'
    yield f"' {WRITTEN_BY}"
    yield ("' As Any: a variable or the first element of an array, by reference; an address or null: ByVal address,\n"
           "' ByVal 0&. Callbacks that the header marks IMG_CB_STD may be given with AddressOf, others may not.\n"
           "Option Explicit\n")
    for name, value in header.constants.items():
        yield f"Public Const {name} As Long = {value}"
    for name, fields in header.structures.items():
        yield f"\nPublic Type {name}"
        for field in fields:
            room = f"(0 To {field.count - 1}) As Byte" if field.type == "char" else " As Long"
            yield f"    {vb6_name(field.name)}{room}"
        yield "End Type"
    yield ""
    for function in header.functions.values():
        listed = [vb6_parameter(value, header.structures) for value in function.parameters]
        head = f'Public Declare Function {function.name} Lib "tarnquill.dll" ('
        parameters = lines_of(listed, "    ", 96).replace("\n", " _\n") if listed else ""
        yield head + (f" _\n{parameters}" if listed else "") + ") As Long"


# ---- Pascal ----

PASCAL_TYPES = {"int32_t": "Integer", "uint32_t": "Cardinal", "uint8_t": "Byte", "char": "AnsiChar",
                "size_t": "TTqSize", "intptr_t": "TTqAddress"}
PASCAL_WORDS = {"in", "type", "string", "file", "label", "unit", "on", "out", "const", "var", "set", "to", "begin"}


def pascal_name(name):
    return f"{name}_" if name in PASCAL_WORDS else name


def pascal_type(value):
    if value.is_pointer:
        return "Pointer" if value.type == "void" else f"P{PASCAL_TYPES.get(value.type, value.type)}"
    return PASCAL_TYPES.get(value.type, value.type)


def pascal_parameters(function):
    return "; ".join(f"{pascal_name(value.name)}: {pascal_type(value)}" for value in function.parameters)


def write_pascal(header):
    yield f"{{ {WRITTEN_BY} }}\nunit tarnquill;\n"
    yield "{$IFDEF FPC}{$MODE DELPHI}{$PACKRECORDS C}{$ENDIF}\n\ninterface\n\nconst"
    yield ("  TarnquillLibrary = {$IFDEF MSWINDOWS}'tarnquill.dll'{$ELSE}'tarnquill'{$ENDIF};")
    for name, value in header.constants.items():
        yield f"  {name} = {value};"
    yield ("\ntype\n  TTqAddress = {$IFDEF FPC}PtrInt{$ELSE}{$IFDEF CPUX64}Int64{$ELSE}Integer{$ENDIF}{$ENDIF};\n"
           "  TTqSize = {$IFDEF FPC}PtrUInt{$ELSE}{$IFDEF CPUX64}UInt64{$ELSE}Cardinal{$ENDIF}{$ENDIF};")
    for name, fields in header.structures.items():
        yield f"  P{name} = ^{name};\n  {name} = record"
        for field in fields:
            kind = PASCAL_TYPES[field.type]
            room = f"array [0..{field.count - 1}] of {kind}" if field.count else kind
            yield f"    {pascal_name(field.name)}: {room};"
        yield "  end;"

    def declare(head, function, convention):
        other = "{$IFDEF MSWINDOWS}stdcall{$ELSE}cdecl{$ENDIF}" if convention == "stdcall" else "cdecl"
        parameters = pascal_parameters(function)
        return f"  {head}{f'({parameters})' if parameters else ''}: {pascal_type(function.result)}; {other};"
    for callback in header.callbacks.values():
        yield declare(f"{callback.name} = function", callback, callback.convention)
    yield ""
    for function in header.functions.values():
        yield declare(f"function {function.name}", function, "stdcall")[2:] + " external TarnquillLibrary;"
    yield "\nimplementation\n\nend."


FILES = {"python/tarnquill/_native.py": write_python, "csharp/Native.cs": write_csharp,
         "vb6/tarnquill.bas": write_vb6, "delphi/tarnquill.pas": write_pascal}


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    out = pathlib.Path(sys.argv[1])
    header = read_header()
    for complaint in header.complaints:
        print(complaint, file=sys.stderr)
    if header.complaints:
        return 1
    if SOURCES.is_dir():
        left_out = shutil.ignore_patterns("__pycache__", ".mypy_cache", "npm")
        shutil.copytree(SOURCES, out, dirs_exist_ok=True, ignore=left_out)
    for name, write in FILES.items():
        path = out / name
        path.parent.mkdir(parents=True, exist_ok=True)
        # Visual Basic reads no other ends of lines.
        path.write_text("\n".join(write(header)) + "\n", newline="\r\n" if path.suffix == ".bas" else "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
