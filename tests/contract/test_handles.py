"""Several handles on one store, several clients on one handle, several stores."""

import vu_global
from messages import NAME, port


def test_handles_of_one_name_share_the_store(client, store):
    other = store.open()
    client.set(0, port(name="x"))
    assert other.value("get", 0, port()) == port(name="x")
    other.hmset(3, port(name="y"), [NAME])
    assert client.value("hgetall", 3, port()).obj == port(name="y")
    other.delete(0, port())
    assert client.value("get", 0, port()) is None


def test_stores_of_other_names_are_apart(client, store, engine):
    apart = store.open(engine.fresh_store())
    watch = apart.watch(0, port(), 0)
    client.set(0, port(name="x"))
    store.drive()
    assert apart.value("get", 0, port()) is None
    assert watch == []
    apart.set(0, port(name="y"))
    assert client.value("get", 0, port()) == port(name="x")


def test_changes_reach_the_other_handles(client, store):
    others = [store.open() for _ in range(3)]
    watches = [other.watch(0, port(), 1) for other in others]
    mine = client.watch(0, port(), 1)
    client.set(0, port(name="x"))
    others[0].send("incr", 0, port())
    store.drive()
    for watch in watches + [mine]:
        assert [event.type_code for event in watch] == [1, 3]
        assert watch[1].result == port(name="x", hits=1)


def test_the_last_of_equal_writers_wins(client, store):
    other = store.open()
    watch = client.watch(0, port(), 3)
    client.set(0, port(name="one"))
    other.set(0, port(name="two"))
    client.set(0, port(name="three"))
    store.drive()
    assert [event.result.name for event in watch] == ["one", "two", "three"]
    assert other.value("get", 0, port()).name == "three"


def test_owners_are_the_same_for_all_handles(client, store):
    other = store.open()
    client.setow(0, port(name="mine"), 7)
    other.setow(0, port(name="refused"), 8)
    assert other.value("get", 0, port()) == port(name="mine")
    other.setow(0, port(name="the same owner"), 7)
    assert client.value("get", 0, port()) == port(name="the same owner")


def test_counting_together(client, store):
    others = [store.open() for _ in range(4)]
    inboxes = [other.send("incr", 0, port()) for _ in range(50) for other in others]
    store.drive()
    assert sorted(inbox[0].result.value for inbox in inboxes) == list(range(1, 201))


def test_lifetimes_go_on_when_their_handle_is_closed(client, store):
    other = store.open()
    watch = client.watch(0, port(), 0)
    other.set(0, port())
    other.acted_on("pexpire", 0, port(), 3, 5)
    other.handle.close()
    store.advance(5)
    store.drive()
    assert [event.type_code for event in watch] == [1, 0]
    assert client.value("get", 0, port()) is None


def test_a_closed_handle_leaves_its_objects_to_the_others(client, store):
    other = store.open()
    other.set(0, port(name="x"))
    store.drive()
    other.handle.close()
    store.drive()
    assert client.value("get", 0, port()) == port(name="x")


def test_two_clients_on_one_handle(client, store):
    second = type(client)(store, client.handle)
    client.set(0, port(name="x"))
    mine = client.send("get", 0, port())
    theirs = second.send("get", 0, port())
    watch = second.watch(0, port(), 0)
    client.set(0, port(name="y"))
    client.unsubscribe(0, port(), 0)  # the handle's subscriptions, whoever made them
    store.drive()
    assert [arrival.method for arrival in client.log] == ["get"]
    assert sorted(arrival.method for arrival in second.log) == ["get", "subscribe", "subscribe"]
    assert (mine[0].result, theirs[0].result) == (port(name="x"), port(name="x"))
    assert [event.type_code for event in watch] == [1, 28]


def test_the_picture_for_debugging(client, store, capfd):
    client.set(0, port(name="x"))
    client.watch(0, port(), 0)
    assert client.debug_show_all() is None
    assert "contract.Port" in capfd.readouterr().out


def test_a_store_that_does_not_exist():
    for address in ("", "nowhere", "embedded", "redis:/", "EMBEDDED:x", "http://localhost/"):
        try:
            glb = vu_global.VuGlobal(store=address)
        except ValueError as error:
            assert repr(address) in str(error) or address in str(error)
        else:
            glb.close()
            raise AssertionError("%r was opened" % address)
