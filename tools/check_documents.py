#!/usr/bin/env python3
"""Checks that the documents say what is so: every block of code in them is compiled, configured or run,
with the installed program and library and with files made for it; so is the example in the help of
every command. Links lead somewhere, and names of the interface and of options exist.

    check_documents.py BUILD [DOCUMENT...]

A block is run unless the line before it is a comment of this kind, which readers do not see:

    <!-- not run: installs packages -->

Of such a block its syntax is checked, and that the files of this repository that it names exist.
"""
import concurrent.futures
import dataclasses
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import format_tables
import program_help

ROOT = pathlib.Path(__file__).resolve().parent.parent
SECONDS = 120  # for a block
FENCE = re.compile(r"^(?P<indent> *)```(?P<language>\S*)\n(?P<code>.*?)^(?P=indent)```$", re.MULTILINE | re.DOTALL)
NOT_RUN = re.compile(r"<!-- not run: (.+?) -->\n\s*\Z")
NOT_CODE = {"text", "json"}
PRELUDE = "#include <stdio.h>\n#include <stdlib.h>\n#include <string.h>\n#include <tarnquill.h>\n"
CMAKE_PRELUDE = """cmake_minimum_required(VERSION 3.25)
project(documented C)
add_executable(program convert.c)
"""
# What samples are made of: files that make_scene draws, and some of the tests'.
SAMPLES = """
set -e
run() { tarnquill "$1" -q "${@:2}"; }
run convert page-1.bmp scan.tif --gray --size 50% --rotate 1.3
run convert photo-24.bmp photo.jpg --size 600
run convert photo.jpg photo.bmp && run convert photo.jpg in.png && run convert scan.tif scan.jpg
run convert scene-555.bmp in.bmp && run convert in.bmp in.jpg
for n in 1 2 3; do run convert page-1.bmp $n.tif --size 25% --filter mono; run convert photo.bmp $n.bmp --size 200; done
run convert 1.tif fax.tif --code tiff-g4
run convert 1.tif 2.tif 3.tif faxes.tif --code tiff-g4
run convert photo.bmp few.bmp --colors 16
run convert 1.tif 2.tif photo.jpg 3.tif 1.tif 2.tif photo.jpg 3.tif 1.tif book.pdf --code pdf
run convert 1.tif scans.pdf
mkdir scans && cp scan.tif scans/a.tif && cp 2.tif scans/b.tif && run convert 3.tif scans/c.bmp
cp "$ROOT"/examples/convert.c "$ROOT"/tests/corpus/gif/frames.gif "$ROOT"/tests/corpus/pnm/*.p?m .
rm -f *-*.bmp
"""


@dataclasses.dataclass
class Block:
    where: str  # "README.md:12"
    language: str
    code: str
    not_run: str = ""  # why


class Fault(Exception):
    pass


def outcome(command, folder, environment):
    """Fails with what the command printed."""
    try:
        done = subprocess.run(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace", timeout=SECONDS)
    except subprocess.TimeoutExpired:
        raise Fault(f"takes more than {SECONDS} s") from None
    if done.returncode:
        raise Fault("\n".join(done.stdout.splitlines()[-20:]) or f"exit code {done.returncode}")
    return done.stdout


# ---- One function for each language: (code, folder to work in, environment); a sentence when it could not ----

def check_sh(code, folder, environment):
    script = folder / "block.sh"
    script.write_text(f"set -eE\ntrap 'echo \"fails: $BASH_COMMAND\"' ERR\n{code}")
    outcome(["bash", script.name], folder, environment)


def check_c(code, folder, environment):
    return compile_c(code, folder, environment, "c", ["gcc", "-std=c99"])


def check_cpp(code, folder, environment):
    return compile_c(code, folder, environment, "cpp", ["g++", "-std=c++17"])


def compile_c(code, folder, environment, ending, compiler):
    source = f"block.{ending}"
    (folder / source).write_text(code if "#include" in code else PRELUDE + code)
    flags = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-Wno-unused-function", f"-I{ROOT / 'include'}"]
    windows = "#include <windows.h>" in code
    if windows:
        compiler[0] = "i686-w64-mingw32-" + compiler[0]
        if not shutil.which(compiler[0]):
            return f"not compiled: no {compiler[0]}"
    is_program = not windows and re.search(r"\bint main\(", code)
    if is_program:
        outcome([*compiler, *flags, source, "-ltarnquill", "-o", "block"], folder, environment)
        outcome(["./block"], folder, environment)
    else:
        outcome([*compiler, *flags, "-c", source], folder, environment)


def check_cmake(code, folder, environment):
    if "project(" not in code:
        code = CMAKE_PRELUDE + code
    (folder / "CMakeLists.txt").write_text(code)
    outcome(["cmake", "-G", "Ninja", "-S", ".", "-B", "build"], folder, environment)
    outcome(["cmake", "--build", "build"], folder, environment)


def check_python(code, folder, environment):
    (folder / "block.py").write_text(code)
    outcome(["/usr/bin/python3", "block.py"], folder, environment)


def check_csharp(code, folder, environment):
    if not shutil.which("mcs"):
        return "not compiled: no mcs"
    if " class " not in f" {code}":
        code = "class Block { static void Main() {\n" + code + "\n} }\n"
    (folder / "Block.cs").write_text(code)
    sources = [str(path) for path in pathlib.Path(environment["BINDINGS"]).glob("csharp/*.cs")]
    outcome(["mcs", "-unsafe", "-target:library", "Block.cs", *sources], folder, environment)


def check_pascal(code, folder, environment):
    if not shutil.which("fpc"):
        return "not compiled: no fpc"
    if not re.search(r"^(program|unit)\b", code):
        names = sorted(set(re.findall(r"\b(\w+) :=", code)))  # handles and statuses
        code = f"program Block; uses tarnquill; var {', '.join(names)}: Integer;\nbegin\n{code}\nend.\n"
    (folder / "block.pas").write_text(code)
    outcome(["fpc", "-Mdelphi", f"-Fu{environment['BINDINGS']}/delphi", "-s", "block.pas"], folder, environment)


def check_js(code, folder, environment):
    """With the package for npm, where that has been built."""
    if not shutil.which("node"):
        return "not run: no node"
    (folder / "block.mjs").write_text(code)
    package = ROOT / "build" / "wasm" / "package"
    if not (package / "tarnquill.wasm").exists():
        outcome(["node", "--check", "block.mjs"], folder, environment)
        return "not run: no package for npm"
    (folder / "node_modules").mkdir()
    (folder / "node_modules" / "tarnquill").symlink_to(package)
    outcome(["node", "block.mjs"], folder, environment)


def check_vb(code, folder, environment):
    """No compiler of it runs here; its names are looked up with those of the rest of the text."""
    return "names only"


LANGUAGES = {"sh": check_sh, "c": check_c, "cpp": check_cpp, "cmake": check_cmake, "python": check_python,
             "csharp": check_csharp, "pascal": check_pascal, "js": check_js, "vb": check_vb}


# ---- What is not code ----

def headings(text):
    """The anchors of a document."""
    found = set()
    for title in re.findall(r"^#+ (.+)$", FENCE.sub("", text), re.MULTILINE):
        title = re.sub(r"[^\w\s-]", "", re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", title).lower())
        found.add(title.strip().replace(" ", "-"))
    return found


def check_prose(path, text, names, options):
    """Complaints about links, names of the interface and calls of the program."""
    prose = FENCE.sub("", text)
    complaints = []
    for target in re.findall(r"\]\(([^)\s]+)\)", prose):
        file, _, anchor = target.partition("#")
        if re.match(r"[a-z]+:", target):
            continue
        other = path.parent / file if file else path
        if not other.exists():
            complaints.append(f"no file {target}")
        elif anchor and anchor not in headings(other.read_text()):
            complaints.append(f"no heading {target}")
    for name in sorted(set(re.findall(r"\bIMG(?:LOW)?_\w+", text)) - names):
        # "IMG_TYPE_" and "IMG_TYPE_..." stand for all that begin so.
        if not (name.endswith("_") and any(known.startswith(name) for known in names)):
            complaints.append(f"no {name} in the interface")
    for call in re.findall(r"`tarnquill ([^`]+)`", prose):
        complaints += check_call(call, options)
    return complaints


def check_call(call, options):
    """Whether command and options of "convert --size 800" exist."""
    command = call.split()[0]
    if command.startswith("-") or command in ("help", "COMMAND"):
        return []
    if command not in options:
        return [f"no command: tarnquill {call}"]
    return [f"no option {option}: tarnquill {call}" for option in re.findall(r"(?<=\s)--?[a-z][\w-]*", call)
            if option not in options[command]]


def options_of(commands):
    return {command.name: {word for option in command.options + command.common
                           for word in (f"--{option.name}", f"-{option.letter}")} for command in commands}


# ---- All of it ----

def read_blocks(path, text):
    for match in FENCE.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        why = NOT_RUN.search(text[:match.start()])
        code = re.sub(f"^{match['indent']}", "", match["code"], flags=re.MULTILINE)
        yield Block(f"{path.relative_to(ROOT)}:{line}", match["language"], code, why[1] if why else "")


def check_block(block, samples, work, environment):
    """A line to print; fails with a Fault."""
    if block.language in NOT_CODE:
        return None
    if block.language not in LANGUAGES:
        raise Fault(f"'{block.language}' is none of {', '.join([*LANGUAGES, *NOT_CODE])}")
    if block.not_run:
        if block.language == "sh":
            outcome(["bash", "-n", "-c", block.code], ROOT, environment)
        for name in re.findall(r"(?<![\w/.-])(?:\./)?((?:tools|examples|packaging|bench|tests|demo|test)\b[\w/.-]*)",
                               re.sub(r"#.*", "", block.code)):
            if not (ROOT / name).exists():
                raise Fault(f"no {name} in the repository")
        return f"not run: {block.not_run}"
    folder = pathlib.Path(tempfile.mkdtemp(dir=work))
    shutil.copytree(samples, folder, dirs_exist_ok=True)
    return LANGUAGES[block.language](block.code, folder, environment)


def make_environment(build, work):
    prefix = work / "prefix"
    outcome(["cmake", "--install", str(build), "--prefix", str(prefix)], work, None)
    library = prefix / "lib"
    environment = dict(os.environ, ROOT=str(ROOT), PREFIX=str(prefix), BINDINGS=str(work / "bindings"),
                       CMAKE_PREFIX_PATH=str(prefix), CPATH=str(prefix / "include"), LC_ALL="C.UTF-8",
                       LD_LIBRARY_PATH=str(library), LIBRARY_PATH=str(library),
                       PATH=f"{prefix / 'bin'}:{os.environ['PATH']}", PKG_CONFIG_PATH=str(library / "pkgconfig"),
                       PYTHONPATH=str(work / "bindings" / "python"), TARNQUILL_LIBRARY=str(library / "libtarnquill.so"))
    outcome([sys.executable, str(ROOT / "tools" / "make_bindings.py"), environment["BINDINGS"]], work, environment)
    return environment


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    documents = [pathlib.Path(name).resolve() for name in sys.argv[2:]] or [
        ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md"))]
    program = build / "bin" / "tarnquill"
    commands = program_help.commands(program)
    options = options_of(commands)
    headers = "".join(path.read_text() for path in (ROOT / "include").glob("*.h"))
    names = set(re.findall(r"\bIMG(?:LOW)?_\w+", headers))
    blocks, faults = [], 0
    for path in documents:
        text = path.read_text()
        blocks += read_blocks(path, text)
        for complaint in check_prose(path, text, names, options):
            faults += 1
            print(f"{path.relative_to(ROOT)}: {complaint}")
    for command in commands:
        where = f"help {command.name}"
        if command.name == "scan":  # wants a scanner
            bad = check_call(command.example.removeprefix("tarnquill "), options)
            faults += len(bad)
            print("".join(f"{where}: {complaint}\n" for complaint in bad), end="")
        else:
            blocks.append(Block(where, "sh", command.example + "\n"))
    with tempfile.TemporaryDirectory() as temporary:
        work = pathlib.Path(temporary)
        environment = make_environment(build, work)
        for complaint in format_tables.check(environment["TARNQUILL_LIBRARY"]):
            faults += 1
            print(f"formats: {complaint}")
        samples = work / "samples"
        samples.mkdir()
        outcome([str(build / "bin" / "make_scene"), "."], samples, environment)
        outcome(["bash", "-c", SAMPLES], samples, environment)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            checks = [(block, pool.submit(check_block, block, samples, work, environment)) for block in blocks]
            for block, check in checks:
                try:
                    if remark := check.result():
                        print(f"{block.where}: {block.language} {remark}")
                except Fault as fault:
                    faults += 1
                    print(f"{block.where}: {block.language}: {fault}")
    print(f"{len(documents)} documents, {len(blocks)} blocks, {faults} complaints")
    return 1 if faults or not blocks else 0


if __name__ == "__main__":
    sys.exit(main())
