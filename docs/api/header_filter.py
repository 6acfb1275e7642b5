#!/usr/bin/env python3
"""Doxygen input filter for the kx headers.

The headers are documented with plain // comments. This filter hands them to
Doxygen as documentation, by the conventions the headers are written in:

- a comment block directly above a declaration documents it; when several
  declarations follow without a blank line, the comment documents all of
  them (they become one member group);
- a trailing // comment documents the declaration on its line; on the first
  line of a run of declarations without comments of their own, it documents
  the whole run (a comment block's group ends where such a line starts);
- separator lines of dashes are dropped;
- the library's error classes and the members every concrete filter class
  declares alike, both declared through a macro, are shown expanded with
  their documentation (comments cannot travel through a macro).

It changes comments only; the code Doxygen parses is the header's own.
"""
import re
import sys

COMMENT = re.compile(r"^(\s*)//(?!/)(.*)$")
SEPARATOR = re.compile(r"^\s*//\s*-{3,}\s*$")
TRAILING = re.compile(r"^(.*?[;{,)])(\s+)//(?![/<])(.*)$")
ACCESS = re.compile(r"^\s*(public|protected|private)\s*:\s*$")


def is_code(line):
    s = line.strip()
    return bool(s) and not s.startswith("//") and not s.startswith("#") and not ACCESS.match(line) \
        and not s.startswith("};") and s != "}"


def declaration_run(lines, start):
    """Index after the run of code lines starting at `start`."""
    end = start
    while end < len(lines) and is_code(lines[end]):
        end += 1
    return end


def filter_lines(lines):
    out = []
    i = 0
    while i < len(lines):
        line = lines[i]
        if SEPARATOR.match(line):
            out.append("")
            i += 1
            continue
        m = COMMENT.match(line)
        if m:
            # A comment block: convert it, and group the run of code after it.
            block = []
            while i < len(lines) and COMMENT.match(lines[i]) and not SEPARATOR.match(lines[i]):
                cm = COMMENT.match(lines[i])
                block.append(f"{cm.group(1)}///{cm.group(2)}")
                i += 1
            end = declaration_run(lines, i)
            # The group ends where a line brings a trailing comment of its own.
            for k in range(i + 1, end):
                if TRAILING.match(lines[k]):
                    end = k
                    break
            grouped = end - i > 1 and "class " not in lines[i] and "struct " not in lines[i] \
                and "enum " not in lines[i] and all(";" in l or l.rstrip().endswith((",", "(")) or "(" in l
                                                   for l in lines[i:end])
            if grouped:
                indent = re.match(r"\s*", lines[i]).group(0)
                out.append(f"{indent}///@{{")
            out.extend(block)
            for l in lines[i:end]:
                out.append(convert_trailing(l))
            if grouped:
                out.append(f"{indent}///@}}")
            i = end
            continue
        if is_code(line) and TRAILING.match(line) and "class " not in line:
            end = declaration_run(lines, i)
            rest = lines[i + 1 : end]
            if end - i > 1 and not any(TRAILING.match(l) for l in rest) and \
                    all(";" in code(l) or code(l).endswith((",", "(")) for l in lines[i:end]):
                indent = re.match(r"\s*", line).group(0)
                tm = TRAILING.match(line)
                out.append(f"{indent}///@{{")
                out.append(f"{indent}///{tm.group(3)}")
                out.append(tm.group(1))
                out.extend(rest)
                out.append(f"{indent}///@}}")
                i = end
                continue
        out.append(convert_trailing(line))
        i += 1
    return out


def code(line):
    """The line without a trailing comment, right-stripped."""
    m = TRAILING.match(line)
    return (m.group(1) if m else line).rstrip()


def convert_trailing(line):
    m = TRAILING.match(line)
    if m and not line.strip().startswith("#"):
        return f"{m.group(1)}{m.group(2)}///<{m.group(3)}"
    return line


ERRORS = {
    "InvalidArgument": "A parameter out of its range.",
    "Uninitialized": "A buffer without data, or a filter without a transfer function.",
    "InvalidSize": "Sizes that do not match, are not powers of two or exceed 2048.",
    "UnboundWindow": "An image without pixels.",
    "InvalidBuffer": "A buffer whose store holds the result of an in-place inverse.",
    "BadCoord": "Element coordinates outside the grid.",
}
MACRO_USE = re.compile(r"^(\s*)KX_FREQUENCY_ERROR_CLASS\((\w+)\)\s*//\s*(0x[0-9a-fA-F]+)\s*$")


def macro_body(lines, definition):
    """The lines of the macro whose #define line starts with `definition`,
    without their continuation backslashes (none if it is not defined)."""
    body = []
    for i, line in enumerate(lines):
        if line.startswith(definition):
            j = i + 1
            while lines[j - 1].rstrip().endswith("\\"):
                body.append(lines[j].rstrip().rstrip("\\").rstrip())
                j += 1
            break
    return body


def expand_error_classes(lines):
    """Replaces each use of the error-class macro with its documented expansion."""
    body = macro_body(lines, "#define KX_FREQUENCY_ERROR_CLASS(Name)")
    if not body:
        return lines
    out = []
    for line in lines:
        m = MACRO_USE.match(line)
        if not m:
            out.append(line)
            continue
        indent, name, number = m.groups()
        out.append(f"{indent}/// {ERRORS.get(name, '')} Error number {number}.")
        for b in body:
            b = b.replace("Name", name)
            if b.strip() == f"explicit {name}(const char* message = nullptr);":
                out.append(f"{indent}    ///@{{")
                out.append(f"{indent}    /// With the message given at the throw site (null: none); copyable.")
            out.append(indent + b)
            if b.strip() == f"~{name}() override;":
                out.append(f"{indent}    ///@}}")
                out.append(f"{indent}    /// {number}.")
            if b.strip() == "long errorNumber() const override;":
                out.append(f"{indent}    /// As Errors::suicideAndRethrow().")
    return out


FILTER_USE = re.compile(r"^\s*KX_FILTER_CLASS_MEMBERS\((\w+)\)\s*$")


def expand_filter_classes(lines):
    """Replaces each use of the filter-class macro with its expansion, the
    public members documented as one group."""
    body = macro_body(lines, "#define KX_FILTER_CLASS_MEMBERS(Class)")
    if not body:
        return lines
    out = []
    for line in lines:
        m = FILTER_USE.match(line)
        if not m:
            out.append(line)
            continue
        for b in body:
            out.append(b.replace("Class", m.group(1)))
            if b.strip() == "public:":
                out.append("    // Copy, assignment, clone and comparison (same parameters and gains).")
    return out


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        lines = f.read().split("\n")
    lines = expand_filter_classes(expand_error_classes(lines))
    sys.stdout.write("\n".join(filter_lines(lines)))


if __name__ == "__main__":
    main()
