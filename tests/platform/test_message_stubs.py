"""The stubs of vu_message and vu_well_known say what the modules have, in the same words."""

import ast
import inspect
import pathlib

import pytest
import vu_message
import vu_well_known

MODULES = [vu_message, vu_well_known]
# What stands for other classes in the stub.
SHARED = {"_Repeated": "RepeatedMessages", "_Map": "MessageMap", "_Named": "Message"}


def stub_of(module):
    path = pathlib.Path(module.__file__).with_name(module.__name__ + ".pyi")
    return ast.parse(path.read_text())


def is_overload(node):
    return any(getattr(each, "id", "") == "overload" for each in node.decorator_list)


def documented(module):
    """Pairs of path and docstring of all classes and functions of a stub."""
    for node in stub_of(module).body:
        if isinstance(node, ast.FunctionDef):
            yield (node.name,), ast.get_docstring(node)
        if isinstance(node, ast.ClassDef):
            name = SHARED.get(node.name, node.name)
            if name == node.name:
                yield (name,), ast.get_docstring(node)
            for part in node.body:
                special = isinstance(part, ast.FunctionDef) and part.name.startswith("__")
                if isinstance(part, ast.FunctionDef) and not special and not is_overload(part):
                    yield (name, part.name), ast.get_docstring(part)


def find(module, path):
    found = module
    for name in path:
        found = inspect.getattr_static(found, name)
    return found.__func__ if isinstance(found, classmethod) else found


@pytest.mark.parametrize("module", MODULES, ids=lambda module: module.__name__)
def test_the_same_words(module):
    seen = 0
    for path, text in documented(module):
        assert inspect.cleandoc(find(module, path).__doc__ or "") == (text or ""), path
        assert text, path
        seen += 1
    assert seen > 40


def test_everything_well_known_is_in_the_stub():
    """Of vu_message, test_protoc_gen_vu.py tells it."""
    members = {path for path, _ in documented(vu_well_known)}
    for name, cls in vars(vu_well_known).items():
        if not inspect.isclass(cls):
            continue
        assert (name,) in members
        for member, value in vars(cls).items():
            if inspect.isfunction(value) and not member.startswith("_"):
                assert (name, member) in members
