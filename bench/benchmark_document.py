"""What the benchmarks leave behind: sections of docs/benchmarks.md, each between marks of its own, and pictures."""

import pathlib
import shutil
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "docs"
DOCUMENT = FOLDER / "benchmarks.md"


def table(head, rows):
    return ["| " + " | ".join(head) + " |", "|---" * len(head) + "|",
            *("| " + " | ".join(map(str, row)) + " |" for row in rows)]


def write_section(name, lines):
    """Replaces the section of that name, or adds it at the end."""
    begin, end = f"<!-- begin of {name} -->", f"<!-- end of {name} -->"
    section = "\n".join([begin, *lines, end])
    text = DOCUMENT.read_text()
    if begin in text and end in text:
        head, rest = text.split(begin, 1)
        text = head + section + rest.split(end, 1)[1]
    else:
        text = text.rstrip("\n") + "\n\n" + section + "\n"
    DOCUMENT.write_text(text)


def draw_bars(name, title, groups, series):
    """Draws one group of bars for each load: groups is a list of names, series maps a server to its figures."""
    if shutil.which("gnuplot") is None:
        print("no picture: gnuplot is not installed")
        return
    rows = ["\t".join(['""', *(f'"{server}"' for server in series)])]
    rows += ["\t".join([f'"{group}"', *(f"{figures[i]:.0f}" for figures in series.values())])
             for i, group in enumerate(groups)]
    columns = ", ".join(f"$data using {i + 2}:xtic(1) title columnheader({i + 2})" for i in range(len(series)))
    script = "\n".join(["$data << END", *rows, "END", "set terminal svg size 960,460 font 'sans-serif,12' background 'white'",
                        f"set output '{FOLDER / 'images' / name}'", f"set title '{title}'",
                        "set style data histogram", "set style histogram cluster gap 1.5",
                        "set style fill solid 0.85 noborder", "set boxwidth 0.9", "set yrange [0:*]",
                        f"set xrange [-0.6:{len(groups) - 0.4}]", "set grid ytics back", "set xtics scale 0",
                        "set key below maxrows 2", f"plot {columns}"])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


if __name__ == "__main__":  # the section's name is given, its lines come in
    write_section(sys.argv[1], sys.stdin.read().strip().splitlines())
