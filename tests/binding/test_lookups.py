"""Where attributes of messages and clients come from: what the type has is found in other ways
than what the object has, and what is written in C is called in other ways; nobody may notice."""
import unittest

import recorder
import support
from asking import GETFUNC, AskingTest, text_of
from support import Any, BindingTest, Client


def slotless(base=object, **attributes):
    """A type whose objects have the attributes of the type alone."""
    content = dict(package_name="demo", short_name="Counter", __slots__=(),
                   get_ptr=lambda self: support.ADDRESS)
    content.update(attributes)
    return type("Slotless", (base,), content)


class Messages(AskingTest):

    def asked(self, obj):
        """The name of the reply method, as `get` asks for it."""
        self.asking.get(0, obj, None)
        self.take_back(self.sent_context())
        recorder.clear()
        return self.asking.asked.pop()

    def address(self, obj):
        self.client.delete(0, obj)
        address = self.only_arguments()["message"]
        recorder.clear()
        return address

    def class_of(self, obj):
        self.client.get(0, obj, None)
        context = self.sent_context()
        found = recorder.object_at(context)["obj"]
        self.take_back(context)
        recorder.clear()
        return found

    def test_names_of_the_type(self):
        """Are read each time."""
        cls = slotless()
        obj = cls()
        self.assertEqual(self.asked(obj), "on_get_demo_Counter")
        cls.package_name = "other"
        self.assertEqual(self.asked(obj), "on_get_other_Counter")
        cls.short_name = "Thing"
        self.assertEqual(self.asked(obj), "on_get_other_Thing")
        del cls.short_name
        with self.refuses(AttributeError, text_of(lambda: obj.short_name), ["VuMom.get"]):
            self.asked(obj)

    def test_names_of_a_base(self):
        cls = slotless()
        self.assertEqual(self.asked(slotless(cls, short_name="Thing")()), "on_get_demo_Thing")

    def test_computed_names(self):
        cls = slotless(package_name=property(lambda self: "computed"),
                       short_name=classmethod(lambda cls: 5))
        with self.refuses(TypeError, None, ["VuMom.get"]):
            self.asked(cls())
        cls.short_name = property(lambda self: "too")
        self.assertEqual(self.asked(cls()), "on_get_computed_too")

    def test_names_in_slots(self):
        cls = type("Slots", (object,), dict(__slots__=("package_name", "short_name"),
                                            get_ptr=lambda self: support.ADDRESS))
        obj = cls()
        obj.package_name, obj.short_name = "in", "slots"
        self.assertEqual(self.asked(obj), "on_get_in_slots")

    def test_lookup_of_its_own(self):
        class Own(slotless()):  # type: ignore[misc]
            __slots__ = ()

            def __getattribute__(self, name):
                return {"package_name": "own", "short_name": "lookup", "__class__": int,
                        "get_ptr": lambda: 7}[name]
        self.assertEqual(self.asked(Own()), "on_get_own_lookup")
        self.assertEqual(self.address(Own()), 7)
        self.assertIs(self.class_of(support.Message()), support.Message)
        client = self.client
        setattr(type(client), "on_get_own_lookup", lambda self, msg, p: None)
        try:
            self.assertIs(self.class_of(Own()), int)
        finally:
            delattr(type(client), "on_get_own_lookup")

    def test_missing_names_are_asked_for(self):
        class Asked(object):
            __slots__ = ()

            def __getattr__(self, name):
                return {"package_name": "asked", "short_name": "for",
                        "get_ptr": lambda: 8}[name]
        self.assertEqual(self.asked(Asked()), "on_get_asked_for")
        self.assertEqual(self.address(Asked()), 8)

    def test_class(self):
        cls = slotless()
        self.assertIs(self.class_of(cls()), cls)
        for other in (property(lambda self: int), int):
            self.assertIs(self.class_of(slotless(__class__=other)()), int)

    def test_address_by_a_method_in_c(self):
        cls = slotless(int, get_ptr=int.conjugate)
        for address in (0, 1, -1, 2 ** 31 - 1, -2 ** 31, 2 ** (support.LONG_BITS - 1) - 1):
            self.assertEqual(self.address(cls(address)), address)
        with self.refuses(OverflowError, support.LONG_OVERFLOW, ["VuMom.delete"]):
            self.address(cls(2 ** 70))

    def test_method_in_c_of_a_base_that_is_replaced(self):
        base = slotless(int, get_ptr=int.conjugate)
        cls = slotless(base)
        del cls.get_ptr
        obj = cls(5)
        self.assertEqual(self.address(obj), 5)
        base.get_ptr = lambda self: 6
        self.assertEqual(self.address(obj), 6)
        cls.get_ptr = int.bit_length
        self.assertEqual(self.address(obj), 3)

    def test_method_in_c_that_fails(self):
        with self.refuses(KeyError, text_of(lambda: {}.popitem()), ["VuMom.delete"]):
            self.client.delete(0, slotless(dict, get_ptr=dict.popitem)())
        self.assert_nothing_sent()

    def test_method_in_c_of_another_type(self):
        """It must not be called with the wrong object."""
        for method in (dict.copy, dict.popitem, int.conjugate, list.reverse):
            obj = slotless(get_ptr=method)()
            with self.refuses(TypeError, text_of(lambda: obj.get_ptr()), ["VuMom.delete"]):
                self.client.delete(0, obj)
        self.assert_nothing_sent()

    def test_method_in_c_with_arguments(self):
        for base, method in ((dict, dict.get), (list, list.append), (dict, dict.update)):
            obj = slotless(base, get_ptr=method)()
            text = None if method is dict.update else text_of(lambda: obj.get_ptr())
            with self.refuses(TypeError, text, ["VuMom.delete"]):
                self.client.delete(0, obj)
        self.assert_nothing_sent()

    def test_address_by_other_callables(self):
        for get_ptr in (staticmethod(lambda: 9), classmethod(lambda cls: 9),
                        property(lambda self: lambda: 9)):
            self.assertEqual(self.address(slotless(get_ptr=get_ptr)()), 9)


class Fetching(BindingTest):
    """__getfunc of other kinds."""

    def client_with(self, getfunc):
        cls = type("Fetching", (Client,), {GETFUNC: getfunc})
        client = cls(self.glb)
        self.glb.apps[:] = []
        return client

    def cb_of(self, client):
        client.get(0, self.obj, None)
        context = self.sent_context()
        cb = recorder.object_at(context)["cb"]
        self.take_back(context)
        recorder.clear()
        return cb

    def test_function_of_a_subclass(self):
        client = self.client_with(lambda self, name: (self, name))
        self.assertEqual(self.cb_of(client), (client, "on_get_demo_Counter"))

    def test_other_callables(self):
        for getfunc in (staticmethod(lambda name: name), str, "{}!".format):
            self.assertIn("on_get_demo_Counter", self.cb_of(self.client_with(getfunc)))

    def test_method_in_c_of_another_type(self):
        for method in (list.append, dict.__contains__):
            client = self.client_with(method)
            with self.refuses(TypeError, text_of(lambda: getattr(client, GETFUNC)("x")),
                              ["VuMom.get"]):
                client.get(0, self.obj, None)
        self.assert_nothing_sent()

    def test_nothing_is_found(self):
        client = self.client_with(property())
        with self.refuses(AttributeError, text_of(lambda: getattr(client, GETFUNC)),
                          ["VuMom.get"]):
            client.get(0, self.obj, None)
        self.assert_nothing_sent()

    def test_it_is_looked_up_before_the_names(self):
        """And called after them: a message may change it in between, for the next call."""
        test = self

        class Changing(support.Message):
            @property
            def package_name(self):
                setattr(test.changed, GETFUNC, lambda self, name: "changed")
                return "demo"
        client = self.client_with(property(lambda self: lambda name: "first"))
        self.changed = type(client)  # type: Any
        client.get(0, Changing(), None)
        context = self.sent_context()
        self.assertEqual(recorder.object_at(context)["cb"], "first")
        self.take_back(context)
        recorder.clear()
        self.assertEqual(self.cb_of(client), "changed")
        self.changed = None

    def test_the_method_of_vu_mom_is_kept_by_the_call(self):
        """What was looked up is called, though the object has another by then."""
        listener = self.client
        own = []

        class Changing(support.Message):
            @property
            def package_name(self):
                listener.__dict__[GETFUNC] = own.append
                return "demo"
        self.assertEqual(self.cb_of(listener), listener.on_get_demo_Counter)
        listener.get(0, Changing(), None)
        self.take_back(self.sent_context())
        recorder.clear()
        self.assertEqual(own, [])
        self.assertIsNone(self.cb_of(listener))
        self.assertEqual(own, ["on_get_demo_Counter"])


if __name__ == "__main__":
    unittest.main()
