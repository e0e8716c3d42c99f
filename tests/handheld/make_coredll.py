#!/usr/bin/env python3
"""make_coredll.py COREDLL_CPP FOLDER IMAGE ...: writes thunks.S and coredll.def for a coredll.dll that serves images of the
handheld on desktop Windows. Each name that an image imports is a function of coredll.cpp, a function of the C library, or
a thunk to a function of the desktop, whose number of argument bytes stands in the name that mingw's import libraries give it."""

import importlib.machinery
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LIBRARIES = "kernel32 user32 gdi32 advapi32 shell32 comctl32 comdlg32".split()

THUNK = """    .globl _Thunk{name}
_Thunk{name}:
    pushl %ebp
    movl %esp, %ebp
{pushes}    call *__imp__{name}@{size}
    leave
    ret
"""


def imports_of(images):
    check = importlib.machinery.SourceFileLoader("check_ce_image", str(ROOT / "tools/check-ce-image")).load_module()
    return sorted({name for image in images for _, name in check.Image(pathlib.Path(image).read_bytes()).imports()})


def argument_sizes():
    sizes = {}
    for library in LIBRARIES:
        path = subprocess.run(["i686-w64-mingw32-gcc", f"-print-file-name=lib{library}.a"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout.strip()
        listing = subprocess.run(["i686-w64-mingw32-nm", path], text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL).stdout
        for name, size in re.findall(r" I __imp__(\w+)@(\d+)$", listing, re.M):
            sizes.setdefault(name, int(size))
    return sizes


def main():
    own = set(re.findall(r" Core(\w+)\(", pathlib.Path(sys.argv[1]).read_text()))
    folder = pathlib.Path(sys.argv[2])
    sizes = argument_sizes()
    thunks, exports = "", "EXPORTS\n" + "".join(f"{name}=Core{name}\n" for name in sorted(own))
    for name in imports_of(sys.argv[3:]):
        if name in own:
            continue
        if name not in sizes:
            exports += f"{name}\n"  # of the C library
            continue
        pushes = "".join(f"    pushl {8 + at}(%ebp)\n" for at in range(sizes[name] - 4, -4, -4))
        thunks += THUNK.format(name=name, size=sizes[name], pushes=pushes)
        exports += f"{name}=Thunk{name}\n"
    (folder / "thunks.S").write_text(thunks)
    (folder / "coredll.def").write_text(exports)


if __name__ == "__main__":
    main()
