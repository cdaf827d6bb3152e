"""vu-mom. Most tests give one run several commands, over an embedded store that lives as long
as the run."""

import asyncio
import contextlib
import io
import json
import math
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import textwrap

import pytest
from google.protobuf import json_format
from message_support import BUILD, PROTOS, google_module

from vu_aio import Client
from vu_global import VuGlobal
from vu_tool import main, protos, values
from vu_tool.context import Context

TOOL = BUILD / "bin" / "vu-mom"
CONTRACT = pathlib.Path(__file__).parents[1] / "contract" / "contract.proto"


@pytest.fixture
def environment():
    return dict(os.environ, VU_MOM_STORE="embedded:tool", VU_MOM_PROTO=str(CONTRACT))


class Ran:
    def __init__(self, status, output, errors):
        self.status, self.output, self.errors = status, output, errors

    @property
    def json(self):
        return [json.loads(line) for line in self.output.splitlines()]


@pytest.fixture
def tool(environment, monkeypatch):
    """Runs the tool with these words; in this process, which is quicker."""

    def run(*words, stdin="", **variables):
        output, errors = io.StringIO(), io.StringIO()
        monkeypatch.setattr(sys, "stdin", io.TextIOWrapper(io.BytesIO(stdin.encode())))
        monkeypatch.setattr(os, "environ", {**environment, **variables})
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(errors):
            status = main.main(list(map(str, words)), str(TOOL.parent))
        return Ran(status, output.getvalue(), errors.getvalue())

    return run


@pytest.fixture
def program(environment):
    """Runs the program itself."""

    def run(*words, stdin="", **variables):
        child = subprocess.run(
            [sys.executable, str(TOOL), *map(str, words)],
            input=stdin,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            universal_newlines=True,
            timeout=120,
            env={**environment, **variables},
        )
        return Ran(child.returncode, child.stdout, child.stderr)

    return run


@pytest.fixture
def shell(tool):
    """Runs commands, one on each line, in one run."""

    def run(commands, *options):
        return tool(*options, "shell", stdin=textwrap.dedent(commands))

    return run


def ended(ran):
    """What a run printed that has ended well."""
    assert (ran.status, ran.errors) == (0, "")
    return ran.output


PORT = "site=north rack=1 slot=%d"
FILL = """
    set Port site=north rack=1 slot=1 name='eth 0' speed=10 up=yes lanes=1 lanes=2 last.time=7
    set Port site=north rack=1 slot=2 --kind hash name=h speed=20
    set Port site=north rack=2 slot=1 --kind list name=first
    set Port site=north rack=2 slot=1 --kind list name=second
    set Port site=south rack=1 slot=1 --kind set name=member
    set Port site=south rack=1 slot=2 --kind zset name=z --score 2.5
    set Port site=south rack=1 slot=2 --kind zset name=a --score=-inf
    set Settings mode=fast limit=-9223372036854775808
"""
DUMPED = [
    {
        "type": "contract.Port",
        "kind": "single",
        "value": {
            "name": "eth 0",
            "speed": "10",
            "rack": 1,
            "up": True,
            "site": "north",
            "lanes": [1, 2],
            "last": {"time": "7"},
            "slot": 1,
        },
    },
    {
        "type": "contract.Port",
        "kind": "hash",
        "fields": ["name", "speed"],
        "value": {"name": "h", "speed": "20", "rack": 1, "site": "north", "slot": 2},
    },
    {
        "type": "contract.Port",
        "kind": "list",
        "values": [
            {"name": "first", "rack": 2, "site": "north", "slot": 1},
            {"name": "second", "rack": 2, "site": "north", "slot": 1},
        ],
    },
    {
        "type": "contract.Port",
        "kind": "set",
        "values": [{"name": "member", "rack": 1, "site": "south", "slot": 1}],
    },
    {
        "type": "contract.Port",
        "kind": "zset",
        "values": [
            {"name": "a", "rack": 1, "site": "south", "slot": 2},
            {"name": "z", "rack": 1, "site": "south", "slot": 2},
        ],
        "scores": ["-Infinity", 2.5],
    },
    {
        "type": "contract.Settings",
        "kind": "single",
        "value": {"mode": "fast", "limit": "-9223372036854775808"},
    },
]


def in_order(records):
    return sorted(records, key=json.dumps)


# ---- Reading and writing --------------------------------------------------------------


def test_tables(shell):
    output = ended(
        shell(
            FILL
            + """
    get Port site=north rack=1 slot=1
    get Port site=north rack=2 slot=1
    scan
    scan Port site=north rack=1 --keys
    """
        )
    )
    assert output == textwrap.dedent(
        """\
        site   north
        rack   1
        slot   1
        name   eth 0
        speed  10
        up     true
        lanes  [1,2]
        last   {"time":"7"}
        SITE   RACK  SLOT  (KIND)  NAME
        north     2     1  list 0  first
        north     2     1  list 1  second
        contract.Port
        SITE   RACK  SLOT  (KIND)     NAME    SPEED  UP    LANES  LAST
        north     1     1  single     eth 0      10  true  [1,2]  {"time":"7"}
        north     1     2  hash       h          20  -     -      -
        north     2     1  list 0     first       -  -     -      -
        north     2     1  list 1     second      -  -     -      -
        south     1     1  set 0      member      -  -     -      -
        south     1     2  zset -inf  a           -  -     -      -
        south     1     2  zset 2.5   z           -  -     -      -

        contract.Settings
        MODE                 LIMIT
        fast  -9223372036854775808
        SITE   RACK  SLOT
        north     1     1
        north     1     2
        """
    )


def test_json(shell):
    ran = shell(
        FILL
        + """
    get Port site=north rack=1 slot=1
    scan
    scan Port site=south --keys
    scan Port --limit 2
    ttl Settings 100
    del Settings
    """,
        "--json",
    )
    assert (ran.status, ran.errors) == (0, "")
    [got, *scanned, key1, key2, _, _, ttl, deleted] = ran.json
    assert got == DUMPED[0]
    assert in_order(scanned) == in_order(DUMPED)
    assert in_order([key1, key2]) == [
        {"type": "contract.Port", "key": {"rack": 1, "site": "south", "slot": slot}}
        for slot in (1, 2)
    ]
    assert ttl == deleted == {"type": "contract.Settings", "objects": 1}


def test_set_replaces_and_refuses(shell):
    ran = shell(
        """
    set Settings mode=a starts=1
    set Settings '{"mode": "b", "limit": "5"}'
    get Settings --json
    set Settings mode=c --new
    del Settings
    set Settings mode=d --new
    get Settings --json
    set Settings --kind list mode=e
    """
    )
    assert [each["value"] for each in map(json.loads, ran.output.splitlines()[::2])] == [
        {"mode": "b", "limit": "5"},
        {"mode": "d"},
    ]
    assert ran.output.splitlines()[1] == "1 object"
    assert ran.errors.splitlines() == [
        "vu-mom: standard input:5: something is stored there already",
        "vu-mom: standard input:9: nothing was changed: the object is a single, not a list",
    ]
    assert ran.status == 3


def test_databases_are_apart(shell):
    ran = shell("set --db 3 Settings mode=x\nget Settings\nget Settings --db 3\n")
    assert (ran.status, ran.output) == (1, "mode  x\n")


def test_lifetimes(shell):
    ran = shell(
        FILL
        + """
    ttl Port 100 site=north --all
    ttl Port none site=north --all
    ttl Port 100 site=north rack=1 slot=2 --field name --field speed
    ttl Port -1 site=south --all
    ttl Port 1 site=nowhere --all
    scan Port site=south
    get Port site=north rack=1 slot=2
    """
    )
    assert ran.output.split("site")[0] == "3 objects\n3 objects\n1 object\n2 objects\n0 objects\n"
    assert "name   h\n" in ran.output
    assert ran.errors == "vu-mom: standard input:16: nothing is stored there\n"
    assert ran.status == 1


def test_options_stand_anywhere(tool, environment):
    del environment["VU_MOM_STORE"], environment["VU_MOM_PROTO"]
    options = ["--store", "embedded:", "--proto", CONTRACT, "--db", "1"]
    ended(tool(*options, "set", "Settings", "mode=x"))
    ended(tool("set", *options, "Settings", "mode=x"))
    ended(tool("set", "Settings", *options, "mode=x", "starts=1"))
    ended(tool("--proto", PROTOS / "vu_test_scalars.proto", "publish", "Settings", *options))


# ---- dump and load -----------------------------------------------------------------------


def test_dump_and_load(shell, tool, tmp_path):
    file = tmp_path / "dump.json"
    dumped = shell(FILL + "dump --output %s\ndel Port --all\nload %s\nscan --json" % (file, file))
    assert dumped.status == 0
    lines = [json.loads(line) for line in file.read_text().splitlines()]
    assert in_order(lines) == in_order(DUMPED)
    assert in_order(map(json.loads, dumped.output.splitlines()[1:])) == in_order(DUMPED)
    assert dumped.errors.split(", ")[0] == "dumped 6 objects"
    assert dumped.errors.splitlines()[1].startswith("loaded 6 of 6 objects, ")
    assert file.stat().st_mode & 0o777 == 0o666 & ~current_umask()
    # From standard input, in place of what is there, of another kind too.
    other = shell(
        "set Settings --kind list mode=old\nload %s\nget Settings --json" % shlex.quote(str(file))
    )
    assert json.loads(other.output) == DUMPED[-1]
    loaded = tool("load", stdin=file.read_text())
    assert (loaded.status, loaded.output) == (0, "")


def current_umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


def test_dump_of_some_types(shell):
    ran = shell(FILL + "dump Settings\n")
    assert ran.json == DUMPED[-1:]


def test_long_work_tells_its_progress(tool):
    lines = "".join(
        '{"type": "Settings", "kind": "single", "value": {"starts": %d}}\n' % number
        for number in range(20000)
    )
    ran = tool("load", "--progress", stdin=lines)
    reports = [report.split()[:4] for report in ran.errors.splitlines() if report]
    assert ran.status == 0
    assert reports[-1] == ["loaded", "20000", "of", "20000"]
    counts = [int(count) for loaded, count, of, total in reports]
    assert len(counts) >= 2 and counts == sorted(counts)
    assert len(tool("load", stdin=lines).errors.splitlines()) == 1


BAD_LINES = [
    ("{", "Expecting property name"),
    ("[]", 'expected an object with "type"'),
    ('{"type": "Nothing", "kind": "single", "value": {}}', "no message type 'Nothing'"),
    ('{"type": "Port", "kind": "heap", "value": {}}', "'kind' must be one of single, hash"),
    ('{"type": "Port", "kind": "single"}', "'value' must be an object"),
    ('{"type": "Port", "kind": "list", "values": []}', "'values' must not be empty"),
    ('{"type": "Port", "kind": "set", "values": [{"rack": 1}, {}]}', "must all have the same key"),
    ('{"type": "Port", "kind": "zset", "values": [{}], "scores": []}', "as many elements"),
    ('{"type": "Port", "kind": "zset", "values": [{}], "scores": ["NaN"]}', "not hold NaN"),
    ('{"type": "Port", "kind": "zset", "values": [{}], "scores": [NaN]}', "NaN is no JSON"),
    ('{"type": "Port", "kind": "hash", "value": {}, "fields": ["x"]}', "no field of Port: x"),
    ('{"type": "Port", "kind": "single", "value": {"last": {"time": "x"}}}', "last.time: expected"),
    ('{"type": "Port", "kind": "single", "value": {"lanes": [1, true]}}', "lanes[1]: expected"),
]


def test_a_wrong_line_changes_nothing(shell, tmp_path):
    good = json.dumps(DUMPED[-1])
    for line, expected in BAD_LINES:
        (tmp_path / "file").write_text(good + "\n\n" + line + "\n" + good)
        with keeping_store("embedded:tool") as objects:
            ran = shell("load %s" % (tmp_path / "file"))
            assert ran.status == 2, line
            start = "vu-mom: standard input:1: %s:3: " % (tmp_path / "file")
            assert ran.errors.startswith(start), line
            assert expected in ran.errors, line
            assert objects() == [], line


@contextlib.contextmanager
def keeping_store(name):
    """Keeps a store from being gone with a run; gives what is in it."""
    types = protos.compile_files([str(CONTRACT)], [], str(TOOL.parent))
    with VuGlobal(store=name) as glb:

        async def found():
            async with Client(glb) as client:
                scans = [client.scan(0, cls(), 0) for cls in types.named.values()]
                return sum([await scan for scan in scans], [])

        yield lambda: asyncio.run(found())


def test_a_failed_dump_leaves_no_file(tool, tmp_path):
    ran = tool("dump", "--output", tmp_path / "none" / "file")
    assert ran.status == 2 and ran.errors.startswith("vu-mom: --output: ")
    ran = tool("dump", "Nothing", "--output", tmp_path / "file")
    assert ran.status == 2
    assert list(tmp_path.iterdir()) == []


# ---- What happens, as it happens --------------------------------------------------------------


def in_one_loop(command, options, writer):
    """Runs a command that goes on, in a loop with a client that writes; what it printed."""
    types = protos.compile_files([str(CONTRACT)], [], str(TOOL.parent))
    printed, told = io.StringIO(), io.StringIO()

    async def run():
        async with Client("embedded:live") as client:
            parsed = main.parse(shlex.split(command + " " + options))
            context = Context(types, client, 0, getattr(parsed, "json", False))
            with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(told):
                task = asyncio.ensure_future(main.RUNNERS[command](context, parsed))
                await asyncio.sleep(0)
                await writer(client, types)
                await asyncio.wait_for(task, 60)

    asyncio.run(run())
    return printed.getvalue(), told.getvalue()


async def write_some(client, types):
    port, settings = types.find("Port"), types.find("Settings")
    client.set(0, port(site="a", rack=1, slot=1, name="one two"))
    client.hmset(0, port(site="a", rack=1, slot=2, speed=5), [port.speed.number])
    client.zadd(0, [1.5], [port(site="a", rack=1, slot=3)])
    client.publish(0, settings(mode="x"))
    client.delete(0, port(site="a", rack=1, slot=1))


def test_watch():
    output, told = in_one_loop("watch", "Port site=a --count 4", write_some)
    assert [line.split(None, 1)[1] for line in output.splitlines()] == [
        "set        contract.Port a/1/1  name='one two' rack=1 site=a slot=1",
        "hmset      contract.Port a/1/2  speed=5 rack=1 site=a slot=2",
        "zadd       contract.Port a/1/3  rack=1 site=a slot=3",
        "deleted    contract.Port a/1/1",
    ]
    assert told == "vu-mom: watching contract.Port\n"


def test_watch_json():
    output, told = in_one_loop("watch", "--json --count 5", write_some)
    events = [json.loads(line) for line in output.splitlines()]
    assert all(event.pop("time") > 1e9 for event in events)
    assert {event["event"]: event for event in events if event["type"] == "contract.Port"} == {
        "set": {
            "event": "set",
            "type": "contract.Port",
            "key": ["a", 1, 1],
            "values": [{"name": "one two", "rack": 1, "site": "a", "slot": 1}],
        },
        "hmset": {
            "event": "hmset",
            "type": "contract.Port",
            "key": ["a", 1, 2],
            "fields": ["speed"],
            "values": [{"speed": "5", "rack": 1, "site": "a", "slot": 2}],
        },
        "zadd": {
            "event": "zadd",
            "type": "contract.Port",
            "key": ["a", 1, 3],
            "values": [{"rack": 1, "site": "a", "slot": 3}],
            "scores": [1.5],
        },
        "deleted": {"event": "deleted", "type": "contract.Port", "key": ["a", 1, 1], "values": []},
    }
    assert [event["values"] for event in events if event["type"] == "contract.Settings"] == [
        [{"mode": "x"}]
    ]
    assert "contract.Port" in told and "contract.Settings" in told


def test_watch_a_field():
    output, _ = in_one_loop("watch", "Port --field speed --field name --seconds 0.5", write_some)
    assert [line.split(None, 1)[1] for line in output.splitlines()] == [
        "set(name)  contract.Port a/1/1  name='one two' rack=1 site=a slot=1",
        "hmset(speed)  contract.Port a/1/2  speed=5 rack=1 site=a slot=2",
        "deleted(name)  contract.Port a/1/1",
    ]


def test_top():
    output, _ = in_one_loop("top", "--json --count 1 --interval 0.2", write_some)
    reports = {report["type"]: report for report in map(json.loads, output.splitlines())}
    port, settings = reports["contract.Port"], reports["contract.Settings"]
    assert (port["objects"], port["changes"]) == (2, 4)
    assert (settings["objects"], settings["changes"]) == (0, 1)
    rates = port["per_second"]
    assert rates["set"] == rates["deleted"] > 0 == rates["expired"]
    assert math.isclose(rates["other"], 2 / port["seconds"], abs_tol=0.06)
    table, _ = in_one_loop("top", "Port --count 2 --interval 0.1", write_some)
    lines = table.splitlines()
    headings = "TYPE OBJECTS CHANGES SET/S PUB/S DEL/S EXP/S OTHER/S"
    assert lines[0].split() == headings.split()
    assert max(map(len, lines)) < 80  # of the usual terminal
    assert lines[1].split()[:3] == ["contract.Port", "2", "4"]
    assert lines[4].split() == ["contract.Port", "2", "4"] + 5 * ["0.0"]


@pytest.mark.parametrize("command", ["watch", "top"])
def test_ctrl_c_ends_what_has_no_end(environment, command):
    child = subprocess.Popen(
        [sys.executable, str(TOOL), command, "--interval=0.1"][: 3 + (command == "top")],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=environment,
    )
    (child.stderr if command == "watch" else child.stdout).readline()
    child.send_signal(signal.SIGINT)
    _, errors = child.communicate(timeout=60)
    assert (child.returncode, errors) == (0, b"")


# ---- Errors ------------------------------------------------------------------------------------

WRONG = [
    ("get Prt", "TYPE: no message type 'Prt'; there are: contract.ByBool"),
    ("get Port", "the key lacks site, rack, slot; scan reads several objects"),
    ("get Port site=a rack=1 slot=1 name=x", "name is no key field of contract.Port; those are"),
    ("get Port rack=1", "site must be given too: it comes first in the key of contract.Port"),
    ("get Port site", "expected NAME=VALUE, not 'site'"),
    ("get Port site=a site=b", "site is given twice"),
    ("get Port site=a rack=x", "rack: expected an integer, not x"),
    ("get Port site=a rack=-1 slot=1", "rack"),
    ("set Port site=a", "the key lacks rack"),
    ("set Settings nothing=1", "nothing: contract.Settings has no such field; there are: mode"),
    ("set Settings mode.x=1", "mode.x: contract.Settings.mode is no message"),
    ("set Settings limit=1.5", "limit: expected an integer, not 1.5"),
    ("set Settings {1}", "no JSON: "),
    ('set Settings \'{"mode": 1}\'', "mode: expected a string, not 1"),
    ("set Settings --kind heap", "argument --kind: invalid choice: 'heap'"),
    ("set Settings --kind zset", "--kind zset needs a --score"),
    ("set Settings --score 1", "--score belongs to --kind zset"),
    ("set Settings --kind set --quiet", "--new, --keep and --quiet belong to --kind single"),
    ("set Port site=a rack=1 slot=1 --kind hash", "no field is given besides the key"),
    ("set Port site=a rack=1 slot=1 up=maybe", "up: expected true or false, not maybe"),
    ("set ByEnum id=PINK", "id: expected one of RED, GREEN, BLUE, not PINK"),
    ("ttl Port soon site=a", "SECONDS: expected a number or none, not 'soon'"),
    ("ttl Port 1 site=a", "the key lacks rack, slot; --all acts on every object that matches"),
    ("ttl Settings none --field mode", "SECONDS: a lifetime of a field is ended"),
    ("ttl Settings 1 --field x", "--field: contract.Settings has no field 'x'"),
    ("del Port", "the key lacks site, rack, slot; --all"),
    ("watch Settings --field x", "--field: contract.Settings has no field 'x'"),
    ("watch --field x", "--field: a TYPE must be given"),
    ("watch --count 0", "argument --count: expected a number from 1, not '0'"),
    ("top --interval 0", "argument --interval: expected a time in seconds, not '0'"),
    ("scan --colour", "unrecognized arguments: --colour"),
    ("load nowhere", "FILE: nowhere: No such file or directory"),
    ("dump --output /nowhere/x", "--output: /nowhere/x: No such file or directory"),
    ("set Settings --kind zset --score x", "argument --score: expected a number, not 'x'"),
    ("load --db x", "argument --db: expected the number of a database, not 'x'"),
    ("scan --db -1", "argument --db: expected the number of a database, not '-1'"),
    ("scan --db 2147483648", "argument --db: expected the number of a database, not '2147483648'"),
    ("zap", "argument COMMAND: invalid choice: 'zap'"),
    ("shell", "shell cannot be used inside itself"),
    ("scan --store embedded:", "--store belongs to the whole run"),
    ("scan 'Port", "no closing quotation"),
    ("", ""),
]


def test_errors_name_the_argument(capsys):
    """In one process, as a person at the prompt of `vu-mom shell` sees them."""
    types = protos.compile_files([str(CONTRACT)], [], str(TOOL.parent))

    async def run():
        async with Client("embedded:errors") as client:
            context = Context(types, client, 0, False)
            for command, expected in WRONG:
                status = await main.run_line(context, command, "here: ")
                printed = capsys.readouterr()
                assert status == (2 if command else 0), command
                assert printed.out == "", command
                assert expected in printed.err, command
            assert await client.scan(0, types.find("Settings")(), 0) == []

    asyncio.run(run())


def test_wrong_use(tool, tmp_path):
    bad = tmp_path / "bad.proto"
    bad.write_text('syntax = "proto3"; message A { strin a = 1; }')
    for words, variables, expected in [
        (["scan"], {"VU_MOM_STORE": ""}, "--store: no store is given, nor named by VU_MOM_STORE"),
        (["scan"], {"VU_MOM_PROTO": ""}, "--proto: no .proto file is given, nor named by"),
        (["scan", "--store", "gopher://x"], {}, "--store: store 'gopher://x' cannot be opened"),
        (["scan", "--proto", tmp_path / "none.proto"], {}, "--proto: there is no file"),
        (["scan", "-I", tmp_path / "none"], {}, "-I: there is no directory"),
        (["scan", "--proto", bad], {}, "bad.proto:1:"),
        ([], {}, "a COMMAND must be given"),
        (["fly"], {}, "invalid choice: 'fly'"),
    ]:
        ran = tool(*words, **variables)
        assert ran.status == 2, words
        assert expected in ran.errors and "Traceback" not in ran.errors, words
    # What protoc does not mind, but a key must be.
    bad.write_text(
        'syntax = "proto3"; import "vu/options.proto"; message A { double a = 1 [(vu.key) = 1]; }'
    )
    if (BUILD / "bin" / "protoc-gen-vu").exists():
        ran = tool("scan", "--proto", bad)
        assert ran.status == 2 and "key" in ran.errors


def test_dump_does_not_replace_a_device_or_a_pipe_by_a_file(tool, tmp_path):
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    reader = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
    script = "set Settings mode=m\ndump --output %s"
    assert tool("shell", stdin=script % pipe).status == 0
    assert pipe.is_fifo() and json.loads(os.read(reader, 65536))["value"] == {"mode": "m"}
    os.close(reader)
    ran = tool("dump", "--output", tmp_path)
    assert (ran.status, ran.errors) == (2, "vu-mom: --output: %s: Is a directory\n" % tmp_path)


def test_output_that_cannot_be_written(environment):
    """Told, without a traceback."""
    with open("/dev/full", "w") as full:
        child = subprocess.run(
            [sys.executable, str(TOOL), "shell"],
            input="set Settings mode=m\nscan --json\nscan\n",
            stdout=full, stderr=subprocess.PIPE, universal_newlines=True, timeout=120,
            env=environment,
        )
    expected = "vu-mom: standard input:2: the output cannot be written: No space left on device\n"
    assert (child.returncode, child.stderr) == (3, expected)


def test_the_version_is_that_of_the_project(program):
    project = (pathlib.Path(__file__).parents[2] / "CMakeLists.txt").read_text()
    version = re.search(r"^project\(vu_mom VERSION (\S+)", project, re.M).group(1)
    assert ended(program("--version")) == "vu-mom %s\n" % version


def test_help(program):
    output = ended(program("--help"))
    assert all(name in output for name in main.RUNNERS)
    assert "exit status:" in output and "VU_MOM_STORE" in output
    assert "--score" in ended(program("set", "--help"))


def test_exit_statuses(program):
    assert program("shell", stdin="set Settings mode=x\nget Settings").status == 0
    assert program("get", "Settings").status == 1
    assert program("get", "Nothing").status == 2
    assert program("set", "Settings", "--proto", "nowhere.proto").status == 2
    ran = program("shell", stdin="rm\nset Settings mode=x\nset Settings --kind set mode=y")
    assert (ran.status, ran.output) == (2, "")
    ran = program("shell", stdin="set Settings mode=x\nset Settings --kind set mode=y\nscan")
    assert (ran.status, ran.output) == (3, "")


def test_imports_of_proto_files(tool, tmp_path):
    """From -I directories, and from beside the file."""
    for directory in ("root/a", "other/b"):
        (tmp_path / directory).mkdir(parents=True)
    (tmp_path / "root/a/main.proto").write_text(
        'syntax = "proto3"; package p; import "b/part.proto"; import "a/near.proto";'
        "message Main { Part part = 1; Near near = 2; }"
    )
    (tmp_path / "other/b/part.proto").write_text(
        'syntax = "proto3"; package p; message Part { int32 x = 1; }'
    )
    (tmp_path / "root/a/near.proto").write_text(
        'syntax = "proto3"; package p; message Near { int32 y = 1; }'
    )
    options = ["--proto", tmp_path / "root/a/main.proto"]
    options += ["-I", tmp_path / "root", "-I", tmp_path / "other"]
    ended(tool(*options, "set", "Main", "part.x=1", "near.y=2"))
    assert "no message type 'Part'; there are: p.Main" in tool(*options, "scan", "Part").errors


def test_a_reader_that_goes_away(environment):
    command = "%s %s shell | head -n 1" % (sys.executable, shlex.quote(str(TOOL)))
    script = "".join("set ByInt id=%d\n" % number for number in range(50)) + "scan --json\n" * 100
    child = subprocess.run(
        ["bash", "-c", "set -o pipefail; " + command],
        input=script.encode(),
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=environment,
    )
    assert (child.returncode, child.stderr) == (0, b"")
    assert child.stdout.count(b"\n") == 1


# ---- Values ---------------------------------------------------------------------------------

TYPES = [
    ("vu_test_scalars.proto", "vu_test.scalars." + name)
    for name in ("Single", "Optional", "Repeated", "Maps")
]
EXTREME = """
    {"i32": -2147483648, "i64": "-9223372036854775808", "u32": 4294967295,
     "u64": "18446744073709551615", "flag": true, "text": "\\u00e4\\n\\u20ac", "data": "AP+A",
     "wide": 1e-300, "real": 0.1, "color": 1}
"""


@pytest.fixture(scope="module")
def scalars():
    return protos.compile_files(
        [str(PROTOS / "vu_test_scalars.proto"), str(PROTOS / "vu_test_tree.proto")],
        [],
        str(TOOL.parent),
    )


def same_as_google(types, name, module, plain):
    """protobuf's own JSON of what the tool makes of JSON, and the tool's own."""
    message = values.from_plain(types, types.find(name), plain)
    google = getattr(google_module(module), name.rpartition(".")[2])
    theirs = google.FromString(message.SerializeToString())
    assert values.to_plain(types, message) == json_format.MessageToDict(
        theirs, preserving_proto_field_name=True
    )
    again = values.from_plain(types, types.find(name), values.to_plain(types, message))
    assert again == message
    return message


def scalar_fields(types, name):
    return {field.name: types.field(field) for field in types.find(name).DESCRIPTOR.fields}


SAMPLES = {
    values.DOUBLE: [1.5, "Infinity", "-Infinity", 1e-300, 0.1],
    values.FLOAT: [0.1, 3.4028235e38, "Infinity", 16777217, 1.1754944e-38],
    values.BOOL: [True],
    values.STRING: ["ä€\n", "x" * 100],
    values.BYTES: ["AP+A", "AA=="],
    values.ENUM: [1],
}
LIMITS = {
    values.INT64: (-(2**63), 2**63 - 1),
    values.SINT64: (-(2**63), 2**63 - 1),
    values.SFIXED64: (-(2**63), 2**63 - 1),
    values.UINT64: (1, 2**64 - 1),
    values.FIXED64: (1, 2**64 - 1),
    values.INT32: (-(2**31), 2**31 - 1),
    values.SINT32: (-(2**31), 2**31 - 1),
    values.SFIXED32: (-(2**31), 2**31 - 1),
    values.UINT32: (1, 2**32 - 1),
    values.FIXED32: (1, 2**32 - 1),
}


def samples_of(field):
    return SAMPLES.get(field.type) or [str(limit) for limit in LIMITS[field.type]]


@pytest.mark.parametrize("name", ["Single", "Optional", "Repeated"])
def test_json_of_scalars_is_that_of_protobuf(scalars, name):
    tried = 0
    for field_name, field in scalar_fields(scalars, name).items():
        if field.type in values.MESSAGES or field.type == values.ENUM:
            continue
        for sample in samples_of(field):
            plain = [sample, sample] if field.label == values.REPEATED else sample
            same_as_google(scalars, name, "vu_test_scalars_pb2", {field_name: plain})
            tried += 1
    assert tried > 5


def test_json_of_maps_is_that_of_protobuf(scalars):
    same_as_google(
        scalars,
        "Maps",
        "vu_test_scalars_pb2",
        {
            "i32": {"-1": 2, "3": -4},
            "u64": {"18446744073709551615": "1"},
            "flag": {"true": False, "false": True},
            "text": {"a": "b", "": ""},
            "data": {"k": "AP+A"},
            "wide": {"x": "Infinity"},
            "real": {"x": 0.1},
            "single": {"one": {}},
        },
    )


def test_json_of_trees_is_that_of_protobuf(scalars):
    node = {
        "name": "root",
        "child": {"child": {"name": "deep"}},
        "leaves": [{"name": "a", "values": [1, 2]}, {"kind": "GOLDEN"}],
        "by_name": {"x": {"name": "y"}},
        "by_number": {"-7": {"name": "z"}},
        "counts": {"one": 1},
        "chosen_text": "",
        "time": "2026-11-21T19:30:00.500Z",
        "wrapped": "",
    }
    message = same_as_google(scalars, "Node", "vu_test_tree_pb2", node)
    assert values.to_plain(scalars, message) == node


def test_words(scalars):
    words = (
        "time=2026-11-21T19:30:00Z child.time.seconds=5 wrapped=5 child.wrapped=\"x\" "
        'name=root child.child.name=deep leaves={"name":"a"} leaves={"values":[1]} counts.one=1'
        " by_name.x={} leaf.kind=GOLDEN leaf.values=[3,4] leaf.name=a=b chosen_text="
    ).split()
    node = scalars.find("Node")
    made = values.from_plain(scalars, node, values.tree_of(scalars, node, words))
    assert values.to_plain(scalars, made) == {
        "name": "root",
        "time": "2026-11-21T19:30:00Z",
        "wrapped": "5",
        "child": {
            "child": {"name": "deep"},
            "time": "1970-01-01T00:00:05Z",
            "wrapped": "x",
        },
        "leaf": {"name": "a=b", "kind": "GOLDEN", "values": [3, 4]},
        "leaves": [{"name": "a"}, {"values": [1]}],
        "counts": {"one": 1},
        "by_name": {"x": {}},
        "chosen_text": "",
    }


def test_well_known_types_that_are_wrong(scalars):
    node = scalars.find("Node")
    for words, text in (
        (["time=yesterday"], "time: expected google.protobuf.Timestamp, not yesterday"),
        (["child.time=5"], "child.time: expected google.protobuf.Timestamp, not 5"),
        (["time.second=5"], 'time: expected google.protobuf.Timestamp, not {"second": "5"}'),
    ):
        with pytest.raises(values.ToolError) as error:
            values.from_plain(scalars, node, values.tree_of(scalars, node, words))
        assert str(error.value) == text
    made = node(time={"seconds": 2**60})  # JSON has no date for it
    assert values.to_plain(scalars, made) == {"time": {"seconds": str(2**60)}}
    assert values.from_plain(scalars, node, values.to_plain(scalars, made)) == made


# ---- Completion -----------------------------------------------------------------------------

COMPLETIONS = [
    ("vu-mom se", ["set"]),
    ("vu-mom set Se", ["Settings"]),
    ("vu-mom set contract.Se", ["contract.Settings"]),
    ("vu-mom set Settings m", ["mode="]),
    ("vu-mom set Settings mode=x ", ["limit=", "starts="]),
    ("vu-mom get Port ", ["site=", "rack=", "slot="]),
    ("vu-mom get Port site=a r", ["rack="]),
    ("vu-mom set ByEnum id=G", ["GREEN"]),
    ("vu-mom set Port up=", ["true", "false"]),
    ("vu-mom set Port lanes=1 la", ["lanes=", "last="]),
    ("vu-mom set --ki", ["--kind"]),
    ("vu-mom scan --proto ", []),
    ("vu-mom get Port 'site=a b' ra", ["rack="]),
]


def test_completion(monkeypatch, capsys):
    monkeypatch.setenv("VU_MOM_PROTO", str(CONTRACT))
    for line, expected in COMPLETIONS:
        main.main(["--complete", line], str(TOOL.parent))
        assert capsys.readouterr().out.split() == expected, line


def test_completion_in_bash(environment, tmp_path):
    """bash with the file that is installed for it, on a line that it splits at "="."""
    script = """
        set -eu
        PATH=%s:$PATH
        . %s
        COMP_LINE='vu-mom set ByEnum id=B'
        COMP_POINT=${#COMP_LINE}
        COMP_WORDS=(vu-mom set ByEnum id = B)
        COMP_CWORD=5
        _vu_mom vu-mom
        echo "${COMPREPLY[@]}"
        complete -p vu-mom
    """
    (tmp_path / "vu-mom").write_text(
        '#!/bin/sh\nexec %s %s "$@"\n' % (shlex.quote(sys.executable), shlex.quote(str(TOOL)))
    )
    (tmp_path / "vu-mom").chmod(0o755)
    file = BUILD / "share" / "bash-completion" / "completions" / "vu-mom"
    child = subprocess.run(
        ["bash", "-c", script % (tmp_path, file)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        universal_newlines=True,
        env=environment,
    )
    assert child.stderr == ""
    assert child.stdout.splitlines() == ["BLUE", "complete -o default -F _vu_mom vu-mom"]
