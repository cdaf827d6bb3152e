"""What messages cost."""

import subprocess
import sys

import harness
from harness import Goal, Row

TITLE = "Messages"

ABOUT = """
Message wrappers and python3-protobuf, whose messages are made by Debian's compiled backend
(`cpp`, on the same libprotobuf): the same messages ([sample.proto](../bench/messages/sample.proto)),
the same values. Memory is what one of a million messages adds to the process.
"""

OURS, PEER = "vu_message", "python3-protobuf"
PEERS = {OURS: [PEER]}

TURNS = 21

MEMORY = "a message with 5 values, in memory"


def works_of(Sample):
    """Functions that do one thing so often with messages of this class, by its name."""
    from messages.held import fill

    filled = Sample()
    fill(filled)
    data = filled.SerializeToString()
    large = Sample()
    fill(large)
    large.position.latitude = 48.2
    large.position.longitude = 16.4
    large.history.extend(range(100))
    numbers = list(range(100))

    def create(repeat):
        for _ in range(repeat):
            Sample()

    def create_filled(repeat):
        for _ in range(repeat):
            Sample(
                device="switch-17.example.net", port=48, octets=123456789012, load=0.75, up=True
            )

    def set_5_fields(repeat, message=Sample()):
        for _ in range(repeat):
            message.device = "switch-17.example.net"
            message.port = 48
            message.octets = 123456789012
            message.load = 0.75
            message.up = True

    def serialise(repeat, serialise=filled.SerializeToString):
        for _ in range(repeat):
            serialise()

    def parse(repeat, parse=Sample.FromString):
        for _ in range(repeat):
            parse(data)

    def parse_in_place(repeat, parse=Sample().ParseFromString):
        for _ in range(repeat):
            parse(data)

    def read_5_fields(repeat, message=filled):
        for _ in range(repeat):
            message.device
            message.port
            message.octets
            message.load
            message.up

    def all_of_it(repeat):
        for _ in range(repeat):
            message = Sample()
            message.device = "switch-17.example.net"
            message.port = 48
            message.octets = 123456789012
            message.load = 0.75
            message.up = True
            arrived = Sample.FromString(message.SerializeToString())
            arrived.device
            arrived.port
            arrived.octets
            arrived.load
            arrived.up

    def write_nested(repeat, message=Sample()):
        for _ in range(repeat):
            message.position.latitude = 48.2

    def read_nested(repeat, message=large):
        for _ in range(repeat):
            message.position.latitude

    def assign_100_numbers(repeat, message=Sample()):
        for _ in range(repeat):
            message.history[:] = numbers

    def iterate_100_numbers(repeat, message=large):
        for _ in range(repeat):
            for _ in message.history:
                pass

    def compare(repeat, message=large, other=Sample.FromString(large.SerializeToString())):
        for _ in range(repeat):
            message == other

    return {
        "create": create,
        "create with 5 values": create_filled,
        "set 5 fields": set_5_fields,
        "serialise": serialise,
        "parse": parse,
        "parse in place": parse_in_place,
        "read 5 fields": read_5_fields,
        "create, set, serialise, parse, read": all_of_it,
        "write a nested field": write_nested,
        "read a nested field": read_nested,
        "assign 100 numbers": assign_100_numbers,
        "iterate over 100 numbers": iterate_100_numbers,
        "compare two": compare,
    }


WORKS = (
    "create",
    "create with 5 values",
    "set 5 fields",
    "serialise",
    "parse",
    "parse in place",
    "read 5 fields",
    "create, set, serialise, parse, read",
    "write a nested field",
    "read a nested field",
    "assign 100 numbers",
    "iterate over 100 numbers",
    "compare two",
)

GOALS = [Goal(work, OURS, PEER, 1) for work in WORKS]
GOALS.append(Goal(MEMORY, OURS, PEER, 1.01, "bytes"))


def rows(build):
    from google.protobuf.internal import api_implementation

    import sample_pb2
    import sample_vu

    assert api_implementation.Type() == "cpp", api_implementation.Type()
    by_class = {OURS: works_of(sample_vu.Sample), PEER: works_of(sample_pb2.Sample)}
    works = {(work, name, None): by_class[name][work] for work in WORKS for name in by_class}
    yield from harness.interleave(works, TURNS)
    # Each in a process of its own, where nothing that was freed is used again.
    for name, module in ((OURS, "sample_vu"), (PEER, "sample_pb2")):
        held = subprocess.check_output([sys.executable, "-m", "messages.held", module])
        yield Row(MEMORY, name, float(held), "bytes")
