"""A client that shows which reply methods it is asked for, and the tests that use one."""
from support import Any, BindingTest, Client

GETFUNC = "__getfunc"  # not an identifier in a class body, where it would be mangled


def text_of(function):
    """What the interpreter says when the function fails."""
    try:
        function()
    except Exception as error:
        return str(error)
    raise AssertionError("it does not fail")


class Asking(Client):
    """A client that answers with itself and notes what it is asked for."""
    asked = None  # type: Any


setattr(Asking, GETFUNC, property(lambda self: self.asked.append))


class AskingTest(BindingTest):

    def setUp(self):
        super(AskingTest, self).setUp()
        self.asking = Asking(self.glb)  # type: Any
        self.asking.asked = []
        self.glb.apps[:] = []

    def tearDown(self):
        self.asking = None
        super(AskingTest, self).tearDown()
