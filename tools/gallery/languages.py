"""The same five lines in four languages, run here where their tools are."""
import os
import pathlib
import shutil
import subprocess
import sys
import textwrap

from gallery.page import amount, text

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE = pathlib.Path(__file__).with_name("code")
RESULT = "letter.tif"


def five_lines(path):
    shown = path.read_text().split("five lines\n")[1].split("until here")[0].rpartition("\n")[0]
    return textwrap.dedent(shown)


def run_c(library, _):
    subprocess.run(["cc", CODE / "letter.c", "-o", "letter_c", f"-I{ROOT / 'include'}", f"-L{library}", "-ltarnquill"],
                   check=True)
    subprocess.run(["./letter_c"], check=True, env={"LD_LIBRARY_PATH": str(library)})


def run_python(library, bindings):
    subprocess.run([sys.executable, CODE / "letter.py"], check=True, env={
        **os.environ, "PYTHONPATH": str(bindings / "python"), "TARNQUILL_LIBRARY": str(library / "libtarnquill.so"),
        "LD_LIBRARY_PATH": str(library)})


def run_csharp(library, bindings):
    sources = sorted((bindings / "csharp").glob("*.cs"))
    subprocess.run(["mcs", "-out:letter_cs.exe", "-unsafe", CODE / "letter.cs", *sources], check=True)
    subprocess.run(["mono", "letter_cs.exe"], check=True, env={**os.environ, "LD_LIBRARY_PATH": str(library)})


# Name, file, what runs it, what that needs beside the generated bindings.
LANGUAGES = [("C", "letter.c", run_c, ["cc"]), ("C#", "letter.cs", run_csharp, ["mcs", "mono"]),
             ("Python", "letter.py", run_python, []), ("Visual Basic 6", "letter.bas", None, [])]


def bindings_of(program):
    """The folder that the binding layers are written to; None without their generator."""
    maker, folder = ROOT / "tools" / "make_bindings.py", (program.work / "bindings").resolve()
    if not maker.exists():
        return None
    subprocess.run([sys.executable, maker, folder], check=True, capture_output=True)
    return folder


def tried(program, run, needs, bindings):
    """What came of it, in words."""
    missing = [name for name in needs if not shutil.which(name)]
    if run is None:
        return "not run here: for 32-bit Windows, with the declarations of the package"
    if missing or (run is not run_c and bindings is None):
        return f"not run here: {', '.join(missing) or 'the bindings'} missing"
    folder, library = pathlib.Path.cwd(), program.binaries.parent / "lib"
    try:
        os.chdir(program.work)
        pathlib.Path(RESULT).unlink(missing_ok=True)
        run(library, bindings)
        return f"run here: {RESULT}, {amount(pathlib.Path(RESULT).stat().st_size)}"
    finally:
        os.chdir(folder)


def build(program):
    bindings = bindings_of(program)
    cards = [f"<figure><figcaption><b>{text(name)}</b> <span>{text(tried(program, run, needs, bindings))}</span>"
             f"</figcaption><pre>{text(five_lines(CODE / file))}</pre></figure>" for name, file, run, needs in LANGUAGES]
    return {"languages": "".join(cards)}
