"""docs/commands.md says what the module does."""

import inspect
import math
import pathlib
import re
from typing import Any, Optional

import pytest
import vu_mom
import vu_mom_common
from netmon_vu import Busiest, Samples
from vu_global import VuGlobal

ROOT = pathlib.Path(__file__).parents[2]
PAGE = (ROOT / "docs" / "commands.md").read_text(encoding="utf-8")
HEADER = (ROOT / "include" / "vu_mom_impl.h").read_text(encoding="utf-8")

TAKEN = Samples.TAKEN_FIELD_NUMBER


class Row:
    def __init__(self, cells):
        command, _, self.reply, self.arrives, self.errors = cells
        self.name, self.parameters = re.fullmatch(r"`(\w+)\((.*)\)`", command).groups()


def table(heading):
    """The cells of the rows under this first column; headings within the table left out."""
    lines = PAGE[PAGE.index("| %s |" % heading) :].split("\n\n")[0].splitlines()[2:]
    rows = [[cell.strip() for cell in line.strip()[1:-1].split("|")] for line in lines]
    return [row for row in rows if not row[0].startswith("**")]


ROWS = [Row(cells) for cells in table("command")]
BY_NAME = {row.name: row for row in ROWS}
COMMANDS = sorted(
    name for name in dir(vu_mom.VuMom) if not name.startswith("_") and name != "debug_show_all"
)
REPLY_COMMANDS = [row.name for row in ROWS if row.reply.startswith("`on_")]


def parameters_of(command):
    return list(inspect.signature(getattr(vu_mom.VuMom, command)).parameters)[1:]


def samples(taken=1):
    return Samples(host="here", taken=taken)


def arguments(command, **changed):
    """Good arguments for every command, by name, but for the changed ones."""
    good = dict(
        db=0,
        obj=samples(),
        pivot=samples(),
        privdata="p",
        owner=7,
        flag=0,
        level=1,
        field_tags=[TAKEN],
        pos=0,
        count=0,
        order=0,
        start=0,
        stop=-1,
        scores=[1.0],
        objs=[samples()],
        min=0.0,
        max=1.0,
        time=60.0,
        tag=TAKEN,
        fields=[TAKEN],
        funcs=[print],
        args=["a"],
    )
    good.update(changed)
    return {name: good[name] for name in parameters_of(command)}


class Client(vu_mom.VuMom):
    """Has every reply method; keeps what they are asked for and called with."""

    def __init__(self, glb):
        self.glb = glb
        super().__init__(glb)
        self.asked = []
        self.calls = []

    def __getattr__(self, name):
        if not name.startswith("on_"):
            raise AttributeError(name)
        self.asked.append(name)
        return lambda msg, p: self.calls.append((msg, p))

    def run(self):
        run_until_idle(self.glb)


@pytest.fixture
def client(request):
    """On a store of its own."""
    with VuGlobal(store="embedded:%s" % request.node.name) as glb:
        yield Client(glb)


def run_until_idle(glb):
    while glb.run_once(0.05):
        pass


# ---- the table ------------------------------------------------------------------------


def test_the_table_has_all_commands_once():
    assert sorted(row.name for row in ROWS) == COMMANDS
    assert len(COMMANDS) == 49


@pytest.mark.parametrize("command", COMMANDS)
def test_parameters_and_defaults(command):
    signature = str(inspect.signature(getattr(vu_mom.VuMom, command)))
    assert signature == "(self, /, %s)" % BY_NAME[command].parameters


@pytest.mark.parametrize("command", COMMANDS)
def test_reply_method(client, command):
    getattr(client, command)(**arguments(command))
    row = BY_NAME[command]
    if row.reply == "none" or command == "subscribe_field":
        assert client.asked == []
    else:
        assert ["`%s`" % name for name in client.asked] == [
            row.reply[:-1] + "netmon_Samples`"
        ]
        assert row.reply.strip("`") + "<package>_<message>" in getattr(client, command).__doc__


def test_subscribe_field_names_its_functions():
    assert BY_NAME["subscribe_field"].reply == "`funcs[i](msg, args[i])`"


@pytest.mark.parametrize("command", COMMANDS)
def test_results_are_those_of_the_docstring(command):
    named = re.findall(r"\w+Result\b", getattr(vu_mom.VuMom, command).__doc__)
    assert set(re.findall(r"\w+Result\b", BY_NAME[command].arrives)) == set(named)
    assert all(hasattr(vu_mom_common, name) for name in named)


END_MARKS = dict(
    scan="SCAN",
    scan_index="SCAN",
    pexpire="PEXPIRE",
    pexpire_field="PEXPIRE_FIELD",
    pexpire_fields="PEXPIRE_FIELD",
    del_expire="DEL_EXPIRE",
    pdel="PDEL",
)


@pytest.mark.parametrize("command", COMMANDS)
def test_end_mark(command):
    marks = re.findall(r"end mark (\d)", BY_NAME[command].arrives)
    expected = []
    if command in END_MARKS:
        constant = "VU_MOM_END_%s" % END_MARKS[command]
        expected = re.findall(r"\b%s = (\d)" % constant, HEADER)
        assert len(expected) == 1
    assert marks == expected


# ---- what arrives ---------------------------------------------------------------------


def fill(client, command):
    """Stores what the command is for."""
    if command in ("hmget", "hgetall", "pexpire_field", "pexpire_fields"):
        client.hmset(0, samples(), None)
    elif command[0] in "lr" and command != "lrem":
        client.rpush(0, samples())
    elif command in ("smembers", "scard", "sismember"):
        client.sadd(0, samples())
    elif command[0] == "z":
        client.zadd(0, [1.0], [samples()])
    elif command != "setnx":
        client.set(0, samples())


def describe(result, arrives):
    """Whether the cell allows for such a result."""
    if result is None:
        return "`None`" in arrives or "without a result" in arrives or "never a result" in arrives
    if isinstance(result, Samples):
        return "message" in arrives
    return "`%s`" % type(result).__name__ in arrives


ONE_REPLY = [name for name in REPLY_COMMANDS if name not in END_MARKS and name != "subscribe"]


@pytest.mark.parametrize("filled", [True, False], ids=["filled", "empty"])
@pytest.mark.parametrize("command", ONE_REPLY)
def test_one_reply(client, command, filled):
    if filled:
        fill(client, command)
    getattr(client, command)(**arguments(command))
    client.run()
    [(msg, p)] = client.calls
    assert p == "p"
    assert (msg.status, msg.error) == (0, "")
    arrives = BY_NAME[command].arrives
    assert describe(msg.result, arrives), msg
    assert (msg.result is None) == (not filled and "`None`" in arrives)


@pytest.mark.parametrize("filled", [True, False], ids=["filled", "empty"])
@pytest.mark.parametrize("command", sorted(END_MARKS))
def test_several_replies(client, command, filled):
    if filled:
        fill(client, command)
    getattr(client, command)(**arguments(command))
    client.run()
    [mark] = re.findall(r"end mark (\d)", BY_NAME[command].arrives)
    assert [msg.end for msg, _ in client.calls] == [0] * filled + [int(mark)]
    assert all(describe(msg.result, BY_NAME[command].arrives) for msg, _ in client.calls)
    last = client.calls[-1][0]
    assert (last.result, last.count) == (None, int(filled))


@pytest.mark.parametrize("kind, command", [
    ("HashResult", lambda client: client.hmset(0, samples(), None)),
    ("LrangeResult", lambda client: client.rpush(0, samples())),
    ("SmembersResult", lambda client: client.sadd(0, samples())),
    ("ZrangeResult", lambda client: client.zadd(0, [1.0], [samples()])),
])
def test_scan_by_kind(client, kind, command):
    command(client)
    client.scan(0, samples(), 1, None)
    client.run()
    result = client.calls[0][0].result
    assert type(result).__name__ == kind
    assert describe(result, BY_NAME["scan"].arrives)


def test_values_of_results(client):
    """What the page says of the numbers and truth values that arrive."""
    one, two, three = samples(1), samples(2), samples(3)
    client.lset(0, one, 0, None)
    client.linsert(0, one, two, 0, None)
    client.rpush(0, one)
    client.lset(0, one, 0, None)
    client.lset(0, one, 1, None)
    client.linsert(0, two, one, 0, None)
    client.linsert(0, one, two, 0, None)
    client.linsert(0, one, three, 1, None)
    client.lrange(0, one, -3, -1, None)
    client.delete(0, one)
    client.setnx(0, one, None)
    client.setnx(0, two, None)
    client.incr(0, one, None)
    client.delete(0, one)
    client.zadd(0, [5, 7.0, 9.0], [one, two, three])
    client.zrank(0, two, None)
    client.zcount(0, one, 5.0, 7.0, None)
    client.zrange(0, one, -1, -1, None)
    client.zrangebyscore(0, one, -math.inf, 5.0, None)
    client.run()
    results = [msg.result for msg, _ in client.calls]
    assert [result.value for result in results[:6]] == [False, 0, True, False, -1, 2]
    assert results[6].value == 3
    assert results[7] == [two, one, three]
    assert [result.value for result in results[8:11]] == [True, False, 2]
    assert [result.value for result in results[11:13]] == [1, 2]
    assert results[13] == [(three, 9.0)]
    assert results[14] == [(one, 5.0)]


def test_flag_1_is_quiet(client):
    client.subscribe(0, samples(), 1, "change")
    client.set(0, samples(1))
    client.set(0, samples(2), 1)
    client.run()
    assert [msg.result.taken for msg, p in client.calls if p == "change"] == [1]


@pytest.mark.parametrize("flag, kept", [(0, False), (2, True)])
def test_flag_2_keeps_the_lifetime(client, flag, kept):
    client.set(0, samples(1))
    client.pexpire(0, samples(), 1, 10.0, None)
    client.set(0, samples(2), flag)
    client.glb._advance_clock(11.0)
    client.get(0, samples(), "got")
    client.run()
    [found] = [msg.result for msg, p in client.calls if p == "got"]
    assert (found is None) == kept


def test_failed_request(client):
    client.set(0, samples())
    client.llen(0, samples(), "p")
    client.run()
    [(msg, _)] = client.calls
    assert msg.result is None
    assert msg.status < 0
    assert msg.error


# ---- changes --------------------------------------------------------------------------


def changes():
    """{type code: what msg.result is}"""
    return {
        int(code): result.strip("`")
        for codes, _, result in table("type code")
        for code in codes.split(", ")
    }


def test_changes_has_all_type_codes_of_subscriptions():
    codes = dict(re.findall(r"\bVU_MOM_TYPE_(\w+) = (\d+)", HEADER))
    assert int(codes.pop("INDEX")) == 37
    assert sorted(map(int, codes.values())) == sorted(changes())


def do_everything(client):
    """Every change that an embedded store can bring about, on one object after the other."""
    one, two = samples(1), samples(2)
    client.set(0, one)
    client.incr(0, one, None)
    client.publish(0, one)
    client.delete(0, one)
    client.hmset(0, one, None)
    client.hmupdate(0, two, None)
    client.delete(0, one)
    client.hmsetnx(0, one, None)
    client.delete(0, one)
    client.lpush(0, one)
    client.rpush(0, one)
    client.linsert(0, one, two, 0, None)
    client.lset(0, two, 0, None)
    client.lrem(0, two, 1)
    client.lpop(0, one, None)
    client.rpush(0, two)
    client.rpop(0, one, None)
    client.delete(0, one)
    client.sadd(0, one)
    client.sadd(0, two)
    client.srem(0, one)
    client.delete(0, one)
    client.zadd(0, [1.0, 2.0], [one, two])
    client.zrem(0, [one])
    client.zadd(0, [1.0], [one])
    client.zremrangebyscore(0, one, 1.0, 1.0)
    client.zadd(0, [1.0], [one])
    client.zremrangebyrank(0, one, 0, 0)
    client.pexpire(0, one, 1, 0, None)
    client.unsubscribe(0, one, 1)


def test_changes_are_delivered_as_the_page_says(client):
    client.subscribe(0, samples(), 1, "changes")
    do_everything(client)
    client.run()
    seen = {}
    for msg, p in client.calls:
        if p == "changes":
            name = "the message" if isinstance(msg.result, Samples) else type(msg.result).__name__
            seen[msg.type_code] = name.replace("NoneType", "None")
    assert seen == changes()


def test_the_clients_of_a_global_share_their_subscriptions(client):
    other = Client(client.glb)
    client.subscribe(0, samples(), 1, None)
    other.subscribe(0, samples(), 1, None)
    client.unsubscribe(0, samples(), 1)
    client.run()
    assert [[msg.type_code for msg, _ in each.calls] for each in (client, other)] == [[28], [28]]


# ---- errors ---------------------------------------------------------------------------

NAN = math.nan
WRONG_LIST = "Argument '%s' has incorrect type (expected list, got tuple)"

# (command, changed arguments, exception, text where it is fixed)
CASES: list[tuple[str, dict[str, Any], str, Optional[str]]] = [
    (command, {"level": -1}, "OverflowError", "can't convert negative value to unsigned int")
    for command in COMMANDS
    if "level" in parameters_of(command)
]
CASES += [
    (command, {"field_tags": (TAKEN,)}, "TypeError", WRONG_LIST % "field_tags")
    for command in ("hmset", "hmsetnx", "hmupdate", "hmget", "pexpire_fields")
]
CASES += [
    (command, {"field_tags": [TAKEN, bad]}, "InputError", "")
    for command in ("hmset", "hmsetnx", "hmupdate", "hmget")
    for bad in (-1, "text", 99)
]
CASES += [(command, {"flag": 4}, "InputError", "") for command in ("set", "setow", "delow")]
CASES += [
    (command, {"min": NAN}, "InputError", "")
    for command in ("zcount", "zrangebyscore", "zremrangebyscore")
]
CASES += [
    (command, {"time": bad}, exception, None)
    for command in ("pexpire", "pexpire_field", "pexpire_fields")
    for bad, exception in ((math.inf, "OverflowError"), (NAN, "ValueError"))
]
OTHER_KEY = Samples(host="elsewhere")
OTHER_TYPE = Busiest(host="here")
REFUSED: list[tuple[str, dict[str, Any]]] = [
    ("incr", {"obj": OTHER_TYPE}),
    ("linsert", {"order": 2}),
    ("linsert", {"pivot": OTHER_KEY}),
    ("linsert", {"pivot": OTHER_TYPE}),
    ("zadd", {"scores": [1.0, 2.0], "objs": [samples(), OTHER_KEY]}),
    ("zadd", {"scores": [1.0, 2.0], "objs": [samples(), OTHER_TYPE]}),
    ("zrem", {"objs": [samples(), OTHER_KEY]}),
    ("zrem", {"objs": [samples(), OTHER_TYPE]}),
    ("pexpire_field", {"tag": 99}),
    ("pexpire_field", {"tag": -1}),
    ("pexpire_fields", {"field_tags": [TAKEN, 99]}),
    ("subscribe_field", {"fields": [99]}),
    ("unsubscribe_field", {"fields": [99]}),
]
CASES += [(command, changed, "InputError", "") for command, changed in REFUSED]
CASES += [
    ("lrem", {"count": -1}, "OverflowError", "can't convert negative value to size_t"),
    ("zadd", {"scores": None}, "InputError", "scores or objs is None"),
    ("zadd", {"objs": None}, "InputError", "scores or objs is None"),
    ("zadd", {"scores": []}, "InputError", "len(scores) != len(objs)"),
    ("zadd", {"scores": (1.0,)}, "TypeError", WRONG_LIST % "scores"),
    ("zadd", {"scores": [NAN]}, "InputError", ""),
    ("zrem", {"objs": ()}, "TypeError", WRONG_LIST % "objs"),
    ("pexpire_fields", {"field_tags": None}, "InputError", "field_tags is None"),
    ("pexpire_fields", {"field_tags": [-1]}, "OverflowError", None),
    ("subscribe_field", {"funcs": None}, "InputError", "fields or funcs or args is None"),
    ("subscribe_field", {"args": []}, "InputError", "len of fields,funcs,args is not equal"),
    ("subscribe_field", {"funcs": (print,)}, "TypeError", WRONG_LIST % "funcs"),
    ("subscribe_field", {"fields": [-1]}, "OverflowError", None),
    ("unsubscribe_field", {"fields": None}, "InputError", "fields is None"),
    ("unsubscribe_field", {"fields": (1,)}, "TypeError", WRONG_LIST % "fields"),
    ("unsubscribe_field", {"fields": [-1]}, "OverflowError", None),
]


def errors_of(command):
    """{(exception, quoted text or "")} of a row, with those of the rows it refers to."""
    cell = BY_NAME[command].errors
    found = set(re.findall(r'`(\w+Error)`(?: "([^"]+)")?', cell))
    for other in re.findall(r"as `(\w+)`", cell):
        found |= errors_of(other)
    return found


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
@pytest.mark.parametrize("command, changed, exception, text", CASES)
def test_error(client, command, changed, exception, text):
    with pytest.raises(Exception) as caught:
        getattr(client, command)(**arguments(command, **changed))
    assert type(caught.value).__name__ == exception
    if text is not None:
        assert str(caught.value) == text


@pytest.mark.parametrize("command", COMMANDS)
def test_the_errors_of_a_row_are_those_that_are_tested(command):
    quoted = {text for _, text in errors_of(command)}
    tested = {
        (exception, text if text in quoted else "")
        for name, _, exception, text in CASES
        if name == command
    }
    assert errors_of(command) == tested


# ---- arguments ------------------------------------------------------------------------


def test_every_parameter_is_described_once():
    described = [
        name for names, _ in table("argument") for name in names.replace("`", "").split(", ")
    ]
    used = {name for command in COMMANDS for name in parameters_of(command)}
    assert sorted(described) == sorted(used)


INT32 = (-(2**31) - 1, 2**31)
UINT32 = (-1, 2**32)
OUT_OF_RANGE = dict.fromkeys(("db", "flag", "pos", "start", "stop", "order", "tag"), INT32)
OUT_OF_RANGE.update(owner=(-(2**63) - 1, 2**63), level=UINT32, count=(-1, 2**64))


@pytest.mark.parametrize("command", COMMANDS)
def test_integers_out_of_range(client, command):
    for name in parameters_of(command):
        for value in OUT_OF_RANGE.get(name, ()):
            with pytest.raises(OverflowError):
                getattr(client, command)(**arguments(command, **{name: value}))


@pytest.mark.parametrize("command", COMMANDS)
def test_no_integers(client, command):
    for name in OUT_OF_RANGE.keys() & set(parameters_of(command)):
        with pytest.raises(TypeError, match="^an integer is required$"):
            getattr(client, command)(**arguments(command, **{name: "1"}))


def test_publish_on_a_closed_store_is_no_error():
    with VuGlobal() as glb:
        client = Client(glb)
    with pytest.raises(vu_mom.Error):
        client.set(0, samples())
    assert client.publish(0, samples()) is None  # type: ignore[func-returns-value]
