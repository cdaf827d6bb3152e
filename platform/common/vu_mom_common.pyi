"""What arrives from the object store.

PubSubMsg is the reply or event, its .result the value that came with it: a message, one of
the result classes here, or None. The store's binding makes all of them; an application
reads and keeps them, and makes its own with the class method `of`.
"""

import sys
from typing import (
    Any,
    Callable,
    ClassVar,
    Generic,
    Iterable,
    Iterator,
    Optional,
    Sequence,
    SupportsFloat,
    SupportsIndex,
    Tuple,
    TypeVar,
    Union,
    final,
    overload,
)

from typing_extensions import Self

_R = TypeVar("_R", covariant=True)
_M = TypeVar("_M", covariant=True)
_V = TypeVar("_V", bool, int, float, covariant=True)
_KeyComponent = Union[int, bool, str, bytes]

@final
class PubSubMsg(Generic[_R]):
    """What arrived: a reply to a command, an object of a scan, or a change of a subscribed
    object. Keeps a copy of everything, so it may be kept. Equal to a message with the same
    content, result included."""

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __new__(cls, record: int) -> PubSubMsg[None]: ...
    @classmethod
    def of(
        cls,
        result: Any = None,
        type_code: SupportsIndex = 0,
        end: SupportsIndex = 0,
        status: SupportsIndex = 0,
        error: str = "",
        db: SupportsIndex = 0,
        key: Iterable[_KeyComponent] = (),
        tag: SupportsIndex = 0,
        time: Union[SupportsFloat, SupportsIndex] = 0.0,
        count: SupportsIndex = 0,
    ) -> PubSubMsg[Any]:
        """A message with a content of one's own: for tests, and for unpickling."""

    @property
    def result(self) -> _R:
        """The value that arrived: a message, a result object, or None."""

    @property
    def type_code(self) -> int:
        """What happened to the object; 0 where nothing did."""

    @property
    def end(self) -> int:
        """The end mark: not 0 on the last reply of a request that may have several."""

    @property
    def status(self) -> int:
        """0, or a negative number where the request failed."""

    @property
    def error(self) -> str:
        """Why the request failed, for people; empty where status is 0."""

    @property
    def db(self) -> int:
        """The number of the object's database."""

    @property
    def key(self) -> Tuple[_KeyComponent, ...]:
        """The object's key components, a tuple of int, bool, str and bytes; empty for a
        type without key fields, and where no object is named."""

    @property
    def tag(self) -> int:
        """The number of the field that an event of a field concerns, else 0."""

    @property
    def time(self) -> float:
        """When it happened: seconds since 1970 by the store's clock, a float."""

    @property
    def count(self) -> int:
        """On the last reply of a request on a level: how many objects there were."""

    def __class_getitem__(cls, parameters: Any, /) -> type: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...

# ---- Results of one value ----------------------------------------------------------------

class ValueResult(Generic[_V]):
    """What all results of one value have in common: the value, as .value and by int(),
    float() and bool(); comparison and order with results of the same type and with
    plain numbers; a hash equal to the value's; pickling. Has no instances itself."""

    @property
    def value(self) -> _V:
        """The value that the store replied with."""

    def __int__(self) -> int: ...
    def __float__(self) -> float: ...
    def __bool__(self) -> bool: ...
    def __hash__(self) -> int: ...
    def __class_getitem__(cls, parameters: Any, /) -> type: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
    def __lt__(self, other: Union[Self, int, float]) -> bool: ...
    def __le__(self, other: Union[Self, int, float]) -> bool: ...
    def __gt__(self, other: Union[Self, int, float]) -> bool: ...
    def __ge__(self, other: Union[Self, int, float]) -> bool: ...

@final
class GetResult(ValueResult[int]):
    """An integer read from the store."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class IncrResult(ValueResult[int]):
    """The reply to incr: the counter's new value."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class SetnxResult(ValueResult[bool]):
    """The reply to setnx: True where the object was
    stored, False where there was one already."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: bool) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class LlenResult(ValueResult[int]):
    """The reply to llen: how many messages the list has."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class LinsertResult(ValueResult[int]):
    """The reply to linsert: the list's new length, or
    -1 where it has no such pivot."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class LminsertResult(ValueResult[int]):
    """The reply to an insertion of several messages:
    the list's new length, or -1 where it has no such pivot."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class LmremResult(ValueResult[int]):
    """The reply to a removal of several messages: how
    many were removed."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class LsetResult(ValueResult[bool]):
    """The reply to lset: True where the message was
    replaced, False where the list has no such position."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: bool) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class SaveResult(ValueResult[int]):
    """The reply to a request to save: how many objects
    were saved."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class ZcardResult(ValueResult[int]):
    """The reply to zcard: how many members the sorted
    set has."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class ZrankResult(ValueResult[int]):
    """The reply to zrank: the member's rank by score,
    from 0."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class ZscoreResult(ValueResult[float]):
    """The reply to zscore: the member's score, a float."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: Union[SupportsFloat, SupportsIndex]) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

@final
class ZcountResult(ValueResult[int]):
    """The reply to zcount: how many members have a score
    within the bounds."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class ScardResult(ValueResult[int]):
    """The reply to scard: how many members the set has."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: SupportsIndex) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

@final
class SismemberResult(ValueResult[bool]):
    """The reply to sismember: True where the set has
    the member."""

    def __new__(cls, data: int) -> Self: ...
    @classmethod
    def of(cls, value: bool) -> Self:
        """A result with a value of one's own: for tests, and for unpickling."""

    def __index__(self) -> int: ...

# ---- Results of several messages --------------------------------------------------------

class MessagesResult(Sequence[_M]):
    """What all results of several messages have in common: an immutable sequence of them.
    Equal to a result of the same type, a list or a tuple with equal messages in the same
    order. A slice is a result of the same type. Has no instances itself."""

    @property
    def cls(self) -> Callable[[int], _M]:
        """What the messages were made with."""

    def __len__(self) -> int: ...
    @overload
    def __getitem__(self, index: SupportsIndex) -> _M: ...
    @overload
    def __getitem__(self, index: slice) -> Self: ...
    def __iter__(self) -> Iterator[_M]: ...
    def __contains__(self, value: object) -> bool: ...
    def __hash__(self) -> int: ...
    def __class_getitem__(cls, parameters: Any, /) -> type: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
    def index(self, value: Any, start: SupportsIndex = 0, stop: SupportsIndex = sys.maxsize, /) -> int:
        """The first position of a value; ValueError where there is none."""

    def count(self, value: Any, /) -> int:
        """How often a value occurs."""

class ScoredResult(Sequence[Tuple[_M, float]], Generic[_M]):
    """What all results of messages with scores have in common: an immutable sequence of
    (message, score) tuples, with .messages and .scores beside. Equal to a result of the
    same type, a list or a tuple with equal pairs in the same order. A slice is a result of
    the same type. Has no instances itself."""

    @property
    def messages(self) -> Tuple[_M, ...]:
        """The messages alone, as a tuple."""

    @property
    def scores(self) -> Tuple[float, ...]:
        """The scores alone, as a tuple of floats."""

    @property
    def cls(self) -> Callable[[int], _M]:
        """What the messages were made with."""

    def __len__(self) -> int: ...
    @overload
    def __getitem__(self, index: SupportsIndex) -> Tuple[_M, float]: ...
    @overload
    def __getitem__(self, index: slice) -> Self: ...
    def __iter__(self) -> Iterator[Tuple[_M, float]]: ...
    def __contains__(self, value: object) -> bool: ...
    def __hash__(self) -> int: ...
    def __class_getitem__(cls, parameters: Any, /) -> type: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
    def index(self, value: Any, start: SupportsIndex = 0, stop: SupportsIndex = sys.maxsize, /) -> int:
        """The first position of a value; ValueError where there is none."""

    def count(self, value: Any, /) -> int:
        """How often a value occurs."""

@final
class SetResult(MessagesResult[_M]):
    """A change of a set: the members added or removed."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, messages: Iterable[_M], cls: Callable[[int], _M]) -> Self:
        """A result with messages of one's own: for tests, and for unpickling."""

@final
class ListResult(MessagesResult[_M]):
    """A change of a list: the messages added, set or
    removed."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, messages: Iterable[_M], cls: Callable[[int], _M]) -> Self:
        """A result with messages of one's own: for tests, and for unpickling."""

@final
class SmembersResult(MessagesResult[_M]):
    """The members of a set, in the store's order."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, messages: Iterable[_M], cls: Callable[[int], _M]) -> Self:
        """A result with messages of one's own: for tests, and for unpickling."""

@final
class LrangeResult(MessagesResult[_M]):
    """Messages of a list, in its order."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, messages: Iterable[_M], cls: Callable[[int], _M]) -> Self:
        """A result with messages of one's own: for tests, and for unpickling."""

@final
class SortedsetResult(ScoredResult[_M]):
    """A change of a sorted set: the members
    added or removed, with their scores."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, pairs: Iterable[Tuple[_M, float]], cls: Callable[[int], _M]) -> Self:
        """A result with (message, score) pairs of one's own: for tests, and for
        unpickling."""

@final
class ZrangeResult(ScoredResult[_M]):
    """Members of a sorted set between two ranks,
    in the order of their scores."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, pairs: Iterable[Tuple[_M, float]], cls: Callable[[int], _M]) -> Self:
        """A result with (message, score) pairs of one's own: for tests, and for
        unpickling."""

@final
class ZrangebyscoreResult(ScoredResult[_M]):
    """Members of a sorted set between two
    scores, in the order of their scores."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(_cls, pairs: Iterable[Tuple[_M, float]], cls: Callable[[int], _M]) -> Self:
        """A result with (message, score) pairs of one's own: for tests, and for
        unpickling."""

@final
class HashResult(Generic[_M]):
    """Fields of a message that is stored field by field: what was
    read, or what a change concerns. Equal to a HashResult with an equal message and the
    same tags."""

    def __new__(_cls, data: int, cls: Callable[[int], _M]) -> Self: ...
    @classmethod
    def of(
        _cls, obj: Optional[_M], tags: Iterable[SupportsIndex], cls: Callable[[int], _M]
    ) -> Self:
        """A result with a message and field numbers of one's own: for tests, and for
        unpickling."""

    @property
    def obj(self) -> Optional[_M]:
        """A message with the fields that there are; None where there is none."""

    @property
    def tags(self) -> Tuple[int, ...]:
        """The numbers of the fields concerned, ascending, as a tuple. A field that obj
        does not carry was deleted, or is absent."""

    @property
    def cls(self) -> Callable[[int], _M]:
        """What the message was made with."""

    def __class_getitem__(cls, parameters: Any, /) -> type: ...
    def __hash__(self) -> int: ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
