"""The page itself: pieces of HTML, and the template that they are put into."""
import html
import pathlib
import string

FOLDER = pathlib.Path(__file__).parent


def text(words):
    return html.escape(str(words), quote=True)


def amount(count):
    """Bytes as people say them."""
    if count < 1000:
        return f"{count}\u00a0bytes"
    for unit, size in (("MB", 10 ** 6), ("kB", 10 ** 3)):
        if count >= size:
            return f"{count / size:.1f}\u00a0{unit}" if count < 100 * size else f"{count / size:.0f}\u00a0{unit}"


def image(picture, alt, **more):
    attributes = "".join(f' {name.rstrip("_")}="{text(value)}"' for name, value in more.items())
    return (f'<img src="{text(picture.name)}" width="{picture.width}" height="{picture.height}" alt="{text(alt)}"'
            f' loading="lazy"{attributes} />')


def figure(content, caption, kind=""):
    kind = f' class="{kind}"' if kind else ""
    return f"<figure{kind}>{content}<figcaption>{caption}</figcaption></figure>"


class Pairs:
    """Pictures before and after, one over the other: a slider moves the edge between them, and where no
    script runs three buttons do."""

    def __init__(self):
        self.count = 0

    def pair(self, before, after, title, command, kind=""):
        self.count += 1
        name = f"pair{self.count}"
        buttons = "".join(
            f'<input type="radio" name="{name}" id="{name}{side}" class="{side}"{checked} />'
            f'<label for="{name}{side}">{side}</label>'
            for side, checked in (("before", ""), ("both", ' checked="checked"'), ("after", "")))
        return (f'<figure class="pair {kind}">{buttons}'
                f'<div class="compare" style="aspect-ratio:{after.width}/{after.height}">'
                f'{image(after, title + ", after", class_="to")}{image(before, title + ", before", class_="from")}'
                f'<span class="edge"></span>'
                f'<input type="range" min="0" max="100" value="50" aria-label="{text(title)}: before and after" />'
                f'</div><figcaption><b>{text(title)}</b> <code>{text(command)}</code></figcaption></figure>')


def bars(rows, unit):
    """(name, value, said) each; the first is ours."""
    most = max(value for _, value, _ in rows) or 1
    lines = "".join(
        f'<div class="bar{" ours" if number == 0 else ""}"><span>{text(name)}</span>'
        f'<i><b style="width:{100 * value / most:.1f}%"></b></i><em>{text(said)}</em></div>'
        for number, (name, value, said) in enumerate(rows))
    return f'<div class="bars" role="img" aria-label="{text(unit)}">{lines}</div>'


def write(out, **parts):
    template = string.Template((FOLDER / "page.html").read_text())
    style, script = (FOLDER / "page.css").read_text(), (FOLDER / "page.js").read_text()
    out.write_text(template.substitute(parts, style=style, script=script))
