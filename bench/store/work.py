"""What all candidates have in common: the messages, and the numbers of things."""

OBJECTS = 1000  # that a row goes through, one after the other
LENGTH = 100  # of the list
MEMBERS = 1000  # of the sorted set
PAGE = 10  # how many messages are read at once
FIELDS = ("speed", "note", "octets", "load", "up")
TAGS = [3, 4, 5, 6, 7]


def content(Port, i=0, device="switch-17.example.net"):
    return Port(
        device=device,
        name="eth%d" % i,
        speed=10000000000,
        note="uplink to the second floor",
        octets=123456789012 + i,
        load=0.75,
        up=True,
    )


class Work:
    """What a candidate can do; each returns a function(repeat)."""

    def __init__(self, Port):
        self.messages = [content(Port, i) for i in range(OBJECTS)]
        self.keys = ["port:%s:%s" % (port.device, port.name) for port in self.messages]

    def cycle(self, do, arguments):
        """`do` with one argument tuple after the other."""

        def run(repeat, do=do):
            count = len(arguments)
            for start in range(0, repeat, count):
                for one in arguments[: min(count, repeat - start)]:
                    do(*one)

        return run
