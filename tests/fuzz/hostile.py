"""Values for fuzzing: ordinary ones, ones at the edges, and objects that misbehave.

What misbehaves calls `act`, which the fuzz target sets: it does something else in the middle
of what goes on, and may raise.
"""


def act():
    """Replaced by the target."""


def _act():
    return act()


class Number:
    """A number by conversion, which acts."""

    def __init__(self, value):
        self.value = value

    def __index__(self):
        _act()
        return self.value

    def __float__(self):
        _act()
        return self.value

    __int__ = __index__


class Text(str):
    """A string that acts when it is compared or hashed."""

    def __eq__(self, other):
        _act()
        return str.__eq__(self, other)

    def __hash__(self):
        _act()
        return str.__hash__(self)


class Numeral(int):
    def __index__(self):
        _act()
        return 7

    def __int__(self):
        _act()
        return "no number"


class Elements:
    """An iterable that acts, and lies about its length."""

    def __init__(self, values, length):
        self.values, self.length = values, length

    def __iter__(self):
        for value in self.values:
            _act()
            yield value

    def __len__(self):
        _act()
        return self.length

    def __getitem__(self, index):
        _act()
        return self.values[index]

    def keys(self):
        _act()
        return list(self.values)


class Sorted(list):
    """A list that changes while it is read."""

    def __iter__(self):
        _act()
        self.extend(range(50))
        del self[-50:]
        return list.__iter__(self)

    def __len__(self):
        _act()
        return 5


class Mapping(dict):
    def __getitem__(self, key):
        _act()
        return dict.__getitem__(self, key)

    def keys(self):
        _act()
        return ["a", "b", 1]

    def items(self):
        _act()
        return dict.items(self)


class Raising:
    """Raises from everything."""

    def _raise(self, *args):
        _act()
        raise KeyError("hostile")

    __index__ = __int__ = __float__ = __iter__ = __len__ = __getitem__ = _raise
    __eq__ = __hash__ = __repr__ = __str__ = __bool__ = __call__ = keys = _raise


class Address:
    """Has a get_ptr of its own."""

    package_name = "vu"
    short_name = "x"

    def __init__(self, value):
        self.value = value

    def get_ptr(self):
        _act()
        return self.value


def key(value):
    """For sort()."""
    _act()
    return repr(value)


VALUES = [
    None,
    0,
    1,
    -1,
    2,
    3,
    "",
    "a",
    "name",
    b"",
    b"\x08\x01",
    True,
    1.5,
    float("nan"),
    float("inf"),
    2**31 - 1,
    2**31,
    -(2**31) - 1,
    2**32,
    2**63 - 1,
    2**63,
    2**64,
    -(2**63) - 1,
    10**30,
    "\udcff",
    "\0\xff\u20ac",
    [],
    [1, 2, 3],
    ["a", "b"],
    [b"x"],
    {},
    {"name": "x"},
    {"a": 1, "b": 2},
    {1: 2, 3: {}},
    {"child": {"child": {"name": "deep"}}},
    {"leaves": [{}, {"values": [1]}], "by_name": {"k": {}}},
    {"no such field": 1},
    (),
    (1, "two"),
    slice(None),
    slice(None, None, -1),
    slice(1, 3),
    slice(None, None, 2),
    slice(5, -5, -2),
    slice(0, 0),
    bytearray(b"\x12\x00"),
    memoryview(b"\x0a\x01x"),
    object(),
    int,
    key,
    range(3),
    Number(1),
    Number(2**40),
    Number("no number"),
    Number(-1),
    Text("name"),
    Text("a"),
    Numeral(3),
    Elements([1, 2, 3], 3),
    Elements(["a"], 1000),
    Elements([{}, {}], -1),
    Elements([("a", 1), ("b", 2)], 2),
    Sorted([1, 2, 3, 4]),
    Mapping({"a": 1}),
    Mapping({"name": "y"}),
    Raising(),
    Address(0),
    Address(8),
    Address(Number(16)),
    iter([]),
    "{}",
    '{"name": "x", "child": {"values": [1, "2"]}, "unknown": 1}',
    '{"leaves": [{}], "byName": {"k": {"name": 5}}}',
    '{"child": [',
]
