"""The base of the enum classes that protoc-gen-vu makes.

Fields hold plain integers; members of these classes are integers too, so both compare
equal. A field may hold a number that its class does not name, where the .proto file says
proto3 and the message comes from a newer program.
"""

import enum


class Enum(enum.IntEnum):
    """Numbers with names. Look-ups are named as protobuf users know them."""

    @classmethod
    def Name(cls, number):
        """The name of a number. ValueError: it has none."""
        return cls(number).name

    @classmethod
    def Value(cls, name):
        """The member of that name. ValueError: there is none."""
        try:
            return cls.__members__[name]
        except KeyError:
            raise ValueError("%s has no value %r" % (cls.__name__, name)) from None

    @classmethod
    def keys(cls):
        """All names, in the order of the .proto file."""
        return list(cls.__members__)

    @classmethod
    def values(cls):
        """The members for these names."""
        return list(cls.__members__.values())

    @classmethod
    def items(cls):
        """Pairs of name and member."""
        return list(cls.__members__.items())
