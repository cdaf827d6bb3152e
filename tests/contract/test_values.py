"""Single values: get, set, setnx, setnx_noreply, incr, delete, and owners."""

import pytest

import contract_vu
import vu_mom
import vu_mom_common
from messages import port, settings

QUIET, KEEP = 1, 2


# ---- get, set, delete ------------------------------------------------------------------------


def test_set_and_get(client):
    stored = port(name="eth0", speed=1000, up=False, lanes=[1, 2])
    client.set(0, stored)
    got = client.value("get", 0, port())
    assert type(got) is contract_vu.Port
    assert got == stored


def test_a_reply_names_the_object(client):
    client.set(3, port("south", 4, -5, name="x"))
    reply = client.ask("get", 3, port("south", 4, -5))
    assert (reply.db, reply.key, reply.end, reply.tag) == (3, ("south", 4, -5), 0, 0)


def test_set_replaces_the_whole_message(client):
    client.set(0, port(name="eth0", speed=1000))
    client.set(0, port(note="new"))
    assert client.value("get", 0, port()) == port(note="new")


def test_a_message_with_nothing_but_its_key(client):
    client.set(0, port())
    assert client.value("get", 0, port(name="not asked for")) == port()


def test_presence_survives(client):
    client.set(0, port(speed=0, up=False, note=""))
    got = client.value("get", 0, port())
    assert got.HasField("speed") and got.HasField("up") and got.HasField("note")
    client.set(0, port())
    got = client.value("get", 0, port())
    assert not (got.HasField("speed") or got.HasField("up") or got.HasField("note"))


def test_nested_and_repeated_fields(client):
    stored = port(lanes=list(range(300)), last=contract_vu.Port.Sample(time=-1, load=0.5))
    client.set(0, stored)
    assert client.value("get", 0, port()) == stored


def test_the_store_keeps_copies(client):
    mine = port(name="before", lanes=[1])
    client.set(0, mine)
    mine.name = "after"
    mine.lanes.append(2)
    first = client.value("get", 0, port())
    assert first == port(name="before", lanes=[1])
    first.name = "changed by the reader"
    assert client.value("get", 0, port()).name == "before"


def test_the_value_is_that_of_the_moment_of_the_command(client, store):
    client.set(0, port(name="one"))
    early = client.send("get", 0, port())
    client.set(0, port(name="two"))
    late = client.send("get", 0, port())
    client.delete(0, port())
    gone = client.send("get", 0, port())
    store.drive()
    assert [inbox[0].result for inbox in (early, late, gone)] == [
        port(name="one"),
        port(name="two"),
        None,
    ]


def test_delete(client):
    client.set(0, port(name="x"))
    client.delete(0, port(name="only the key counts"))
    assert client.value("get", 0, port()) is None
    client.delete(0, port())
    assert client.value("get", 0, port()) is None


# ---- setnx -----------------------------------------------------------------------------------


def test_setnx(client):
    stored = client.value("setnx", 0, port(name="first"))
    assert type(stored) is vu_mom_common.SetnxResult and stored.value is True
    assert client.number("setnx", 0, port(name="second")) is False
    assert client.value("get", 0, port()) == port(name="first")


def test_setnx_noreply(client):
    client.setnx_noreply(0, port(name="first"))
    client.setnx_noreply(0, port(name="second"))
    assert client.value("get", 0, port()) == port(name="first")


# ---- incr ------------------------------------------------------------------------------------


def test_incr_of_nothing_starts_with_the_message_at_one(client):
    first = client.value("incr", 0, port(name="eth0", hits=70, note="n"))
    assert type(first) is vu_mom_common.IncrResult and first.value == 1
    assert client.value("get", 0, port()) == port(name="eth0", hits=1, note="n")


def test_incr_adds_one_and_leaves_the_rest(client):
    client.set(0, port(name="eth0", hits=41))
    assert client.number("incr", 0, port(name="other", hits=7, speed=1)) == 42
    assert client.number("incr", 0, port()) == 43
    assert client.value("get", 0, port()) == port(name="eth0", hits=43)


def test_incr_of_a_counter_that_is_not_carried(client):
    client.set(0, port(name="eth0"))
    assert client.number("incr", 0, port()) == 1


COUNTERS = [
    (contract_vu.CountInt32, -(2**31), 2**31 - 1),
    (contract_vu.CountUint32, 0, 2**32 - 1),
    (contract_vu.CountInt64, -(2**63), 2**63 - 1),
    (contract_vu.CountUint64, 0, 2**63 - 1),
]


@pytest.mark.parametrize("kind, lowest, highest", COUNTERS)
def test_incr_of_every_width(client, kind, lowest, highest):
    for start in (lowest, -2, -1, 0, highest - 1):
        if start < lowest:
            continue
        client.set(0, kind(value=start, text="t"))
        assert client.number("incr", 0, kind()) == start + 1
        assert client.value("get", 0, kind()) == kind(value=start + 1, text="t")


@pytest.mark.parametrize(
    "kind, highest",
    [(kind, highest) for kind, _, highest in COUNTERS] + [(contract_vu.CountUint64, 2**64 - 1)],
)
def test_incr_beyond_the_counter_is_an_error(client, kind, highest):
    full = kind(value=highest, text="t")
    client.set(0, full)
    watch = client.watch(0, kind(), 0)
    assert client.failure("incr", 0, kind()) == -1
    assert client.value("get", 0, kind()) == full
    assert watch == []


def test_a_type_without_counter_cannot_be_counted(client):
    with pytest.raises(vu_mom.InputError):
        client.incr(0, contract_vu.Plain(), None)
    assert client.value("get", 0, contract_vu.Plain()) is None


# ---- Owners ----------------------------------------------------------------------------------


@pytest.mark.parametrize("mine, other", [(1, 2), (0, 1), (-1, 0), (2**63 - 1, -(2**63))])
def test_another_owner_is_refused(client, mine, other):
    client.setow(0, port(name="mine"), mine)
    client.setow(0, port(name="theirs"), other)
    client.delow(0, port(), other)
    assert client.value("get", 0, port()) == port(name="mine")
    client.setow(0, port(name="mine again"), mine)
    assert client.value("get", 0, port()) == port(name="mine again")
    client.delow(0, port(), mine)
    assert client.value("get", 0, port()) is None
    client.setow(0, port(name="theirs"), other)
    assert client.value("get", 0, port()) == port(name="theirs")


def test_what_nobody_owns_can_be_taken(client):
    client.set(0, port(name="free"))
    client.setow(0, port(name="taken"), 5)
    client.setow(0, port(name="too late"), 6)
    assert client.value("get", 0, port()) == port(name="taken")


def test_delow_leaves_what_nobody_owns(client):
    client.set(0, port(name="free"))
    client.delow(0, port(), 0)
    client.delow(0, port(), 5)
    assert client.value("get", 0, port()) == port(name="free")


def test_set_and_delete_ask_for_no_owner(client):
    client.setow(0, port(name="owned"), 5)
    client.set(0, port(name="replaced"))
    assert client.value("get", 0, port()) == port(name="replaced")
    client.setow(0, port(name="still owned"), 6)
    assert client.value("get", 0, port()) == port(name="replaced")
    client.delete(0, port())
    assert client.value("get", 0, port()) is None
    client.setow(0, port(name="new owner"), 6)
    assert client.value("get", 0, port()) == port(name="new owner")


def test_incr_keeps_the_owner(client):
    client.setow(0, port(name="owned"), 5)
    assert client.number("incr", 0, port()) == 1
    client.setow(0, port(name="refused"), 6)
    assert client.value("get", 0, port()) == port(name="owned", hits=1)


def test_setnx_gives_no_owner_and_respects_one(client):
    client.setow(0, port(name="owned"), 5)
    assert client.number("setnx", 0, port(name="refused")) is False
    client.delow(0, port(), 5)
    assert client.number("setnx", 0, port(name="free")) is True
    client.setow(0, port(name="taken"), 6)
    assert client.value("get", 0, port()) == port(name="taken")


# ---- Flags -----------------------------------------------------------------------------------


def test_a_quiet_set_is_no_event(client, store):
    watch = client.watch(0, port(), 3)
    client.set(0, port(name="quiet"), QUIET)
    client.setow(0, port(name="quiet too"), 1, QUIET)
    store.drive()
    assert watch == []
    assert client.value("get", 0, port()) == port(name="quiet too")
    client.delow(0, port(), 1, QUIET)
    store.drive()
    assert watch == []
    assert client.value("get", 0, port()) is None


def test_a_loud_set_is_one(client, store):
    watch = client.watch(0, port(), 3)
    client.set(0, port(name="loud"), KEEP)
    client.setow(0, port(name="loud too"), 1)
    client.delow(0, port(), 1, KEEP)
    store.drive()
    assert [(event.type_code, event.result) for event in watch] == [
        (1, port(name="loud")),
        (1, port(name="loud too")),
        (29, None),
    ]


@pytest.mark.parametrize(
    "flag, kept", [(0, False), (QUIET, False), (KEEP, True), (QUIET | KEEP, True)]
)
@pytest.mark.parametrize("command", ["set", "setow"])
def test_set_keeps_the_lifetime_where_told(client, store, command, flag, kept):
    def write(name, flag):
        if command == "set":
            client.set(0, port(name=name), flag)
        else:
            client.setow(0, port(name=name), 1, flag)

    write("first", 0)
    assert client.acted_on("pexpire", 0, port(), 3, 10) == [("north", 1, 1)]
    write("second", flag)
    store.advance(11)
    assert client.value("get", 0, port()) == (None if kept else port(name="second"))


@pytest.mark.parametrize("flag", [4, -1, 2**31 - 1])
def test_unknown_flags_are_refused(client, flag):
    with pytest.raises(vu_mom.InputError):
        client.set(0, port(name="x"), flag)
    with pytest.raises(vu_mom.InputError):
        client.setow(0, port(name="x"), 1, flag)
    with pytest.raises(vu_mom.InputError):
        client.delow(0, port(), 1, flag)
    assert client.value("get", 0, port()) is None


# ---- Types without key fields ----------------------------------------------------------------


def test_a_type_without_key_fields_is_one_object(client):
    client.set(0, settings(mode="a"))
    client.set(0, settings(mode="b", limit=3))
    reply = client.ask("get", 0, settings(mode="whatever"))
    assert reply.result == settings(mode="b", limit=3)
    assert reply.key == ()
    assert client.value("get", 0, contract_vu.Plain()) is None
