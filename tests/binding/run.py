"""Runs the binding's test suite: run.py BUILD_DIR [unittest arguments].

BUILD_DIR is a configured and built directory such as build/host. Everything after it is
unittest's: names of tests (test_keys, test_lists.Lrem) and options; without names, all
tests run. The interpreter that runs this file is the one that is tested.
"""
import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))


def main():
    if len(sys.argv) < 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("usage: run.py BUILD_DIR [unittest arguments]")
    build = os.path.abspath(sys.argv[1])
    os.environ["VU_MOM_TEST_BUILD"] = build
    # Children of the tests find the same files; the platform's own modules stay out of sight.
    paths = [HERE, os.path.join(build, "tests", "binding", "python")]
    os.environ["PYTHONPATH"] = os.pathsep.join(paths)
    sys.path[:1] = paths
    sys.dont_write_bytecode = True
    os.environ["PYTHONDONTWRITEBYTECODE"] = "1"

    arguments = sys.argv[2:]
    if all(argument.startswith("-") for argument in arguments):
        arguments += sorted(
            name[:-3] for name in os.listdir(HERE)
            if name.startswith("test_") and name.endswith(".py"))
    unittest.main(module=None, argv=["run.py"] + arguments)


if __name__ == "__main__":
    main()
