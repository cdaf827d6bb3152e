"""The plugin: what it writes and what it refuses."""

import ast
import errno
import pathlib
import shutil
import subprocess
import sys
import textwrap

import pytest
from message_support import BUILD, PROTOS

PLUGIN = str(BUILD / "bin" / "protoc-gen-vu")


def is_for_this_processor(program):
    try:
        subprocess.run([program], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
    except OSError as error:
        if error.errno == errno.ENOEXEC:
            return False
        raise
    return True


pytestmark = pytest.mark.skipif(
    not is_for_this_processor(PLUGIN), reason="protoc cannot start a plugin for another processor"
)


def compile_protos(directory, *names, root=None, options=""):
    return subprocess.run(
        [
            "protoc",
            "--plugin=protoc-gen-vu=" + PLUGIN,
            "--vu_out=%s:%s" % (options, directory),
            "-I",
            str(root or directory),
            "-I",
            str(BUILD / "share"),
        ]
        + list(names),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        env={"PATH": "/usr/bin:/bin", "ASAN_OPTIONS": "detect_leaks=0"},
    )


def refusal(directory, body, head='syntax = "proto3"; package demo; import "vu/options.proto";'):
    """What protoc says to a file, which must be refused and leave nothing behind."""
    directory.joinpath("a").mkdir(exist_ok=True)
    directory.joinpath("a", "bad.proto").write_text(head + "\n" + textwrap.dedent(body))
    result = compile_protos(directory, "a/bad.proto")
    assert result.returncode != 0
    assert [path.name for path in directory.glob("**/*_vu*")] == []
    return result.stdout.strip()


REFUSED = [
    (
        "string a = 1 [(vu.key) = 1]; string b = 2 [(vu.key) = 1];",
        "b",
        "key position 1 is already that of field a",
    ),
    (
        "string a = 1 [(vu.key) = 1]; string b = 2 [(vu.key) = 3];",
        "b",
        "key position 3, but no field has position 2",
    ),
    ("string a = 1 [(vu.key) = 2];", "a", "key position 2, but no field has position 1"),
    ("string a = 1 [(vu.key) = 0];", "a", "a key position must be at least 1, not 0"),
    ("M a = 1 [(vu.key) = 1];", "a", "a message cannot be a key field"),
    ("float a = 1 [(vu.key) = 1];", "a", "a float cannot be a key field"),
    ("double a = 1 [(vu.key) = 1];", "a", "a double cannot be a key field"),
    ("repeated int32 a = 1 [(vu.key) = 1];", "a", "a repeated field cannot be a key field"),
    ("map<string, int32> a = 1 [(vu.key) = 1];", "a", "a map cannot be a key field"),
    (
        "oneof one { string a = 1 [(vu.key) = 1]; string b = 2; }",
        "a",
        "a member of the oneof one cannot be a key field",
    ),
    (
        "int32 a = 1 [(vu.counter) = true]; int32 b = 2 [(vu.counter) = true];",
        "b",
        "field a is the counter already",
    ),
    ("string a = 1 [(vu.counter) = true];", "a", "the counter must be a single integer"),
    ("double a = 1 [(vu.counter) = true];", "a", "the counter must be a single integer"),
    ("bool a = 1 [(vu.counter) = true];", "a", "the counter must be a single integer"),
    ("E a = 1 [(vu.counter) = true];", "a", "the counter must be a single integer"),
    ("repeated int32 a = 1 [(vu.counter) = true];", "a", "the counter must be a single integer"),
    (
        "map<string, int32> a = 1 [(vu.counter) = true];",
        "a",
        "the counter must be a single integer",
    ),
    (
        "int32 a = 1 [(vu.key) = 1, (vu.counter) = true];",
        "a",
        "a key field cannot be the counter",
    ),
    (
        "int32 package_name = 1;",
        "package_name",
        "every message class has an attribute of this name; choose another",
    ),
    (
        "int32 get_ptr = 1;",
        "get_ptr",
        "every message class has an attribute of this name; choose another",
    ),
    (
        "int32 __init__ = 1;",
        "__init__",
        "every message class has an attribute of this name; choose another",
    ),
]


@pytest.mark.parametrize("fields, field, reason", REFUSED)
@pytest.mark.parametrize("nested", [False, True])
def test_refused(tmp_path, fields, field, reason, nested):
    body = "enum E { Z = 0; } message M { %s }" % fields
    name = "demo.M"
    if nested:
        body, name = "message Outer { int32 fine = 1; %s }" % body, "demo.Outer.M"
    said = refusal(tmp_path, body)
    said = [line for line in said.splitlines() if "warning: Import" not in line]
    assert said == ["--vu_out: a/bad.proto: message %s, field %s: %s" % (name, field, reason)]


def test_refused_extension(tmp_path):
    said = refusal(
        tmp_path,
        "message M { extensions 10 to 20; } extend M { optional int32 e = 10 [(vu.key) = 1]; }",
        head='syntax = "proto2"; package demo; import "vu/options.proto";',
    )
    assert said.endswith("field e: an extension can be neither a key field nor the counter")


def test_negative_position(tmp_path):
    assert '"vu.key"' in refusal(tmp_path, "message M { int32 a = 1 [(vu.key) = -1]; }")


def test_unknown_parameter(tmp_path):
    tmp_path.joinpath("a.proto").write_text('syntax = "proto3";')
    result = compile_protos(tmp_path, "a.proto", options="fast")
    assert result.returncode != 0
    assert "no parameters are known, not 'fast'" in result.stdout


def test_allowed_keys(tmp_path):
    tmp_path.joinpath("good.proto").write_text(
        textwrap.dedent(
            """
            syntax = "proto3";
            import "vu/options.proto";
            enum E { ZERO = 0; }
            message Keys {
              bool a = 4 [(vu.key) = 1];
              E b = 3 [(vu.key) = 2];
              bytes c = 2 [(vu.key) = 3];
              optional string d = 1 [(vu.key) = 4];
              fixed64 e = 9 [(vu.key) = 5];
              sint32 f = 8 [(vu.key) = 6];
              sfixed64 hits = 7 [(vu.counter) = true];
              int32 no = 10 [(vu.counter) = false];
            }
            message None_of_them { int32 a = 1; }
            """
        )
    )
    assert compile_protos(tmp_path, "good.proto").returncode == 0
    code = (
        "import good_vu as g; d = g.Keys.DESCRIPTOR;"
        "print([f.name for f in d.key_fields], d.counter.name, repr(g.Keys.package_name))"
    )
    printed = subprocess.run(
        [sys.executable, "-c", code],
        stdout=subprocess.PIPE,
        universal_newlines=True,
        check=True,
        env=dict(__import__("os").environ, PYTHONPATH="%s:%s" % (tmp_path, BUILD / "python")),
    ).stdout
    assert printed == "['a', 'b', 'c', 'd', 'e', 'f'] hits ''\n"


ALL = sorted(str(path.relative_to(PROTOS)) for path in PROTOS.glob("**/*.proto"))


@pytest.fixture(scope="module")
def generated(tmp_path_factory):
    directory = tmp_path_factory.mktemp("generated")
    result = compile_protos(directory, *ALL, root=PROTOS)
    assert result.returncode == 0, result.stdout
    return directory


def test_the_same_files_every_time(generated):
    paths = sorted(path.relative_to(generated) for path in generated.glob("**/*_vu.py*"))
    assert len(paths) == 2 * len(ALL)
    for path in paths:
        assert (generated / path).read_text() == (BUILD / "python" / path).read_text()


def test_old_interpreters_can_read_the_modules(generated):
    for path in generated.glob("**/*_vu.py"):
        ast.parse(path.read_text(), feature_version=(3, 4))


def test_stubs_describe_every_field(generated):
    sys.path.insert(0, str(BUILD / "python"))
    import vu_test_tree_vu as tree

    stub = ast.parse((generated / "vu_test_tree_vu.pyi").read_text())
    (node,) = [item for item in stub.body if isinstance(item, ast.ClassDef)]
    fields = {
        item.target.id: ast.unparse(item.annotation)
        for item in node.body
        if isinstance(item, ast.AnnAssign)
    }
    names = {field.name for field in tree.Node.DESCRIPTOR.fields}
    numbers = {name.upper() + "_FIELD_NUMBER" for name in names}
    assert set(fields) == names | numbers
    assert {fields[name] for name in numbers} == {"typing.ClassVar[builtins.int]"}
    assert fields["name"] == "vu_message.Field[builtins.str, builtins.str]"
    assert fields["counts"].startswith("vu_message.Field[vu_message.ScalarMap[builtins.str, builtins.int]")
    constructors = [item for item in node.body if isinstance(item, ast.FunctionDef)]
    assert [len(item.args.kwonlyargs) for item in constructors] == [0, len(names)]


def test_stubs_have_the_comments(generated):
    stub = ast.parse((generated / "vu_test_scalars_vu.pyi").read_text())
    named = (ast.ClassDef, ast.FunctionDef)
    texts = {item.name: ast.get_docstring(item) for item in stub.body if isinstance(item, named)}
    assert texts["Color"] == "How things are."
    assert texts["Single"] == 'One field of each type.\nThe second line has "quotes" and a \\ in it.'
    assert texts["Maps"] is None
    assert (
        "        name: vu_message.Field[builtins.str, builtins.str]\n"
        '        """What it is called."""\n'
    ) in (generated / "vu_test_tree_vu.pyi").read_text()


def test_stubs_name_what_the_runtime_has():
    import vu_message

    stub = ast.parse((BUILD / "python" / "vu_message.pyi").read_text())
    names = {}
    for item in stub.body:
        if isinstance(item, (ast.ClassDef, ast.FunctionDef)) and not item.name.startswith("_"):
            names[item.name] = item
    assert set(names) == {name for name in dir(vu_message) if not name.startswith("_")}
    for name, item in names.items():
        runtime = getattr(vu_message, name)
        assert runtime.__doc__, name
        if not isinstance(item, ast.ClassDef) or name in ("RepeatedScalars", "ScalarMap"):
            continue
        described = {part.name for part in item.body if isinstance(part, ast.FunctionDef)}
        described |= {part.target.id for part in item.body if isinstance(part, ast.AnnAssign)}
        generated = {"DESCRIPTOR", "package_name", "short_name"}
        for attribute in described - generated:
            assert hasattr(runtime, attribute), "%s.%s" % (name, attribute)
        own = {a for a in vars(runtime) if not a.startswith("_")}
        if name in ("RepeatedMessages", "MessageMap"):
            continue  # the rest is in their bases
        assert own <= described, "%s: %s" % (name, own - described)


TYPED = """
import datetime
import typing
import vu_test_scalars_vu as scalars
import vu_test_tree_vu as tree
import vu_well_known

node = tree.Node(name="n", child={"name": "c"}, leaves=[tree.Node.Leaf(name="l")], counts={"a": 1})
text: str = node.name
child: tree.Node = node.child
leaf: tree.Node.Leaf = node.leaves[0]
values: typing.List[int] = node.leaf.values[1:]
number: int = node.counts["a"]
inner: tree.Node.Leaf = node.by_name["x"]
kind: int = tree.Node.Leaf.GOLDEN
node.leaf = {"name": "x"}
node.leaves = [tree.Node.Leaf()]
node.color = scalars.Color.RED
copy: tree.Node = tree.Node(node.get_ptr())
again: tree.Node = tree.Node.FromString(copy.SerializeToString())
tag: int = tree.Node.name.number
constant: int = tree.Node.NAME_FIELD_NUMBER
for key, item in node.by_name.items():
    both: typing.Tuple[str, str] = (key, item.name)
moment: datetime.datetime = node.time.ToDatetime()
node.time = vu_well_known.Timestamp(seconds=5)
node.wrapped = {"value": "x"}
wrapped: str = node.wrapped.value
json: str = node.ToJson(indent=2)
read: tree.Node = tree.Node.FromJson(json, ignore_unknown_fields=True)
node.time.FromDatetime(5)  # error
node.time = vu_well_known.Duration()  # error
node.ToJson(defaults=True)  # error
node.name = 5  # error
node.child = tree.Node.Leaf()  # error
tree.Node(nom="x")  # error
wrong: int = node.name  # error
node.leaves.append(5)  # error
"""


def mypy_errors(directory, *files):
    """Pairs of file name and line, and all that mypy said."""
    result = subprocess.run(
        ["mypy", "--strict", "--cache-dir", str(directory / "cache")] + list(map(str, files)),
        cwd=directory,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        env={"PATH": "/usr/bin:/bin", "MYPYPATH": str(BUILD / "python")},
    )
    errors = [line.split(":") for line in result.stdout.splitlines() if ": error:" in line]
    return {(pathlib.Path(error[0]).name, int(error[1])) for error in errors}, result.stdout


needs_mypy = pytest.mark.skipif(shutil.which("mypy") is None, reason="mypy is not installed")


@needs_mypy
def test_stubs_with_mypy(tmp_path):
    tmp_path.joinpath("typed.py").write_text(TYPED)
    wrong = {i for i, line in enumerate(TYPED.splitlines(), 1) if "# error" in line}
    errors, said = mypy_errors(tmp_path, "typed.py")
    assert errors == {("typed.py", line) for line in wrong}, said


@needs_mypy
def test_stubs_are_right_in_themselves(generated):
    errors, said = mypy_errors(generated, *generated.glob("**/*.pyi"))
    assert errors == set() and "no issues found in %d source files" % len(ALL) in said, said


@needs_mypy
def test_stubs_of_fields_that_hide_methods(tmp_path):
    import vu_message

    names = [name for name in dir(vu_message.Message) if name[0].isupper()]
    fields = ["int32 %s = %d;" % (name, number) for number, name in enumerate(names, 1)]
    text = 'syntax = "proto3"; message Hiding { %s }' % " ".join(fields)
    tmp_path.joinpath("hiding.proto").write_text(text)
    assert compile_protos(tmp_path, "hiding.proto").returncode == 0
    errors, said = mypy_errors(tmp_path, "hiding_vu.pyi")
    assert len(names) > 10 and errors == set(), said
