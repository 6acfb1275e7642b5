#!/usr/bin/env python3
"""Fails when a message text of the library stands in more than one source file.

Every fixed error message is written once (the library keeps them in
fft/checks.cpp); a second copy of a text is how two checks of the same thing
drift apart. A message is a string literal that starts with a capital letter
and holds a space; comments and #include lines are not read.

Usage: check_messages_once.py FOLDER...
"""
import pathlib
import re
import sys

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
MESSAGE = re.compile(r"^[A-Z][^ ]* .{4,}")


def code_of(text):
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    lines = []
    for line in text.split("\n"):
        if line.lstrip().startswith("#include"):
            continue
        # A // comment outside a literal ends the code of the line.
        lines.append(re.sub(r'^((?:[^"/]|"(?:[^"\\]|\\.)*"|/(?!/))*)//.*$', r"\1", line))
    return "\n".join(lines)


def main():
    where = {}
    for folder in sys.argv[1:]:
        for path in sorted(pathlib.Path(folder).rglob("*")):
            if path.suffix not in (".cpp", ".h"):
                continue
            for literal in LITERAL.findall(code_of(path.read_text(encoding="utf-8"))):
                if MESSAGE.match(literal):
                    where.setdefault(literal, set()).add(str(path))
    repeated = {text: files for text, files in where.items() if len(files) > 1}
    for text, files in sorted(repeated.items()):
        print(f'message in more than one file: "{text}": {", ".join(sorted(files))}')
    print(f"{len(where)} messages read, {len(repeated)} in more than one file")
    return 1 if repeated else 0


if __name__ == "__main__":
    sys.exit(main())
