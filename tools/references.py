"""Checks how the extension modules count references: `references.py DIRECTORY...`.

Ownership is in the type (src/python/reference.h), so outside of src/python/

  * no count is changed by hand, but for Py_CLEAR of a field of a struct that goes away;
  * no plain pointer takes what a function of the interpreter hands out as a new reference.
"""
import os
import re
import sys

COUNTING = re.compile(r"\bPy_(?:X?INCREF|X?DECREF|X?NewRef|X?SETREF)\b")
POINTER = re.compile(
    r"\bPy\w*Object\s*\*\s*(?:const\s+)?\w+\s*=\s*(?:reinterpret_cast<[^>]*>\()?(_?Py\w+)\(")
# What these answer belongs to somebody else.
BORROWED = {
    "PyTuple_GET_ITEM", "PyList_GET_ITEM", "PyDict_GetItemWithError", "PyImport_GetModuleDict",
    "PyModule_GetDict", "PyType_GetDict", "Py_TYPE",
}


def findings(path):
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            code = line.split("//")[0]
            counting = COUNTING.search(code)
            if counting:
                yield number, "%s by hand: use py::Owned" % counting.group()
            pointer = POINTER.search(code)
            if pointer and pointer.group(1) not in BORROWED:
                yield number, "a plain pointer takes a new reference from %s" % pointer.group(1)


def sources(directory):
    for parent, _, names in sorted(os.walk(directory)):
        if parent.endswith(os.path.join("src", "python")):
            continue
        for name in sorted(names):
            if name.endswith((".cpp", ".h")):
                yield os.path.join(parent, name)


def main(*directories):
    bad = False
    for directory in directories:
        for path in sources(directory):
            for number, text in findings(path):
                print("%s:%d: %s" % (path, number, text))
                bad = True
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
