"""The package's public names: documented, and described by the type stubs."""
import ast
import os

import kxfreq


def stub_names():
    path = os.path.join(os.path.dirname(kxfreq.__file__), "__init__.pyi")
    with open(path) as f:
        tree = ast.parse(f.read())
    names = {}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            names[node.name] = {n.name for n in node.body if isinstance(n, ast.FunctionDef)}
        elif isinstance(node, ast.FunctionDef):
            names[node.name] = set()
    return names


def public_members(cls):
    own = set()
    for klass in cls.__mro__:
        if klass.__module__.startswith("kxfreq"):
            own |= {n for n in vars(klass) if not n.startswith("_")}
    return own


def test_every_public_name_is_in_the_stubs_and_documented():
    stubs = stub_names()
    for name in kxfreq.__all__:
        obj = getattr(kxfreq, name)
        assert name in stubs, name
        assert obj.__doc__ and obj.__doc__.strip(), name
        if isinstance(obj, type) and not issubclass(obj, Exception):
            stubbed = set(stubs[name])
            for base in obj.__mro__[1:]:
                stubbed |= stubs.get(base.__name__, set())
            for member in public_members(obj):
                assert member in stubbed, f"{name}.{member}"
                assert getattr(obj, member).__doc__, f"{name}.{member}"


def test_module_functions_have_signatures_in_their_docstrings():
    for name in ["forward", "inverse", "inverse_angle", "inverse_quadrant", "inverse_complex", "multiply", "add",
                 "subtract", "conjugate", "map_image"]:
        assert getattr(kxfreq, name).__doc__.startswith(name + "(")
