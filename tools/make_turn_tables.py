#!/usr/bin/env python3
"""Writes the tables in process/geometry/ that no C library's last bits may change: sines in units of
2^-30, and the Lanczos window of three lobes at steps of 1/1024 in units of 2^-20."""
import decimal
import pathlib

D = decimal.Decimal
decimal.getcontext().prec = 50
PI = D("3.14159265358979323846264338327950288419716939937511")
FOLDER = pathlib.Path(__file__).resolve().parent.parent / "process" / "geometry"


def sine(x):
    term, total, n = x, x, 1
    while abs(term) > D(10) ** -45:
        n += 2
        term = -term * x * x / (n * (n - 1))
        total += term
    return total


def nearest(value):
    return int(value.to_integral_value(decimal.ROUND_HALF_UP))


def sinc(t):
    return D(1) if t == 0 else sine(PI * t) / (PI * t)


def table(name, kind, values):
    lines, line = [], "   "
    for value in values:
        if len(line) + len(str(value)) > 97:
            lines.append(line)
            line = "   "
        line += f" {value},"
    return f"inline constexpr {kind} {name}[] = {{\n" + "\n".join([*lines, line]) + "\n};\n"


def write(name, text):
    (FOLDER / name).write_text("// Written by tools/make_turn_tables.py.\n" + text)


def main():
    unit = D(2) ** 30
    radian = PI / 180
    write("sines.inc",
          "// Units of 2^-30: of whole degrees, and of hundredths of one with their cosines.\n"
          + table("kSineOfDegree", "std::int32_t", [nearest(sine(d * radian) * unit) for d in range(91)])
          + table("kSineOfHundredth", "std::int32_t", [nearest(sine(h * radian / 100) * unit) for h in range(100)])
          + table("kCosineOfHundredth", "std::int32_t",
                  [nearest(sine((9000 - h) * radian / 100) * unit) for h in range(100)]))
    write("lanczos.inc",
          "// sinc(t) sinc(t / 3) at steps of 1/1024, in units of 2^-20.\n"
          + table("kLanczos", "std::int32_t",
                  [nearest(sinc(D(i) / 1024) * sinc(D(i) / 3072) * 2 ** 20) for i in range(3 * 1024 + 1)]))


if __name__ == "__main__":
    main()
