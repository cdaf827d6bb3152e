"""Calls of the binding to let operations fail in: each command in its ways to succeed and to be
refused, and each callback with each kind of reply."""
import abc
import collections
import ctypes
import gc
import pickle
import sys

import inject
import outcomes
import recorder
import support

import vu_global
import vu_mom
import vu_mom_common

import cases

recorder.watch("tests/faults/python/vu_mom.so")  # one of them; support watches the other
GLOBAL = vu_global.VuGlobal(support.HANDLE)
CALLBACKS = support.callbacks()
CLIENT = support.Listener(GLOBAL)
MUTE = support.Client(GLOBAL)


class Choosing(support.Listener):
    """Fetches its reply methods itself."""


setattr(Choosing, "__getfunc", lambda self, name: getattr(self, name))
CHOOSING = Choosing(GLOBAL)
del GLOBAL.apps[:]
BIG = 2 ** 70  # in no C type

# The commands that go on where their list of field numbers cannot be converted.
TAGGED = [cases.BY_NAME[name] for name in ("hmset", "hmsetnx", "hmupdate", "hmget")]


class Token(object):
    """A privdata of which there is one."""
    __slots__ = ("__weakref__",)


# --- calls ------------------------------------------------------------------------------------


class Call(object):
    """A call of a callable; `arguments` makes (positional, keywords) for a privdata.
    `untagged` is the same call without the list of field numbers, where that list is converted
    first and failures of it do not stop the command."""

    def __init__(self, name, function, arguments, status=0, untagged=None):
        self.name, self.function, self.arguments, self.status = name, function, arguments, status
        self.untagged = untagged

    def __repr__(self):
        return self.name

    def run(self, kind=inject.NONE, first=0, last=0):
        """The outcome; what was kept is given back."""
        token = Token()
        positional, keywords = self.arguments(token)
        recorder.clear()
        recorder.answer(self.status)
        error, text = None, ""
        with support.reports() as found:
            try:
                inject.run(kind, first, last, self.function, positional, keywords)
            except Exception as raised:
                error, text = type(raised), str(raised)
                raised.__traceback__ = raised.__context__ = None
        del positional, keywords, GLOBAL.apps[:]
        outcome = outcomes.Outcome(error, text, len(recorder.calls()),
                                   len(outcomes.contexts_of(token)), recorder.live_blocks(),
                                   tuple(found.unraisable))
        outcomes.give_back(token)
        if outcomes.references(token) != 0:
            raise AssertionError("%s: the privdata is still held" % self)
        recorder.clear()
        if recorder.wrong_frees():
            raise AssertionError("%s: a wrong free" % self)
        recorder.free_blocks()
        return outcome


class NotAnInt(object):
    def __int__(self):
        return "1"


class Raising(object):
    """Fails to be converted."""

    def __int__(self):
        raise ValueError("no number today")
    __float__ = __int__


class NoAddress(support.Message):
    get_ptr = property()  # raises AttributeError


class AddressOf(support.Message):
    """Of which get_ptr() answers something else."""

    def __init__(self, address):
        self.address = address


class OddName(support.Message):
    package_name = 5  # type: ignore[assignment]


class JoinedName(support.Message):
    """The name is joined by code of its own."""

    class Part(str):
        def __radd__(self, left):
            return left + str(self)
    package_name = Part("demo")


class NoShortName(support.Message):
    short_name = property()  # type: ignore[assignment]


class OtherClass(support.Message):
    """Says that it is of another class."""
    __class__ = int  # type: ignore[assignment]


class OtherName(support.Message):
    """Whose names are new each time."""

    def __init__(self):
        super(OtherName, self).__init__()
        self.package_name = "".join(["de", "mo"])
        self.short_name = "".join(["Coun", "ter"])


Change = collections.namedtuple("Change", "name values")


def _wrong_numbers(kind):
    yield "no number", object()
    yield "raising", Raising()
    if kind == cases.DOUBLE:
        yield "an int", 3
        return
    yield "no int", NotAnInt()
    yield "converted", support.Int(3)
    yield "too large", BIG
    if kind in (cases.UINT32, cases.SIZE):
        yield "negative", -1
    if kind == cases.UINT32:
        yield "wide", 2 ** 32
    if kind == cases.INT32:
        yield "wide", 2 ** 31
    if kind == cases.SIZE:
        yield "large", support.SIZE_LIMIT - 1


def _messages(row):
    for name, wrong in (("no address", NoAddress()), ("odd address", AddressOf("x")),
                        ("raising address", AddressOf(Raising())),
                        ("converted address", AddressOf(support.Int(3))),
                        ("large address", AddressOf(2 ** (support.LONG_BITS - 2))),
                        ("too large address", AddressOf(BIG))):
        yield name, wrong
    if row.prefix:
        for other in (OddName, JoinedName, NoShortName, OtherClass, OtherName):
            yield other.__name__, other()


def changes(row):
    """Ways to change the arguments of a command, each by the name of one argument."""
    for name in row.names:
        if name in cases.KINDS:
            for what, value in _wrong_numbers(cases.KINDS[name]):
                yield Change("%s %s" % (name, what), {name: value})
        if name == "time":
            for value in (float("inf"), float("nan"), 1e12, -1e12, 3):
                yield Change("time %r" % value, {name: value})
        if name in ("obj", "pivot"):
            for what, value in _messages(row):
                yield Change("%s %s" % (name, what), {name: value})
        if name in cases.LISTS_OF:
            yield Change("%s None" % name, {name: None})
            yield Change("%s empty" % name, {name: []})
            yield Change("%s a tuple" % name, {name: ()})
            if cases.LISTS_OF[name] is not None:
                for what, value in _wrong_numbers(cases.LISTS_OF[name]):
                    yield Change("%s[1] %s" % (name, what), {name: [1, value]})
        if name == "objs":
            for what, value in _messages(row):
                yield Change("objs[1] " + what, {name: [support.Message(), value]})
    lists = [name for name in row.names if name in cases.LISTS_OF]
    if lists:
        yield Change("empty lists", dict((name, []) for name in lists))


def _with(row, changed):
    def arguments(token):
        values = support.values(row, token)
        values.update(changed)
        return tuple(support.positional(row, values)), None
    return arguments


def _by_keyword(row, changed=(), less=0):
    def arguments(token):
        values = support.values(row, token)
        values.update(changed)
        for name in row.names[:less]:
            del values[name]
        return (), values
    return arguments


def command_calls(row):
    """All ways to call one command."""
    method = getattr(CLIENT, row.name)

    def untagged(arguments, status=0, **changed):
        if row not in TAGGED or isinstance(changed.get("field_tags"), tuple):
            return None
        return Call("untagged", method, arguments(row, dict(changed, field_tags=None)), status)

    for status in (0, -1, -2, -3):
        yield Call("%s, status %d" % (row.name, status), method, _with(row, {}), status,
                   untagged(_with, status))
    for change in changes(row):
        yield Call("%s, %s" % (row.name, change.name), method, _with(row, change.values),
                   untagged=untagged(_with, **change.values))
    yield Call(row.name + " by keyword", method, _by_keyword(row),
               untagged=untagged(_by_keyword))
    yield Call(row.name + ", one less", method, _by_keyword(row, less=1))
    yield Call(row.name + ", one more", method, lambda token: (7 * (None,), None))
    yield Call(row.name + ", unknown keyword", method, _by_keyword(row, {"other": 1}))
    yield Call(row.name + ", keyword given twice", method,
               lambda token: (_with(row, {})(token)[0], {"db": 1}))
    if row.prefix:
        for what, client in (("without reply method", MUTE), ("choosing", CHOOSING)):
            other = getattr(client, row.name)
            yield Call("%s %s" % (row.name, what), other, _with(row, {}),
                       untagged=untagged(_with) and Call("untagged", other,
                                                         _with(row, {"field_tags": None})))


def _plain(*arguments, **keywords):
    return lambda token: (arguments, keywords or None)


class WithDict(vu_mom.VuMom):
    pass


class OddDict(vu_mom.VuMom):
    """Whose __dict__ cannot be read."""

    @property
    def __dict__(self):
        raise ValueError("unreadable")


class Abstract(vu_mom.VuMom, metaclass=abc.ABCMeta):
    @abc.abstractmethod
    def missing(self):
        pass


def without(module, name, function):
    """The function, called while a module lacks one of its attributes."""
    def call(*arguments):
        saved = getattr(module, name)
        delattr(module, name)
        try:
            return function(*arguments)
        finally:
            setattr(module, name, saved)
    return call


def client_calls():
    """What is not a command."""
    checksum = 0x2b63339
    unpickle = vu_mom.__pyx_unpickle_VuMom
    setstate = vu_mom.VuMom.__setstate__
    plain = vu_mom.VuMom(GLOBAL)
    empty = vu_mom.VuMom.__new__(vu_mom.VuMom)
    holding = WithDict(GLOBAL)  # type: support.Any
    holding.extra = 1
    del GLOBAL.apps[:]

    def calls():
        for status in (0, -1, -2, -3):
            yield "debug_show_all %d" % status, CLIENT.debug_show_all, _plain(), status
        yield "__getfunc", getattr(CLIENT, "__getfunc"), _plain("get"), 0
        yield "__getfunc of nothing", getattr(CLIENT, "__getfunc"), _plain("nothing"), 0
        yield "VuMom(None)", vu_mom.VuMom, _plain(None), 0
        yield "VuMom(42)", vu_mom.VuMom, _plain(42), 0
        yield "VuMom()", vu_mom.VuMom, _plain(), 0
        yield "VuMom by keyword", vu_mom.VuMom, _plain(glb=GLOBAL), 0
        yield "VuMom, odd keyword", vu_mom.VuMom, lambda token: ((GLOBAL,), {5: 1}), 0
        yield "VuMom, other keywords", vu_mom.VuMom, _plain(GLOBAL, other=1, more=2), 0
        yield "VuMom, other keyword", vu_mom.VuMom, _plain(glob=GLOBAL), 0
        yield "abstract", Abstract, _plain(GLOBAL), 0
        for client in (plain, empty, holding, OddDict(GLOBAL)):
            yield "reduce %s" % type(client).__name__, client.__reduce__, _plain(), 0
        for client, state in ((plain, (GLOBAL,)), (plain, (None,)), (plain, None), (plain, ()),
                              (plain, [GLOBAL]), (plain, (42,)), (holding, (GLOBAL, {"extra": 1})),
                              (plain, (GLOBAL, {})), (holding, (GLOBAL, 5))):
            yield "setstate %r" % (state,), setstate, _plain(client, state), 0
        for arguments in ((vu_mom.VuMom, checksum, (GLOBAL,)), (vu_mom.VuMom, checksum, None),
                          (vu_mom.VuMom, 1, None), (vu_mom.VuMom, checksum, 5), (int, checksum, None),
                          (vu_mom.VuMom, "x", None), (vu_mom.VuMom, BIG, None),
                          (WithDict, checksum, (GLOBAL, {"a": 1})), (vu_mom.VuMom,),
                          (5, checksum, None)):
            yield "unpickle %r" % (arguments,), unpickle, _plain(*arguments), 0
    for name, function, arguments, status in calls():
        yield Call(name, function, arguments, status)


def calls_without():
    """Calls while something is missing, which it takes memory to put back."""
    client = vu_mom.VuMom.__new__(vu_mom.VuMom)
    yield Call("reduce without function",
               without(vu_mom, "__pyx_unpickle_VuMom", client.__reduce__), _plain())
    yield Call("checksum without PickleError",
               without(pickle, "PickleError", vu_mom.__pyx_unpickle_VuMom),
               _plain(vu_mom.VuMom, 1, None))


# --- replies ----------------------------------------------------------------------------------


class Reply(object):
    """A reply to one of the callbacks. `keys` are those of the context besides "p" and "cb"."""

    def __init__(self, name, callback, keys=(), type_code=0, data=0x1000, end_mark=0,
                 has_record=True, has_context=True, less=(), raises=False, mapping=None):
        self.name = "%s, %s" % (callback, name)
        self.callback = callback
        self.keys, self.less, self.raises, self.mapping = dict(keys), less, raises, mapping
        self.has_record, self.has_context = has_record, has_context
        self.record = recorder.Reply(type_code=type_code, data=data, unread=0, end_mark=end_mark)

    def __repr__(self):
        return self.name

    def run(self, kind=inject.NONE, first=0, last=0):
        """What came of it; an error that leaves the callback is raised."""
        seen = []

        def note(msg, p):
            seen.append(1)
            if self.raises:
                raise ValueError("from the reply method")
        token = Token()
        context = dict(self.keys, p="p", cb=note, token=token)
        for key in self.less:
            del context[key]
        if self.mapping is not None:
            context = self.mapping(context)
        address = recorder.keep(context)
        del context
        record = ctypes.addressof(self.record) if self.has_record else None
        with support.reports() as found:
            inject.deliver(kind, first, last, getattr(CALLBACKS, self.callback),
                           self.callback != "wrap", record, address if self.has_context else None)
        count = self._references(token, address)
        for _ in range(count):
            recorder.give_back(address)
        if outcomes.references(token) != 0:
            raise AssertionError("%s: the context is still held" % self)
        return outcomes.Delivered(tuple(found.unraisable), len(seen), count)

    @staticmethod
    def _references(token, address):
        """The references to the context of a token at an address; 0 where it is gone."""
        if not any(type(found) is dict for found in gc.get_referrers(token)):
            return 0
        context, own = recorder.object_at(address), {}
        return sys.getrefcount(context) - sys.getrefcount(own)


class Mapping(object):
    """Not a dict, with the lookups of one."""

    def __init__(self, content):
        self.content = content

    def __contains__(self, key):
        return key in self.content

    def __getitem__(self, key):
        return self.content[key]


class Equal(object):
    """Compares as it is told to."""

    def __init__(self, answer):
        self.answer = answer

    def __eq__(self, other):
        return self.answer

    __hash__ = None  # type: ignore[assignment]


def replies():
    obj, resobj = ("obj", support.Message), ("resobj", vu_mom_common.IncrResult)
    hash_result = ("resobj", vu_mom_common.HashResult)
    for name, keys in (("none", []), ("obj", [obj]), ("resobj", [resobj]),
                       ("both", [obj, hash_result])):  # type: str, support.Any
        for data in (0, 0x1000):
            for flag, mark in ((None, 0), (3, 3), (3, 2)):
                more = [] if flag is None else [("flag", flag)]
                yield Reply("%s, data %d, flag %s, mark %d" % (name, data, flag, mark), "wrap",
                            keys + more, data=data, end_mark=mark)
    yield Reply("mapping", "wrap", [obj, hash_result, ("flag", 1)], end_mark=1, mapping=Mapping)
    yield Reply("empty mapping", "wrap", mapping=Mapping)
    yield Reply("odd flag", "wrap", [("flag", Equal([1]))])
    yield Reply("unequal flag", "wrap", [("flag", Equal([]))])
    for code in (1, 37, 4, 18, 39, 10, 0, 2):
        for data in (0, 0x1000):
            for mark in (0, 1):
                yield Reply("type %d, data %d, mark %d" % (code, data, mark), "scan", [obj], code,
                            data, mark)
    for code in (0, 28, 29, 1, 3, 24, 4, 6, 9, 18, 19, 10, 11, 12, 13, 34, 35, 36, 39, 40, 41, 42, 2):
        for data in (0, 0x1000):
            yield Reply("type %d, data %d" % (code, data), "sub", [obj], code, data)
    for callback, code, mark in (("wrap", 0, 0), ("scan", 1, 1), ("sub", 1, 0), ("sub", 28, 0)):
        keys = [obj]
        yield Reply("no record", callback, has_record=False)
        yield Reply("no context", callback, has_context=False)
        yield Reply("no p", callback, keys, code, less=["p"])
        yield Reply("no cb", callback, keys, code, less=["cb"])
        yield Reply("raising", callback, keys, code, end_mark=mark, raises=True)
    for callback, code in (("scan", 1), ("scan", 4), ("sub", 1), ("sub", 4)):
        yield Reply("no obj", callback, [], code)
