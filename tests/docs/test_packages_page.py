"""docs/packages.md names what there is. The commands themselves are run by tests/build, below a
directory of its own, and by `./dev test packages`."""

import re

import page

TEXT = (page.ROOT / "docs" / "packages.md").read_text(encoding="utf-8")


def source(*path):
    return page.ROOT.joinpath(*path).read_text(encoding="utf-8")


def test_the_packages_and_their_components():
    named = re.findall(r"^\| `([\w-]+)` \| `(\w+)` \|", TEXT, re.M)
    made = re.findall(r"^vu_package\((\w+) ([\w-]+)$", source("cmake", "Packages.cmake"), re.M)
    assert len(made) == 4
    assert named == [(name, component) for component, name in made]


def test_the_targets():
    named = set(re.findall(r"^\| `(vu_mom::\w+)` \|", TEXT, re.M))
    text = source("include", "CMakeLists.txt") + source("platform", "CMakeLists.txt")
    text += source("platform", "store", "CMakeLists.txt")
    made = set(re.findall(r"EXPORT_NAME (\w+)", text))
    assert len(made) == 3
    assert named == {"vu_mom::" + name for name in made}


def test_the_project_is_that_of_the_tests():
    lines = source("tests", "packages", "consumer", "CMakeLists.txt").splitlines()
    [shown] = [block for block in page.blocks("packages.md") if block.language == "cmake"]
    for line in shown.text.splitlines():
        assert line in lines


def test_the_verbs_exist():
    tools = source("tools", "package.sh") + source("tools", "build.sh")
    verbs = set(re.findall(r"\./dev (\w+)", TEXT))
    assert verbs == {"package", "build", "test"}
    for verb in verbs - {"test"}:
        assert "\nverb_%s() {" % verb in tools
    assert "\nleg_packages() {" in tools
