"""Pickling of clients: the reduced forms, restoring, and what is refused."""
import copy
import pickle
import sys
import unittest

import recorder
import support
import vu_global
import vu_mom
from support import HANDLE, Any, BindingTest, Client

CHECKSUM = 0x2b63339
UNPICKLE = vu_mom.__dict__["__pyx_unpickle_VuMom"]  # no class here may mangle the name


class Bare(vu_mom.VuMom):
    __slots__ = ()


class Registered(vu_global.VuGlobal):
    """Counts registrations, and pickles as an equal of itself."""

    def __eq__(self, other):
        return self.handle == other.handle

    __hash__ = None  # type: ignore[assignment]


def global_of(client):
    """The client's VuGlobal, which is no attribute."""
    reduced = client.__reduce__()
    state = reduced[2] if len(reduced) > 2 else reduced[1][2]
    return state[0]


class Reduce(BindingTest):

    def test_never_initialised(self):
        """Without a VuGlobal and without a __dict__: two elements, the state inside."""
        for cls in (vu_mom.VuMom, Bare):
            client = cls.__new__(cls)
            self.assertEqual(client.__reduce__(), (UNPICKLE, (cls, CHECKSUM, (None,))))

    def test_initialised(self):
        """With a VuGlobal: three elements, the state apart."""
        for cls in (vu_mom.VuMom, Bare):
            client = cls(self.glb)
            reduced = client.__reduce__()
            self.assertEqual(len(reduced), 3)
            self.assertIs(reduced[0], UNPICKLE)
            self.assertEqual(reduced[1], (cls, CHECKSUM, None))
            self.assertEqual(len(reduced[2]), 1)
            self.assertIs(reduced[2][0], self.glb)
            self.glb.apps[:] = []

    def test_with_a_dict(self):
        """An instance __dict__ is part of the state, and makes it three elements."""
        client = Client.__new__(Client)
        reduced = client.__reduce__()
        self.assertEqual(reduced, (UNPICKLE, (Client, CHECKSUM, None), (None, {})))
        self.assertIs(reduced[2][1], client.__dict__)
        client = Client(self.glb)
        client.name = "x"
        reduced = client.__reduce__()
        self.assertIs(reduced[2][0], self.glb)
        self.assertEqual(reduced[2][1], {"name": "x"})
        self.glb.apps[:] = []

    def test_reduce_ex_is_the_default(self):
        self.assertIs(vu_mom.VuMom.__reduce_ex__, object.__reduce_ex__)
        self.assertIsNot(vu_mom.VuMom.__reduce__, object.__reduce__)
        client = vu_mom.VuMom.__new__(vu_mom.VuMom)
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            self.assertEqual(client.__reduce_ex__(protocol), client.__reduce__())

    def test_dict_is_any_attribute(self):
        """__dict__ is looked up as an attribute, wherever it comes from."""
        class Odd(vu_mom.VuMom):
            __slots__ = ()
            __dict__ = property(lambda self: {"made": "up"})  # type: ignore[assignment]
        client = Odd.__new__(Odd)
        self.assertEqual(client.__reduce__(),
                         (UNPICKLE, (Odd, CHECKSUM, None), (None, {"made": "up"})))

    def test_dict_that_is_none(self):
        class Odd(vu_mom.VuMom):
            __slots__ = ()
            __dict__ = None  # type: ignore[assignment]
        client = Odd.__new__(Odd)
        self.assertEqual(client.__reduce__(), (UNPICKLE, (Odd, CHECKSUM, (None,))))

    def test_dict_that_fails(self):
        class Odd(vu_mom.VuMom):
            __slots__ = ()

            @property
            def __dict__(self):
                raise KeyError("no dict")
        client = Odd.__new__(Odd)
        with self.refuses(KeyError, "'no dict'"):
            client.__reduce__()

    def test_no_arguments(self):
        client = vu_mom.VuMom.__new__(vu_mom.VuMom)
        self.assertRaises(TypeError, client.__reduce__, 1)

    def test_missing_function(self):
        """__pyx_unpickle_VuMom is looked up in the module each time."""
        client = vu_mom.VuMom.__new__(vu_mom.VuMom)
        name = "__pyx_unpickle_VuMom"
        del vu_mom.__dict__[name]
        try:
            with self.refuses(NameError, "name '%s' is not defined" % name):
                client.__reduce__()
            vu_mom.__dict__[name] = len
            self.assertEqual(client.__reduce__()[0], len)
        finally:
            vu_mom.__dict__[name] = UNPICKLE


class RoundTrip(BindingTest):

    def test_initialised(self):
        """The restored client has an equal VuGlobal, and is not registered again."""
        glb = Registered(HANDLE)
        client = Client(glb)
        client.name = "x"
        glb.apps[:] = []
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            again = pickle.loads(pickle.dumps(client, protocol))
            self.assertIs(type(again), Client)
            self.assertIsNot(global_of(again), glb)
            self.assertEqual(global_of(again), glb)
            self.assertEqual(global_of(again).apps, [])
            self.assertEqual(again.name, "x")
            recorder.clear()
            again.debug_show_all()
            self.assertEqual(self.only_arguments(), {"handle": HANDLE})

    def test_never_initialised(self):
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            client = pickle.loads(pickle.dumps(Bare.__new__(Bare), protocol))
            self.assertIs(type(client), Bare)
            self.assertIsNone(global_of(client))

    def test_copy(self):
        """Copies share the VuGlobal."""
        client = Client(self.glb)
        self.glb.apps[:] = []
        client.name = ["x"]
        again = copy.copy(client)
        self.assertIs(global_of(again), self.glb)
        self.assertIs(again.name, client.name)
        self.assertEqual(self.glb.apps, [])

    def test_init_is_not_run(self):
        calls = []

        class Noisy(vu_mom.VuMom):
            def __init__(self, glb):
                calls.append(glb)
        restored = UNPICKLE(Noisy, CHECKSUM, (self.glb,))
        self.assertIs(type(restored), Noisy)
        self.assertEqual(calls, [])


class Unpickle(BindingTest):

    FRAMES = ["__pyx_unpickle_VuMom"]
    STATE_FRAMES = ["__pyx_unpickle_VuMom", "__pyx_unpickle_VuMom__set_state"]

    def test_function(self):
        self.assertEqual(UNPICKLE.__name__, "__pyx_unpickle_VuMom")
        self.assertEqual(UNPICKLE.__module__, "vu_mom")

    def test_forms(self):
        client = UNPICKLE(vu_mom.VuMom, CHECKSUM, None)
        self.assertIsNone(global_of(client))
        client = UNPICKLE(vu_mom.VuMom, CHECKSUM, (self.glb,))
        self.assertIs(global_of(client), self.glb)
        client = UNPICKLE(Client, CHECKSUM, (None, {"a": 1}))
        self.assertEqual(client.__dict__, {"a": 1})
        # By keyword, and a checksum that converts.
        client = UNPICKLE(**{"__pyx_type": Bare, "__pyx_checksum": support.Int(CHECKSUM),
                             "__pyx_state": (self.glb,)})
        self.assertIs(type(client), Bare)
        self.assertIs(global_of(client), self.glb)

    def test_wrong_checksum(self):
        for checksum, shown in ((1, "1"), (0, "0"), (-5, "-5"), (True, "1"), (3.9, "3")):
            with self.refuses(pickle.PickleError, "Incompatible checksums (%s vs 0x2b63339 = "
                              "(vu_global))" % shown, self.FRAMES):
                UNPICKLE(vu_mom.VuMom, checksum, None)

    def test_wrong_checksum_counts_before_the_state(self):
        with self.refuses(pickle.PickleError):
            UNPICKLE(5, 1, 5)

    def test_without_pickle_error(self):
        error = pickle.PickleError
        del pickle.PickleError
        try:
            with self.refuses(ImportError, None, self.FRAMES):
                try:
                    UNPICKLE(vu_mom.VuMom, 1, None)
                except ImportError as raised:
                    self.assertTrue(str(raised).startswith("cannot import name"), str(raised))
                    self.assertIn("PickleError", str(raised))
                    raise
        finally:
            pickle.PickleError = error  # type: ignore[misc]

    def test_checksum_that_is_no_integer(self):
        for checksum in ("1", None, support.OnlyIndex()):
            with self.refuses(TypeError, "an integer is required", self.FRAMES):
                UNPICKLE(vu_mom.VuMom, checksum, None)
        with self.refuses(OverflowError, support.LONG_OVERFLOW, self.FRAMES):
            UNPICKLE(vu_mom.VuMom, 2 ** 63, None)

    def test_counts_and_keywords(self):
        text = "__pyx_unpickle_VuMom() takes exactly 3 positional arguments (%d given)"
        for arguments in ((), (1,), (1, 2), (1, 2, 3, 4)):
            with self.refuses(TypeError, text % len(arguments), self.FRAMES):
                UNPICKLE(*arguments)
        with self.refuses(TypeError, text % 1, self.FRAMES):
            UNPICKLE(1, **{"__pyx_state": 1})
        with self.refuses(TypeError, "__pyx_unpickle_VuMom() got an unexpected keyword argument "
                          "'x'", self.FRAMES):
            UNPICKLE(1, 2, 3, x=4)

    def test_types_that_are_no_clients(self):
        for wrong in (int, object, 5, None):
            with self.assertRaises(TypeError):
                UNPICKLE(wrong, CHECKSUM, None)

    def test_state_that_is_no_tuple(self):
        for state in ([None], 5, {}):
            with self.refuses(TypeError, "Expected tuple, got %s" % type(state).__name__,
                              self.FRAMES):
                UNPICKLE(vu_mom.VuMom, CHECKSUM, state)

    def test_states_of_wrong_contents(self):
        with self.refuses(TypeError, "Cannot convert int to vu_global.VuGlobal",
                          self.STATE_FRAMES):
            UNPICKLE(vu_mom.VuMom, CHECKSUM, (5,))
        with self.refuses(IndexError, None, self.STATE_FRAMES):
            UNPICKLE(vu_mom.VuMom, CHECKSUM, ())


class SetState(BindingTest):

    FRAMES = ["VuMom.__setstate__"]
    STATE_FRAMES = ["VuMom.__setstate__", "__pyx_unpickle_VuMom__set_state"]

    def setUp(self):
        super(SetState, self).setUp()
        self.bare = Bare.__new__(Bare)  # type: Any

    def tearDown(self):
        self.bare = None
        super(SetState, self).tearDown()

    def test_replaces(self):
        """The previous VuGlobal is released, nothing is registered."""
        other = vu_global.VuGlobal(7)
        before = sys.getrefcount(other), sys.getrefcount(self.glb)
        self.assertIsNone(self.bare.__setstate__((other,)))
        self.assertIs(global_of(self.bare), other)
        self.assertIsNone(self.bare.__setstate__((self.glb,)))
        self.assertIs(global_of(self.bare), self.glb)
        self.assertEqual((sys.getrefcount(other), sys.getrefcount(self.glb)),
                         (before[0], before[1] + 1))
        self.bare.__setstate__((None,))
        self.assertIsNone(global_of(self.bare))
        self.assertEqual((sys.getrefcount(other), sys.getrefcount(self.glb)), before)
        self.assertEqual((other.apps, self.glb.apps), ([], []))

    def test_subclass_of_the_global(self):
        glb = Registered(1)
        self.bare.__setstate__((glb,))
        self.assertIs(global_of(self.bare), glb)

    def test_dict_is_updated(self):
        client = Client.__new__(Client)
        client.kept, client.changed = 1, 2
        client.__setstate__((None, {"changed": 3, "new": 4}, "more is ignored"))
        self.assertEqual(client.__dict__, {"kept": 1, "changed": 3, "new": 4})
        client.__setstate__((self.glb,))
        self.assertEqual(client.__dict__, {"kept": 1, "changed": 3, "new": 4})

    def test_second_element_without_a_dict(self):
        """Is not looked at."""
        self.bare.__setstate__((self.glb, 5))
        self.assertIs(global_of(self.bare), self.glb)

    def test_second_element_that_does_not_update(self):
        client = Client.__new__(Client)
        with self.refuses(TypeError, None, self.STATE_FRAMES):
            client.__setstate__((self.glb, 5))
        self.assertIs(global_of(client), self.glb)

    def test_state_that_is_no_tuple(self):
        for state in ([None], 5, "x"):
            with self.refuses(TypeError, "Expected tuple, got %s" % type(state).__name__,
                              self.FRAMES):
                self.bare.__setstate__(state)

    def test_none(self):
        """Is let through as a state, and then has no elements."""
        with self.refuses(TypeError, "'NoneType' object is not subscriptable", self.STATE_FRAMES):
            self.bare.__setstate__(None)

    def test_wrong_global(self):
        """Is refused, and the client keeps what it has."""
        self.bare.__setstate__((self.glb,))
        for wrong in (5, "x", object()):
            text = "Cannot convert %s to vu_global.VuGlobal" % type(wrong).__name__
            with self.refuses(TypeError, text, self.STATE_FRAMES):
                self.bare.__setstate__((wrong,))
            self.assertIs(global_of(self.bare), self.glb)

    def test_empty_state(self):
        with self.refuses(IndexError, None, self.STATE_FRAMES):
            self.bare.__setstate__(())

    def test_argument_count(self):
        self.assertRaises(TypeError, self.bare.__setstate__)
        self.assertRaises(TypeError, self.bare.__setstate__, (None,), 1)


if __name__ == "__main__":
    unittest.main()
