"""The samples: files of every format, written by other programs, as the program decodes them."""
import pathlib

from gallery.page import amount, image, text

CORPUS = pathlib.Path(__file__).resolve().parents[2] / "tests" / "corpus"
NO_SAMPLES = {"shown"}  # pixels that others see in files of other folders
# Nobody else's files of these are at hand: the program writes them, and reads them again.
OWN = [("Windows clipboard", "sample.clp", "clipboard"), ("Windows metafile", "sample.wmf", "wmf"),
       ("WPG", "sample.wpg", "wpg")]


def label(entry):
    """The format's name, without the compression that a file happens to have."""
    name = entry["format"]
    return name.split()[0] if name.startswith(("TIFF", "BMP", "GIF")) else name


def samples(program):
    """{format: [(file, what is told of it)]} in the order of the alphabet."""
    files = [path for folder in sorted(CORPUS.iterdir()) if folder.is_dir() and folder.name not in NO_SAMPLES
             for path in sorted(folder.iterdir())]
    told, found = program.info(*files), {}
    for path in files:
        entry = told.get(str(path))
        if entry and entry.get("width"):
            found.setdefault(label(entry), []).append((path, entry))
    return found


def weight(sample):
    """The one that shows most comes first: the largest, but not a page."""
    _, entry, picture, _ = sample
    return entry["height"] <= 400, entry["depth"] >= 8, picture.bytes


def measures(entry):
    bits = "1 bit" if entry["depth"] == 1 else f"{entry['depth']} bits"
    return f"{entry['width']} \u00d7 {entry['height']}, {bits}"


def enlarged(picture, room=150):
    """Whole dots, as many as there is room for."""
    factor = max(1, room // max(picture.width, picture.height))
    return f"width:{picture.width * factor}px;height:auto"


def card(program, name, files, note, life):
    shown = []
    for path, entry in files:
        large = ["--size", "300"] if max(entry["width"], entry["height"]) > 300 else []
        life.doing = f"formats: {path.name}"
        picture, outcome = program.picture(path, f"{path.parent.name}-{path.name}.png", "--page", "1", *large)
        if picture:
            shown.append((path, entry, picture, outcome))
    if not shown:
        return "", 0
    shown.sort(key=weight, reverse=True)
    path, entry, picture, _ = shown[0]
    others = "".join(
        image(other, f"{p.name}: {measures(e)}", title=f"{p.name}: {measures(e)}")
        for p, e, other, _ in shown[1:])
    facts = f"{measures(entry)}, {amount(entry['bytes'])}"
    more = f"<p>{len(files)} files by other programs</p>" if len(files) > 1 and not note else f"<p>{text(note)}</p>"
    others = f'<div class="others">{others}</div>' if others else ""
    return (f'<li><div class="sample">{image(picture, f"a sample of {name}", style=enlarged(picture))}</div>'
            f'<h3>{text(name)}</h3><p><code>{text(path.name)}</code><br />{facts}</p>{more}{others}</li>'), len(shown)


def build(program, life):
    found, notes = samples(program), {}
    for name, file, code in OWN:
        program.convert("dots.bmp", file, "--code", code)
        path = program.work / file
        found[name] = [(path.resolve(), program.info(path.resolve())[str(path.resolve())])]
        notes[name] = "written by the program itself"
    cards, count = [], 0
    for name in sorted(found, key=str.lower):
        html, decoded = card(program, name, found[name], notes.get(name, ""), life)
        cards.append(html)
        count += decoded
    return {"formats": "".join(cards), "format_count": len(cards), "file_count": count}
