#!/usr/bin/env python3
"""Writes a public header as Doxygen reads it. The header itself is written for who reads it in an
editor: plain comments, in front of one declaration or several, lists by their indentation.
"""
import pathlib
import re
import sys

LISTED = re.compile(r"^(?P<name>\S(?:\S| (?! ))*)  +(?P<text>\S.*)$")  # "name      what it is"


def inside(comment):
    """Its lines, without stars and the space that all have."""
    body = re.sub(r"^/\*+ ?|\s*\*/$", "", comment)
    return [re.sub(r"^ *\* ?", "", line) if i else line for i, line in enumerate(body.split("\n"))]


def escaped(text, names):
    text = re.sub(r"[\\@<>&#%$]", r"\\\g<0>", text)
    return re.sub(r"\b(?:IMG|img)(?:LOW)?_\w+", lambda name: f'@ref {name[0]} "{name[0]}"' if name[0] in names else "%" + name[0], text)


def listed(lines, names):
    """An indented part: names and what they are, or a table that keeps its columns."""
    depth = len(lines[0]) - len(lines[0].lstrip())
    rows = [line[depth:] for line in lines]
    entries = [LISTED.match(row) for row in rows]
    if depth > 4 or not entries[0] or any("   " in entry["text"] for entry in entries if entry):
        return "<pre>\n" + "\n".join(re.sub(r"[\\@<>&#%$]", r"\\\g<0>", line) for line in lines) + "\n</pre>"
    out = ["<dl>"]
    for row, entry in zip(rows, entries):
        if entry and not row.startswith(" "):
            out.append(f"<dt><b>{escaped(entry['name'], ())}</b></dt><dd>{escaped(entry['text'], names)}")
        else:
            out.append(escaped(row.strip(), names))
    return "\n".join(out) + "\n</dl>"


def documentation(lines, names):
    text = "\n".join(line.rstrip() for line in lines).strip("\n")
    out = []
    for part in re.split(r"\n\n+", text):
        rows = part.split("\n")
        for indented in (False, True):  # words, and a list below them
            some = [row for row in rows if row.startswith("  ") is indented]
            if some and indented and not some[0].lstrip().startswith("- "):
                out.append(listed(some, names))
            elif some:
                out.append("\n".join(escaped(row, names) for row in some))
    return "\n\n".join(out)


def section(lines, number, names):
    """The title is what comes before the rule, or the first full stop or colon."""
    text = "\n".join(lines)
    match = (re.match(r"---- (?P<title>.+?) -{3,}\s*", text) or
             re.match(r"---- (?P<title>[^.:]+)[.:]\s*", text))
    body = text[match.end():].split("\n")
    opened = "" if number == 0 else "/** @} */\n"
    return (f"{opened}/** @defgroup part{number:02} {match['title']}\n\n"
            f"{documentation(body, names)}\n\n@{{ */")


def with_comment(code, comment):
    """Code behind a comment, which is that of every declaration up to an empty line."""
    near, empty, rest = code.partition("\n\n")
    head, *more = re.split(r"^(?=IMG_API |typedef |#define )", near.lstrip("\n"), flags=re.MULTILINE)
    for bare in re.findall(r"^IMG_API .*?(\w+)\(", rest if comment else code, re.MULTILINE):
        sys.stderr.write(f"{bare} has no comment\n")  # which is an error, like a warning of Doxygen's
    return "\n" + comment.join(([head] if head else []) + more) + empty + rest, "" if empty else comment


def filtered(name, text):
    code = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
    names = set(re.findall(r"IMG_CALL (\w+)\(", code))
    names.update(re.findall(r"^ *(IMG_[A-Z]\w*)(?: =|,|\n)", code, re.MULTILINE))
    pieces = re.split(r"(/\*.*?\*/)", text, flags=re.DOTALL)
    out, sections, comment = [], 0, ""
    for i, piece in enumerate(pieces):
        lines = inside(piece)
        if i % 2 == 0:
            piece, comment = with_comment(piece, comment)
            out.append(piece)
        elif i == 1:
            out.append(f"/** @file {name}\n{documentation(lines, names)}\n*/")
            if name == "tarnquill.h":
                out.append(out[-1].replace(f"@file {name}", "@mainpage"))
        elif pieces[i - 1].rpartition("\n")[2].strip():  # behind something on its line
            out.append(f"/**< {escaped(' '.join(line.strip() for line in lines), names)} */")
        elif lines[0].startswith("---- "):
            out.append(section(lines, sections, names))
            sections, comment = sections + 1, ""
        else:
            comment = f"/** {documentation(lines, names)} */\n"
            out.append(comment.rstrip("\n"))
    return "".join(out) + ("/** @} */\n" if sections else "")


if __name__ == "__main__":
    path = pathlib.Path(sys.argv[1])
    sys.stdout.write(filtered(path.name, path.read_text()))
