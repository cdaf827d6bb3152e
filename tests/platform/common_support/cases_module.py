"""The module as a whole: its types, their sizes, their documentation and the stub."""

import ast
import inspect
import os
import struct
import sys
import unittest
from typing import Any, Optional

import delivery
from delivery import common

WORDS = {
    2: "GetResult IncrResult SetnxResult LlenResult LinsertResult LminsertResult LmremResult "
    "LsetResult SaveResult ZcardResult ZrankResult ZscoreResult ZcountResult ScardResult "
    "SismemberResult",
    3: "PubSubMsg HashResult SetResult ListResult SortedsetResult SmembersResult LrangeResult "
    "ZrangeResult ZrangebyscoreResult",
}
NAMES = set(name for names in WORDS.values() for name in names.split())
BASES = {"ValueResult", "MessagesResult", "ScoredResult"}


class Types(unittest.TestCase):
    def test_names(self):
        self.assertEqual(set(n for n in dir(common) if n[0] != "_"), NAMES | BASES)
        for name in NAMES | BASES:
            cls = getattr(common, name)
            self.assertEqual((cls.__module__, cls.__name__), ("vu_mom_common", name))

    def test_sizes(self):
        self.assertEqual(len(NAMES), 24)
        for words, names in WORDS.items():
            for name in names.split():
                cls = getattr(common, name)
                self.assertEqual(
                    cls.__basicsize__, object.__basicsize__ + words * struct.calcsize("P"), name
                )
                self.assertEqual((cls.__itemsize__, cls.__dictoffset__), (0, 0))

    def test_everything_is_documented(self):
        self.assertTrue(inspect.getdoc(common))
        for name in NAMES | BASES:
            cls = getattr(common, name)
            self.assertTrue(inspect.getdoc(cls), name)
            for attribute, value in vars(cls).items():
                if attribute[0] != "_":
                    self.assertTrue(inspect.getdoc(value), name + "." + attribute)

    def test_signatures(self):
        for names, expected in (
            (WORDS[2], "(data)"),
            (WORDS[3].replace("PubSubMsg ", ""), "(data, cls)"),
            ("PubSubMsg", "(record)"),
        ):
            for name in names.split():
                self.assertEqual(str(inspect.signature(getattr(common, name))), expected)
        self.assertEqual(str(inspect.signature(common.IncrResult.of)), "(value)")
        self.assertEqual(str(inspect.signature(common.LrangeResult.of)), "(messages, cls)")
        self.assertEqual(str(inspect.signature(common.ZrangeResult.of)), "(pairs, cls)")
        self.assertEqual(str(inspect.signature(common.HashResult.of)), "(obj, tags, cls)")
        self.assertEqual(
            str(inspect.signature(common.PubSubMsg.of)),
            "(result=None, type_code=0, end=0, status=0, error='', db=0, key=(), tag=0, time=0.0, "
            "count=0)",
        )

    def test_brackets_are_for_annotations(self):
        for name in NAMES | BASES:
            cls = getattr(common, name)
            self.assertIs(cls.__class_getitem__(int), cls)


@unittest.skipIf(sys.version_info < (3, 8), "stubs are written for newer interpreters")
class Stub(unittest.TestCase):
    module_doc: Optional[str]
    classes: dict[str, ast.ClassDef]

    @classmethod
    def setUpClass(cls):
        path = os.path.join(os.path.dirname(common.__file__), "vu_mom_common.pyi")
        with open(path) as file:
            tree = ast.parse(file.read())
        cls.module_doc = ast.get_docstring(tree)
        cls.classes = {n.name: n for n in tree.body if isinstance(n, ast.ClassDef)}

    def functions(self, name):
        return [n for n in self.classes[name].body if isinstance(n, ast.FunctionDef)]

    def test_names(self):
        self.assertEqual(set(self.classes), NAMES | BASES)
        for name in NAMES | BASES:
            stated = set(f.name for f in self.functions(name) if f.name[0] != "_")
            present = set(n for n in vars(getattr(common, name)) if n[0] != "_")
            self.assertEqual(stated, present, name)

    def test_special_methods_exist(self):
        for name in NAMES | BASES:
            for function in self.functions(name):
                self.assertTrue(hasattr(getattr(common, name), function.name), (name, function.name))
        for name in NAMES - {"ZscoreResult"}:
            stated = "__index__" in [f.name for f in self.functions(name)]
            self.assertEqual(stated, hasattr(getattr(common, name), "__index__"), name)

    def test_bases_and_finality(self):
        for name in NAMES:
            cls, node = getattr(common, name), self.classes[name]
            bases = [getattr(b, "value", b).id for b in node.bases]
            if cls.__base__ is object:
                self.assertEqual(bases, ["Generic"])
            else:
                self.assertEqual(bases, [cls.__base__.__name__])
            decorators: list[Any] = node.decorator_list
            self.assertEqual([each.id for each in decorators], ["final"])

    def test_docstrings(self):
        def words(text):
            return " ".join(text.split())

        self.assertEqual(words(self.module_doc), words(common.__doc__))
        for name in NAMES | BASES:
            cls = getattr(common, name)
            self.assertEqual(words(ast.get_docstring(self.classes[name])), words(cls.__doc__))
            for function in self.functions(name):
                doc = ast.get_docstring(function)
                if function.name[0] != "_":
                    self.assertEqual(words(doc), words(getattr(cls, function.name).__doc__))

    def test_parameters(self):
        for name in NAMES:
            cls = getattr(common, name)
            for function in self.functions(name):
                if function.name not in ("__new__", "of"):
                    continue
                stated = [a.arg for a in function.args.args][1:]
                real = cls if function.name == "__new__" else cls.of
                self.assertEqual(stated, list(inspect.signature(real).parameters))


assert delivery.library is not None

if __name__ == "__main__":
    unittest.main()
