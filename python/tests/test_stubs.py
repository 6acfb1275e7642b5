"""The type stubs (__init__.pyi) agree with the module.

mypy's stubtest checks that every public name exists on both sides with the
same kind. It cannot see the parameters of compiled functions (they have no
inspectable signature), so this file also compares each stub's parameter
list with the one pybind11 writes at the head of the function's docstring,
and with inspect.signature for functions written in Python."""
import ast
import inspect
import os
import pathlib
import re
import subprocess
import sys

import pytest

import kxfreq

import kxfreq.dask  # noqa: E402

STUB = pathlib.Path(kxfreq.__file__).with_name("__init__.pyi")
DASK_STUB = STUB.with_name("dask.pyi")
ALLOWLIST = pathlib.Path(__file__).with_name("stubtest_allowlist.txt")


def test_stubtest_finds_no_difference(tmp_path):
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    run = subprocess.run([sys.executable, "-m", "mypy.stubtest", "kxfreq", "--allowlist",
                          str(ALLOWLIST)],
                         cwd=tmp_path, env=env, capture_output=True, text=True)
    assert run.returncode == 0, run.stdout + run.stderr


# A parameter as (name, has a default, keyword-only); self is left out.
def split_top_level(text):
    parts, depth, current = [], 0, ""
    for ch in text:
        if ch in "([{":
            depth += 1
        elif ch in ")]}":
            depth -= 1
        if ch == "," and depth == 0:
            parts.append(current)
            current = ""
        else:
            current += ch
    if current.strip():
        parts.append(current)
    return [p.strip() for p in parts]


def parse_docstring_parameters(text):
    params, keyword_only = [], False
    for part in split_top_level(text):
        if part == "*":
            keyword_only = True
            continue
        name = re.split(r"[:=]", part, maxsplit=1)[0].strip()
        if name in ("self", "/") or name.startswith("*"):
            continue
        params.append((name, "=" in part, keyword_only))
    return tuple(params)


def runtime_signatures(obj, name):
    """Every signature of a runtime callable, as a set of parameter tuples."""
    try:
        signature = inspect.signature(obj)
    except (TypeError, ValueError):
        signature = None
    if signature is not None and not getattr(obj, "__doc__", "").startswith(name + "("):
        return {tuple((p.name, p.default is not p.empty, p.kind == p.KEYWORD_ONLY)
                      for p in signature.parameters.values() if p.name != "self")}
    found = set()
    for line in (obj.__doc__ or "").splitlines():
        match = re.match(r"^(?:\d+\. )?" + re.escape(name) + r"\((.*)\) -> ", line)
        if match:
            found.add(parse_docstring_parameters(match.group(1)))
    return found


def stub_parameters(node):
    args = node.args
    positional = args.posonlyargs + args.args
    defaults = [False] * (len(positional) - len(args.defaults)) + [True] * len(args.defaults)
    params = [(a.arg, d, False) for a, d in zip(positional, defaults) if a.arg != "self"]
    params += [(a.arg, d is not None, True) for a, d in zip(args.kwonlyargs, args.kw_defaults)]
    return tuple(params)


def stub_functions(stub=STUB):
    """(owner path, name) -> set of parameter tuples, from a stub file."""
    tree = ast.parse(stub.read_text())
    functions = {}

    def visit(body, owner):
        for node in body:
            if isinstance(node, ast.ClassDef):
                visit(node.body, owner + (node.name,))
            elif isinstance(node, ast.FunctionDef):
                decorators = {getattr(d, "id", getattr(d, "attr", None)) for d in node.decorator_list}
                if "property" in decorators:
                    continue
                functions.setdefault((owner, node.name), set()).add(stub_parameters(node))

    visit(tree.body, ())
    return functions


# Operators whose compiled parameter is named arg0 by pybind11.
UNNAMED = {"__eq__", "__deepcopy__", "__array__", "__reduce__"}


def test_every_stub_parameter_list_matches_the_runtime():
    functions = stub_functions()
    assert ("forward",) in {(n,) for (_, n) in functions}, "the stub file was not read"
    checked = 0
    for (owner, name), stubbed in functions.items():
        if name in UNNAMED:
            continue
        if owner and owner[0].startswith("_") and not hasattr(kxfreq, owner[0]):
            continue  # a stub-only base; its constructor is checked on the classes below
        target = kxfreq
        for part in owner:
            target = getattr(target, part)
        if name == "__init__" and "__init__" not in vars(target):
            continue  # the constructor a stub base declares is checked on each runtime class that has it
        runtime = runtime_signatures(getattr(target, name), name)
        assert runtime, f"no signature found for {'.'.join(owner + (name,))}"
        assert stubbed == runtime, f"{'.'.join(owner + (name,))}: stub {stubbed} != runtime {runtime}"
        checked += 1
    assert checked >= 30


@pytest.mark.parametrize("cls", ["Gabor", "GaborReject", "BandPass", "BandReject", "ImageFilter", "Spectrum"])
def test_runtime_constructors_match_the_stub(cls):
    functions = stub_functions()
    target = getattr(kxfreq, cls)
    stubbed = None
    for klass in target.__mro__:
        key = (((klass.__name__,)), "__init__")
        if key in functions:
            stubbed = functions[key]
            break
    assert stubbed is not None, f"no stub constructor for {cls}"
    assert stubbed == runtime_signatures(target.__init__, "__init__")


def test_the_dask_stub_matches_the_dask_module():
    functions = stub_functions(DASK_STUB)
    assert {name for (_, name) in functions} == set(kxfreq.dask.__all__)
    for (_, name), stubbed in functions.items():
        assert stubbed == runtime_signatures(getattr(kxfreq.dask, name), name), name
