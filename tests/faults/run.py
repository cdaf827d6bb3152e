"""Runs the suite of failures: run.py BUILD_DIR SUITE [--whole] [unittest arguments].

SUITE is one of

  calls    each call that the binding makes fails once
  memory   each allocation fails once, and all from the n-th on
  slopes   what calls leave behind does not grow
  platform each allocation fails in the platform's modules, and in their imports
  platform_calls each call that they make of the interpreter fails once
  platform_slopes what actions on them leave behind does not grow

--whole does what takes too long for every run of the tests: see docs/reliability.md.
"""
import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
# Each suite, and whose vu_mom it runs on: that of the binding's suite is the ordinary one,
# with stand-ins for all else.
MODULES = {"calls": "faults", "memory": "faults", "slopes": "binding", "platform": None,
           "platform_calls": None, "platform_slopes": None}


# A thread's cache of free blocks counts as used.
NO_CACHES = "glibc.malloc.tcache_count=0"


def main():
    if len(sys.argv) < 3 or not os.path.isdir(sys.argv[1]) or sys.argv[2] not in MODULES:
        sys.exit("usage: run.py BUILD_DIR %s [--whole] [unittest arguments]" % "|".join(MODULES))
    build, suite = os.path.abspath(sys.argv[1]), sys.argv[2]
    arguments = [argument for argument in sys.argv[3:] if argument != "--whole"]
    whole = len(arguments) < len(sys.argv) - 3
    malloc = os.path.join(build, "tests", "faults", "lib", "libvu_faults_malloc.so")
    if suite in ("memory", "platform") and "VU_FAULTS_PRELOADED" not in os.environ:
        # The interpreter's small blocks too come from malloc then.
        os.environ.update(LD_PRELOAD=malloc, VU_FAULTS_PRELOADED="1", PYTHONMALLOC="malloc",
                          GLIBC_TUNABLES=NO_CACHES)
        os.execv(sys.executable, [sys.executable] + sys.argv)

    modules = MODULES[suite]
    if modules:
        paths = [HERE, os.path.join(os.path.dirname(HERE), "binding")]
        paths += [os.path.join(build, "tests", name, "python") for name in (modules, "binding")]
    else:
        paths = [HERE, os.path.join(build, "python")]
        if suite == "platform_calls":
            paths.insert(1, os.path.join(build, "tests", "faults", "platform"))
            os.environ["GLIBC_TUNABLES"] = NO_CACHES  # of the processes that it starts
    sys.path[:1] = paths
    os.environ.update(VU_MOM_TEST_BUILD=build, PYTHONPATH=os.pathsep.join(paths),
                      PYTHONDONTWRITEBYTECODE="1")
    if whole:
        os.environ["VU_FAULTS_WHOLE"] = "1"
    sys.dont_write_bytecode = True

    if all(argument.startswith("-") for argument in arguments):
        more = {"slopes": ["test_reply_slopes"], "platform": ["test_platform_imports"]}
        arguments += ["test_" + suite] + more.get(suite, [])
    unittest.main(module=None, argv=["run.py"] + arguments)


if __name__ == "__main__":
    main()
