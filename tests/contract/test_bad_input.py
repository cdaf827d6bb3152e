"""What the library can see to be wrong is refused before anything happens."""

import pytest

import store as harness
import vu_mom
from calls import CALLS
from messages import NAME, port, settings


class Fake:
    """Claims to be a Port, at an address of the test's choosing."""

    package_name = "contract"
    short_name = "Port"

    def __init__(self, address):
        self.address = address

    def get_ptr(self):
        return self.address


def dead_address():
    message = port(name="x" * 100)
    return message.get_ptr()


LIVE = port(name="live")
ADDRESSES = {
    "null": lambda: 0,
    "one": lambda: 1,
    "minus one": lambda: -1,
    "dead": dead_address,
    "not a message": lambda: id(CALLS),
    "inside a message": lambda: LIVE.get_ptr() + 1,
}


@pytest.fixture
def untouched(client, store):
    """A store with an object of each kind; nothing happens to it, nothing is delivered."""
    client.set(0, port(name="x"))
    client.hmset(0, port("hash", name="x"), [NAME])
    client.rpush(0, port("list", name="x"))
    client.sadd(0, port("set", name="x"))
    client.zadd(0, [1], [port("sorted set", name="x")])
    client.set(0, settings(mode="m"))
    before = client.scanned(0, port(), 0), client.scanned(0, settings(), 0)
    watches = client.watch(0, port(), 0), client.watch(0, settings(), 0)
    store.drive()
    client.log.clear()
    yield
    store.drive()
    assert client.log == []
    assert watches == ([], [])
    assert (client.scanned(0, port(), 0), client.scanned(0, settings(), 0)) == before
    store.advance(1000)
    assert (client.scanned(0, port(), 0), client.scanned(0, settings(), 0)) == before


def test_every_command_is_here():
    assert sorted(CALLS) == sorted(harness.COMMANDS)


@pytest.mark.parametrize("command", CALLS)
@pytest.mark.parametrize("address", ADDRESSES)
def test_an_address_that_is_no_live_message(client, untouched, command, address):
    with pytest.raises(vu_mom.InputError):
        CALLS[command](client, 0, Fake(ADDRESSES[address]()))


@pytest.mark.parametrize("command", CALLS)
@pytest.mark.parametrize("db", [-1, -(2**31)])
def test_a_negative_database(client, untouched, command, db):
    with pytest.raises(vu_mom.InputError):
        CALLS[command](client, db, port(name="y"))


UNKNOWN = [[11], [NAME, 12], [0], [0, NAME], [2**29], [2**31 - 1], [2**32 - 1], [19000]]


@pytest.mark.parametrize("fields", UNKNOWN)
@pytest.mark.parametrize("command", ["hmset", "hmsetnx", "hmupdate", "hmget"])
def test_field_numbers_of_hash_commands(client, untouched, command, fields):
    rest = (None,) if command == "hmget" else ()
    for obj in (port("hash"), port("nothing"), port("list")):
        with pytest.raises(vu_mom.InputError):
            getattr(client, command)(0, obj, fields, *rest)


@pytest.mark.parametrize("fields", UNKNOWN)
def test_field_numbers_of_lifetimes(client, untouched, fields):
    with pytest.raises(vu_mom.InputError):
        client.pexpire_fields(0, port(), 0, fields, 1, None)


@pytest.mark.parametrize("tag", [0, -1, 11, 2**29, 2**31 - 1, -(2**31)])
def test_the_field_number_of_a_lifetime(client, untouched, tag):
    with pytest.raises(vu_mom.InputError):
        client.pexpire_field(0, port(), 0, tag, 1, None)


@pytest.mark.parametrize("fields", UNKNOWN)
def test_field_numbers_of_subscriptions(client, untouched, fields):
    with pytest.raises(vu_mom.InputError):
        client.subscribe_field(0, port(), 0, fields, [print] * len(fields), [None] * len(fields))
    with pytest.raises(vu_mom.InputError):
        client.unsubscribe_field(0, port(), 0, fields)


@pytest.mark.parametrize("command", ["hmset", "hmsetnx", "hmupdate", "hmget"])
def test_a_missing_array_with_a_count(client, store, untouched, command, capfd):
    """A list that cannot be converted reaches the library as no array, with its length."""
    rest = (None,) if command == "hmget" else ()
    with pytest.raises(vu_mom.InputError):
        getattr(client, command)(0, port("hash", name="y"), [NAME, -1], *rest)
    assert [kind for kind, _ in store.unraisable()] == [OverflowError]
    assert "can't convert negative value to size_t" in capfd.readouterr().err


def test_messages_of_several_types(client, untouched):
    with pytest.raises(vu_mom.InputError):
        client.zadd(0, [1, 2], [port("sorted set", name="y"), settings()])
    with pytest.raises(vu_mom.InputError):
        client.zrem(0, [port("sorted set", name="x"), settings()])
    with pytest.raises(vu_mom.InputError):
        client.linsert(0, settings(), port("list"), 0, None)
    with pytest.raises(vu_mom.InputError):
        client.linsert(0, port("list", name="x"), settings(), 0, None)


@pytest.mark.parametrize("address", ADDRESSES)
def test_one_bad_address_among_good_ones(client, untouched, address):
    good, element = port("sorted set", name="x"), port("list", name="x")
    bad = Fake(ADDRESSES[address]())
    for objs in ([good, bad], [bad, good]):
        with pytest.raises(vu_mom.InputError):
            client.zadd(0, [5, 6], objs)
        with pytest.raises(vu_mom.InputError):
            client.zrem(0, objs)
    for pivot, obj in ((element, bad), (bad, element)):
        with pytest.raises(vu_mom.InputError):
            client.linsert(0, pivot, obj, 0, None)


@pytest.mark.parametrize("command", CALLS)
def test_a_live_message_works_through_its_address(client, store, command):
    """The counterpart: it is the address that counts, not who names it."""
    CALLS[command](client, 0, Fake(LIVE.get_ptr()))
    store.drive()


@pytest.mark.parametrize("command", CALLS)
def test_a_closed_handle(store, client, command):
    other = store.open()
    other.set(0, port(name="x"))
    client.handle.close()
    if command == "publish":
        client.publish(0, port())  # the one command that never raises Error
    else:
        with pytest.raises(vu_mom.Error):
            CALLS[command](client, 0, port(name="y"))
    store.drive()
    assert client.log == []
    assert other.value("get", 0, port()) == port(name="x")
