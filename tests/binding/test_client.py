"""The client object: construction, __getfunc, debug_show_all, lifetime."""
import functools
import gc
import operator
import sys
import unittest
import weakref

import recorder
import support
import vu_global
import vu_mom
from asking import GETFUNC
from support import HANDLE, Any, BindingTest, Client, VuMom


class Construction(BindingTest):

    FRAMES = ["VuMom.__init__"]

    def test_registers(self):
        """The VuGlobal comes by position or as glb, and learns of the client."""
        for make in (lambda glb: VuMom(glb), lambda glb: VuMom(glb=glb)):
            glb = vu_global.VuGlobal(HANDLE)
            client = make(glb)
            self.assertEqual(len(glb.apps), 1)
            self.assertIs(glb.apps[0], client)
            client.debug_show_all()
            self.assertEqual(self.only_arguments(), {"handle": HANDLE})
            recorder.clear()
            glb.apps[:] = []

    def test_wrong_counts(self):
        for arguments, given in (((), 0), ((self.glb, 1), 2), ((self.glb, 1, 2), 3)):
            text = "__init__() takes exactly 1 positional argument (%d given)" % given
            with self.refuses(TypeError, text, self.FRAMES):
                VuMom(*arguments)
        with self.refuses(TypeError, "__init__() takes exactly 1 positional argument (0 given)",
                          self.FRAMES):
            VuMom(unknown=1)
        with self.refuses(TypeError, "__init__() got an unexpected keyword argument 'unknown'",
                          self.FRAMES):
            VuMom(self.glb, unknown=1)
        with self.refuses(TypeError, "__init__() got multiple values for keyword argument 'glb'",
                          self.FRAMES):
            VuMom(self.glb, glb=self.glb)
        self.assertEqual(self.glb.apps, [])

    def test_wrong_types(self):
        for wrong in (42, "glb", object(), vu_global.VuGlobal):
            text = "Argument 'glb' has incorrect type (expected vu_global.VuGlobal, got %s)" % (
                type(wrong).__name__)
            with self.refuses(TypeError, text, self.FRAMES):
                VuMom(wrong)

    def test_none(self):
        """Is taken as a VuGlobal, and then has no regist_app."""
        with self.refuses(AttributeError, "'NoneType' object has no attribute 'regist_app'",
                          self.FRAMES):
            VuMom(None)

    def test_subclass_of_the_global(self):
        class Special(vu_global.VuGlobal):
            def regist_app(self, app):
                self.seen = app
                return "discarded"
        glb = Special(5)
        client = VuMom(glb)
        self.assertIs(glb.seen, client)
        del glb.seen

    def test_registration_fails(self):
        """The error arrives; the client has its VuGlobal already."""
        class Refusing(vu_global.VuGlobal):
            def regist_app(self, app):
                raise KeyError("full")
        glb = Refusing(5)
        client = VuMom.__new__(VuMom)
        before = sys.getrefcount(glb)
        with self.refuses(KeyError, "'full'", self.FRAMES):
            client.__init__(glb)
        self.assertEqual(sys.getrefcount(glb), before + 1)
        client.debug_show_all()
        self.assertEqual(self.only_arguments(), {"handle": 5})

    def test_init_again(self):
        """Binds the client to another VuGlobal and releases the previous one."""
        other = vu_global.VuGlobal(9)
        client = VuMom(self.glb)
        self.glb.apps[:] = []
        before = sys.getrefcount(self.glb)
        client.__init__(other)
        self.assertEqual(sys.getrefcount(self.glb), before - 1)
        self.assertEqual(other.apps, [client])
        self.assertEqual(self.glb.apps, [])
        client.debug_show_all()
        self.assertEqual(self.only_arguments(), {"handle": 9})
        other.apps[:] = []

    def test_wrong_type_changes_nothing(self):
        client = VuMom(self.glb)
        with self.refuses(TypeError):
            client.__init__(42)
        client.debug_show_all()
        self.assertEqual(self.only_arguments(), {"handle": HANDLE})
        self.glb.apps[:] = []

    def test_new_takes_anything(self):
        """Allocation alone looks at no arguments and registers nothing."""
        client = VuMom.__new__(VuMom, 1, x=2)
        self.assertEqual(client.__reduce__()[1][2], (None,))

    def test_no_attributes(self):
        client = VuMom(self.glb)
        self.assertFalse(hasattr(client, "vu_global"))
        self.assertFalse(hasattr(client, "__dict__"))
        with self.assertRaises(AttributeError):
            client.anything = 1
        self.glb.apps[:] = []


class Calls(BindingTest):

    def test_all_ways_to_call(self):
        """However a command is called, the same arrives."""
        class Sub(support.Listener):
            def get(self, *args, **kwargs):
                return super(Sub, self).get(*args, **kwargs)
        client = Sub(self.glb)
        self.glb.apps[:] = []
        arguments = (1, self.obj, self.p)
        keywords = {"db": 1, "obj": self.obj, "privdata": self.p}
        sent = []
        for call in (lambda: self.client.get(*arguments), lambda: self.client.get(**keywords),
                     lambda: VuMom.get(self.client, *arguments),
                     lambda: VuMom.get(self.client, **keywords),
                     lambda: client.get(*arguments), lambda: client.get(**keywords),
                     functools.partial(self.client.get, 1, privdata=self.p, obj=self.obj),
                     lambda: functools.partial(self.client.get, 1)(self.obj, privdata=self.p),
                     lambda: operator.methodcaller("get", *arguments)(self.client),
                     lambda: operator.methodcaller("get", **keywords)(self.client)):  # type: Any
            recorder.clear()
            self.assertIsNone(call())
            found = self.only_call()
            self.take_back(self.sent_context())
            sent.append([pair for pair in found.arguments if pair[0] != "context"])
        self.assertEqual(sent, sent[:1] * len(sent))
        self.assertEqual(self.client.replies, [])


class GetFunc(BindingTest):

    def test_is_getattr(self):
        self.client.thing = object()
        getfunc = getattr(self.client, GETFUNC)
        self.assertIs(getfunc("thing"), self.client.thing)
        self.assertEqual(getfunc("get"), self.client.get)

    def test_missing(self):
        with self.refuses(AttributeError, "'Listener' object has no attribute 'on_get_x_y'",
                          ["VuMom.__getfunc"]):
            getattr(self.client, GETFUNC)("on_get_x_y")

    def test_getattr_method_is_asked(self):
        class Dynamic(Client):
            def __getattr__(self, name):
                return "made " + name
        client = Dynamic(self.glb)
        self.assertEqual(getattr(client, GETFUNC)("thing"), "made thing")
        self.glb.apps[:] = []

    def test_names_that_are_no_strings(self):
        """Go to the ordinary attribute lookup, which refuses them."""
        for name in (5, None, b"get"):
            with self.refuses(TypeError, None, ["VuMom.__getfunc"]):
                getattr(self.client, GETFUNC)(name)

    def test_string_subclass(self):
        class Name(str):
            pass
        self.assertEqual(getattr(self.client, GETFUNC)(Name("get")), self.client.get)

    def test_argument_count(self):
        getfunc = getattr(self.client, GETFUNC)
        self.assertRaises(TypeError, getfunc)
        self.assertRaises(TypeError, getfunc, "a", "b")
        self.assertRaises(TypeError, getfunc, name="a")

    def test_exceptions_arrive(self):
        class Failing(Client):
            @property
            def thing(self):
                raise KeyError("broken")
        client = Failing(self.glb)
        with self.refuses(KeyError, "'broken'", ["VuMom.__getfunc"]):
            getattr(client, GETFUNC)("thing")
        self.glb.apps[:] = []


class DebugShowAll(BindingTest):

    def test_statuses(self):
        for status, error in ((-2, vu_mom.InputError), (-3, MemoryError), (-1, vu_mom.Error),
                              (7, vu_mom.Error)):
            recorder.answer(status)
            with self.refuses(error, "", ["VuMom.debug_show_all"]):
                self.client.debug_show_all()
        recorder.answer(0)
        self.assertIsNone(self.client.debug_show_all())
        self.assertEqual([call.function for call in recorder.calls()],
                         ["vu_mom_debug_show_all"] * 5)

    def test_handle_is_read_afresh(self):
        for handle in (0, 1, HANDLE):
            self.glb.handle = handle
            self.client.debug_show_all()
        self.assertEqual([dict(call.arguments)["handle"] for call in recorder.calls()],
                         [0, 1, HANDLE])

    def test_no_arguments(self):
        self.assertRaises(TypeError, self.client.debug_show_all, 1)
        self.assertRaises(TypeError, self.client.debug_show_all, x=1)
        self.assert_nothing_sent()

    def test_other_objects(self):
        self.assertRaises(TypeError, VuMom.debug_show_all, object())
        self.assertRaises(TypeError, VuMom.get, object(), 0, self.obj, None)
        self.assert_nothing_sent()


class Lifetime(BindingTest):

    def test_releases_its_global(self):
        before = sys.getrefcount(self.glb)
        client = VuMom(self.glb)
        self.glb.apps[:] = []
        self.assertEqual(sys.getrefcount(self.glb), before + 1)
        del client
        self.assertEqual(sys.getrefcount(self.glb), before)

    def test_cycles_are_collected(self):
        """A client and the VuGlobal that keeps it go together."""
        glb = vu_global.VuGlobal(5)
        client = Client(glb)
        self.assertEqual(glb.apps, [client])
        gone = weakref.ref(client)
        del glb, client
        gc.collect()
        self.assertIsNone(gone())

    def test_cycle_without_a_dict(self):
        """The traversal visits the VuGlobal itself."""
        glb = vu_global.VuGlobal(5)
        client = VuMom(glb)
        self.assertTrue(gc.is_tracked(client))
        self.assertTrue(any(thing is glb for thing in gc.get_referents(client)))
        glb.apps[:] = []

    def test_finaliser_runs_first(self):
        """A subclass's __del__ still has the whole client."""
        class Closing(Client):
            def __del__(self):
                self.debug_show_all()
        glb = vu_global.VuGlobal(21)
        client = Closing(glb)
        glb.apps[:] = []
        del client, glb
        self.assertEqual(self.only_arguments(), {"handle": 21})

    def test_finaliser_in_a_cycle(self):
        class Closing(Client):
            def __del__(self):
                self.debug_show_all()
        glb = vu_global.VuGlobal(22)
        Closing(glb)
        del glb
        gc.collect()
        self.assertEqual(self.only_arguments(), {"handle": 22})

    def test_weak_references_of_subclasses(self):
        client = Client(self.glb)
        reference = weakref.ref(client)
        self.glb.apps[:] = []
        del client
        self.assertIsNone(reference())


if __name__ == "__main__":
    unittest.main()
