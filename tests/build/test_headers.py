"""The public headers compile by themselves, as C11 and as C++20, without a warning.

On the 32-bit target their static assertions on sizes and offsets apply.
"""

import glob
import os
import tempfile

from build_tree import SOURCE, TreeTest, run

PUBLIC = os.path.join(SOURCE, "include")
PLATFORM = os.path.join(SOURCE, "platform", "include")
LANGUAGES = (("gcc", "c", "-std=c11"), ("g++", "c++", "-std=c++20"))
WARNINGS = ("-Wall", "-Wextra", "-Wpedantic", "-Werror")

# vu_mom_types.h declares Python objects and asks for Python.h before it.
NEEDS_PYTHON = ("vu_mom_types.h",)
ONLY_CXX = ("vu_options.h",)


class Headers(TreeTest):
    def compile(self, header, compiler, language, standard, extra=()):
        name = os.path.basename(header)
        lines = ["#include <Python.h>"] if name in NEEDS_PYTHON else []
        # Twice: an include guard is part of it.
        lines += ["#include <%s>" % name] * 2 + list(extra) + [""]
        with tempfile.TemporaryDirectory() as directory:
            source = os.path.join(directory, "use")
            with open(source, "w") as file:
                file.write("\n".join(lines))
            run(
                *self.tree.compiler(compiler), "-x", language, standard, *WARNINGS,
                "-I" + PUBLIC, "-I" + PLATFORM, "-isystem", self.tree.python_include,
                "-c", source, "-o", os.path.join(directory, "use.o"),
            )

    def check(self, directory):
        headers = sorted(glob.glob(os.path.join(directory, "*.h")))
        self.assertTrue(headers)
        for header in headers:
            for compiler, language, standard in LANGUAGES:
                if language == "c" and os.path.basename(header) in ONLY_CXX:
                    continue
                with self.subTest(header=os.path.basename(header), language=language):
                    self.compile(header, compiler, language, standard)

    def test_public_headers_compile_alone(self):
        self.check(PUBLIC)

    def test_platform_headers_compile_alone(self):
        self.check(PLATFORM)

    def test_a_wrong_size_would_not_compile(self):
        """The check above can fail: the same compiler refuses an assertion that is false."""
        wrong = "VU_MOM_ASSERT(offsetof(vu_mom_reply, type_code) == 640, \"wrong on purpose\");"
        for compiler, language, standard in LANGUAGES:
            with self.subTest(language=language):
                with self.assertRaisesRegex(AssertionError, "wrong on purpose"):
                    self.compile("vu_mom_impl.h", compiler, language, standard, [wrong])

    def test_words_of_the_target(self):
        """On the 32-bit target the widths and the record are those of its interface."""
        if not self.tree.is_armhf:
            self.skipTest("this tree is not for the 32-bit target")
        sizes = [
            "VU_MOM_ASSERT(sizeof(void *) == 4, \"pointer\");",
            "VU_MOM_ASSERT(sizeof(vu_mom_message) == 4, \"message address\");",
            "VU_MOM_ASSERT(sizeof(size_t) == 4, \"field number\");",
            "VU_MOM_ASSERT(sizeof(vu_mom_reply) == 660, \"record\");",
        ] + [
            "VU_MOM_ASSERT(offsetof(vu_mom_reply, %s) == %d, \"%s\");" % (field, offset, field)
            for field, offset in (
                ("type_code", 644), ("data", 648), ("unread", 652), ("end_mark", 656))
        ]
        for compiler, language, standard in LANGUAGES:
            with self.subTest(language=language):
                self.compile("vu_mom_impl.h", compiler, language, standard, sizes)
