#!/usr/bin/env python3
"""Makes what is read beside the program and the header, from what these say of themselves.

    make_manual.py PROGRAM OUT    OUT/man/tarnquill.1, with help2man
                                  OUT/completion/tarnquill for bash, OUT/completion/_tarnquill for zsh
    make_manual.py --html OUT     OUT/html: the public headers, with Doxygen

The same sources give the same bytes; the day of the manual page is that of SOURCE_DATE_EPOCH.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import textwrap
import time

import program_help

ROOT = pathlib.Path(__file__).resolve().parent.parent


# ---- Manual page: help2man makes its beginning of `tarnquill --help`, and puts the commands behind ----

def escaped(text):
    text = text.replace("\\", r"\e").replace("-", r"\-")
    text = "\n".join(textwrap.wrap(text, 79, break_long_words=False, break_on_hyphens=False))
    return re.sub(r"^(?=[.'])", r"\\&", text, flags=re.MULTILINE)


def option_lines(options):
    for option in options:
        argument = f" \\fI{escaped(option.argument)}\\fR" if option.argument else ""
        words = ", ".join(f"\\fB{escaped(word)}\\fR" for word in option.spelled().split(", "))
        yield f".TP\n{words}{argument}\n{escaped(option.text)}"


def command_lines(command, of_convert):
    """An operation has the options of convert as well, which are not told again."""
    options = [option for option in command.options if option.name != "help"]
    if "those of convert" in command.explanation:
        options = [option for option in options if option.spelled() not in of_convert]
    if command.explanation.startswith("Like convert"):
        options = []
    call, _, operands = command.usage.partition(" [OPTION]...")
    yield f".SS \"{escaped(command.name)}\""
    yield f"\\fB{escaped(call)}\\fR [\\fIOPTION\\fR]..." + (f" \\fI{escaped(operands)}\\fR" if operands else "")
    yield f".PP\n{escaped(command.summary)}"
    if command.name == "convert" or "those of convert" not in command.explanation:
        yield f".PP\n{escaped(command.explanation)}"
    yield from option_lines(options)
    yield f".PP\n.RS 4\n.nf\n{escaped(command.example)}\n.fi\n.RE"


def manual_page(program, commands):
    convert = next(command for command in commands if command.name == "convert")
    results = next(command for command in commands if command.name == "flip").options
    of_results = {option.spelled() for option in results}
    lines = ["[COMMANDS]", "The last line of each is an example. Operations on images take the options under",
             ".B convert", "that tell of results as well, and all commands those of the next section."]
    for command in commands:
        lines += command_lines(command, of_results if command is not convert else set())
    lines += ["[OPTIONS OF EVERY COMMAND]", *option_lines(convert.common)]
    version = program_help.read(program, "--version").split()[1]
    with tempfile.NamedTemporaryFile("w", suffix=".h2m") as included:
        included.write("\n".join(lines) + "\n")
        included.flush()
        page = subprocess.run(
            ["help2man", "--no-info", "--name=reads, converts, cleans and writes raster images",
             "--source=Tarnquill", f"--version-string={version}", f"--include={included.name}", str(program)],
            check=True, capture_output=True, text=True, env=dict(os.environ, LC_ALL="C.UTF-8")).stdout
    page = re.sub(r"\\fB(\\-\d+)\\fR", r"\1", page)  # "-1.3" is a number, and no option
    day = time.strftime("%Y-%m-%d", time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))
    return re.sub(r'^(\.TH TARNQUILL "1" )"[^"]*"', rf'\1"{day}"', page, flags=re.MULTILINE)


# ---- Completion of the first word, of options, and of what follows these ----

def values_of(option, codes):
    return codes if option.name == "code" else option.choices()


def is_file(option):
    return option.argument in ("FILE", "OUT") or option.name == "output"


def bash_completion(commands, codes):
    names = " ".join(command.name for command in commands)
    lines = ["# Completion of tarnquill for bash.", "", "_tarnquill() {",
             "  local word=${COMP_WORDS[COMP_CWORD]} last=${COMP_WORDS[COMP_CWORD - 1]} options= values=",
             "  COMPREPLY=()",
             "  if [ \"$COMP_CWORD\" = 1 ] || { [ \"$COMP_CWORD\" = 2 ] && [ \"$last\" = help ]; }; then",
             f"    mapfile -t COMPREPLY < <(compgen -W '{names} help --help --version' -- \"$word\")",
             "    return", "  fi",
             "  case ${COMP_WORDS[1]} in"]
    for command in commands:
        options = command.options + command.common
        lines += [f"    {command.name})",
                  f"      options='{' '.join('--' + option.name for option in options)}'", "      case $last in"]
        other = []
        for option in options:
            spelled = option.spelled().replace(", ", " | ")
            if values := values_of(option, codes):
                lines.append(f"        {spelled}) values='{' '.join(values)}' ;;")
            elif option.argument and not is_file(option):
                other.append(spelled)
        if other:
            lines.append(f"        {' | '.join(other)}) compopt +o default; return ;;")
        lines += ["      esac", "      ;;"]
    lines += ["  esac",
              "  if [ -n \"$values\" ]; then",
              "    mapfile -t COMPREPLY < <(compgen -W \"$values\" -- \"$word\")",
              "  elif [[ $word == -* ]]; then",
              "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")",
              "  fi",
              "}", "complete -o default -F _tarnquill tarnquill"]
    return "\n".join(lines) + "\n"


def zsh_completion(commands, codes):
    def quoted(text):
        return "'" + text.replace("'", "'\\''") + "'"

    def described(name, text, special=":"):
        return quoted(name + ":" + re.sub(f"[{special}]", r"\\\g<0>", text))

    def spec(option):
        text = re.sub(r"[\[\]:\\]", r"\\\g<0>", option.text)
        action = ""
        if values := values_of(option, codes):
            action = f":value:({' '.join(values)})"
        elif option.argument:
            action = f":{option.argument.replace(':', ' ')}:" + ("_files" if is_file(option) else "")
        words = [f"--{option.name}"] + ([f"-{option.letter}"] if option.letter else [])
        return [quoted(f"*{word}[{text}]{action}") for word in words]

    lines = ["#compdef tarnquill", "# Completion of tarnquill for zsh.", "", "_tarnquill() {", "  local -a commands",
             "  commands=("]
    lines += [f"    {described(command.name, command.summary)}" for command in commands]
    lines += ["    'help:Explains a command'", "  )",
              "  if (( CURRENT == 2 )) || { (( CURRENT == 3 )) && [[ $words[2] == help ]]; }; then",
              "    _describe command commands", "    return", "  fi",
              "  local command=$words[2]", "  (( CURRENT-- ))", "  shift words", "  case $command in"]
    for command in commands:
        lines.append(f"    {command.name})")
        lines.append("      _arguments -S \\")
        for option in command.options + command.common:
            lines += [f"        {word} \\" for word in spec(option)]
        lines += ["        '*:file:_files'", "      ;;"]
    lines += ["  esac", "}", "", "_tarnquill \"$@\""]
    return "\n".join(lines) + "\n"


# ---- The header ----

def make_html(out):
    """A warning is an error."""
    doxygen = subprocess.run(
        ["doxygen", "-"], cwd=ROOT, text=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
        input=f"{(ROOT / 'docs' / 'Doxyfile').read_text()}\nOUTPUT_DIRECTORY = {out}\n")
    if doxygen.returncode or doxygen.stderr:
        sys.exit(doxygen.stderr or f"doxygen: exit code {doxygen.returncode}")


def main():
    out = pathlib.Path(sys.argv[2])
    out.mkdir(parents=True, exist_ok=True)
    if sys.argv[1] == "--html":
        return make_html(out.resolve())
    program = pathlib.Path(sys.argv[1]).resolve()
    commands = program_help.commands(program)
    # Columns: code, name, title, depths read and written, notes.
    codes = [row[1] for row in program_help.formats(program) if row[4] != "-"]
    for name, text in (("man/tarnquill.1", manual_page(program, commands)),
                       ("completion/tarnquill", bash_completion(commands, codes)),
                       ("completion/_tarnquill", zsh_completion(commands, codes))):
        (out / name).parent.mkdir(exist_ok=True)
        (out / name).write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
