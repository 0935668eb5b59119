"""What the command line program says of itself, as data: its help texts are made from one table."""
import dataclasses
import re
import subprocess

OPTION = re.compile(r"^(?:  -(?P<letter>\w), |      )--(?P<name>[\w-]+)(?: (?P<argument>\S.*?))??"
                    r"(?:  +(?P<text>\S.*))?$")


@dataclasses.dataclass
class Option:
    letter: str
    name: str
    argument: str  # "" of a switch; "a|b" for choices, else what it is
    text: str

    def spelled(self):
        return (f"-{self.letter}, " if self.letter else "") + f"--{self.name}"

    def choices(self):
        return self.argument.split("|") if "|" in self.argument else []


@dataclasses.dataclass
class Command:
    name: str
    usage: str
    summary: str
    explanation: str
    example: str
    options: list
    common: list  # options of every command


def read(program, *words):
    return subprocess.run([program, *words], check=True, capture_output=True, text=True).stdout


def parse_options(text):
    options = []
    for line in text.splitlines():
        if match := OPTION.match(line):
            options.append(Option(*(match[key] or "" for key in ("letter", "name", "argument", "text"))))
        elif line.strip():
            options[-1].text = f"{options[-1].text} {line.strip()}".strip()
    return options


def parse_command(name, text):
    head, options = text.split("\nOptions:\n")
    own, common = options.split("\nOptions of every command:\n")
    usage, head = head.split("\n", 1)
    head, example = head.split("\n\nExample:\n")
    summary, explanation = head.split("\n\n", 1)
    return Command(name, usage.removeprefix("Usage: "), " ".join(summary.split()), " ".join(explanation.split()),
                   example.strip(), parse_options(own), parse_options(common))


def commands(program):
    """Those that `program --help` lists, in its order."""
    listed = read(program, "--help").split("\nCommands:\n")[1].split("\n\n")[0]
    names = re.findall(r"^  ([a-z-]+) ", listed, re.MULTILINE)
    return [parse_command(name, read(program, "help", name)) for name in names if name != "help"]


def formats(program):
    """Rows of `program formats`: code, name, title, depths read and written, notes."""
    head, *lines = read(program, "formats").splitlines()
    columns = [head.index(word) for word in head.split()] + [None]
    return [tuple(line[a:b].strip() for a, b in zip(columns, columns[1:])) for line in lines]
