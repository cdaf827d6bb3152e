"""Types of the vu_mom module; what the commands do stands in their docstrings."""

from typing import (
    Any,
    Callable,
    List,
    Optional,
    Protocol,
    SupportsFloat,
    SupportsInt,
    TypeVar,
)

from vu_global import VuGlobal
from vu_mom_common import PubSubMsg

# Lists of any such elements; List[SupportsInt] would refuse a List[int].
_Int = TypeVar("_Int", bound=SupportsInt)
_Float = TypeVar("_Float", bound=SupportsFloat)
_Function = TypeVar("_Function", bound=Callable[[PubSubMsg[Any], Any], object])

class _Message(Protocol):
    """What commands take as `obj`: a generated message wrapper."""

    @property
    def package_name(self) -> str: ...
    @property
    def short_name(self) -> str: ...
    def get_ptr(self) -> int: ...

class InputError(Exception):
    """An argument was refused, by the store or before it was asked."""

class Error(Exception):
    """The store refused a request (closed, queue full, failed)."""

class MomCApiInnerError(Exception):
    """The store delivered something that is no valid reply."""

class VuMom:
    def __init__(self, glb: Optional[VuGlobal]) -> None: ...
    def __getfunc(self, name: str, /) -> Callable[..., Any]: ...
    def debug_show_all(self) -> None: ...
    def __reduce__(self) -> tuple[Any, ...]: ...
    def __setstate__(self, state: tuple[Any, ...], /) -> None: ...

    def get(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def incr(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def setnx(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def set(self, db: SupportsInt, obj: _Message, flag: SupportsInt = 0) -> None: ...
    def setow(
        self, db: SupportsInt, obj: _Message, owner: SupportsInt, flag: SupportsInt = 0
    ) -> None: ...
    def delow(
        self, db: SupportsInt, obj: _Message, owner: SupportsInt, flag: SupportsInt = 0
    ) -> None: ...
    def delete(self, db: SupportsInt, obj: _Message) -> None: ...
    def setnx_noreply(self, db: SupportsInt, obj: _Message) -> None: ...

    def hmset(
        self, db: SupportsInt, obj: _Message, field_tags: Optional[List[_Int]]
    ) -> None: ...
    def hmsetnx(
        self, db: SupportsInt, obj: _Message, field_tags: Optional[List[_Int]]
    ) -> None: ...
    def hmupdate(
        self, db: SupportsInt, obj: _Message, field_tags: Optional[List[_Int]]
    ) -> None: ...
    def hmget(
        self,
        db: SupportsInt,
        obj: _Message,
        field_tags: Optional[List[_Int]],
        privdata: object,
    ) -> None: ...
    def hgetall(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...

    def scan(
        self, db: SupportsInt, obj: _Message, level: SupportsInt, privdata: object
    ) -> None: ...
    def scan_index(
        self, db: SupportsInt, obj: _Message, level: SupportsInt, privdata: object
    ) -> None: ...

    def lpush(self, db: SupportsInt, obj: _Message) -> None: ...
    def rpush(self, db: SupportsInt, obj: _Message) -> None: ...
    def lpop(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def rpop(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def llen(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def lset(
        self, db: SupportsInt, obj: _Message, pos: SupportsInt, privdata: object
    ) -> None: ...
    def lrem(
        self, db: SupportsInt, obj: _Message, count: SupportsInt, privdata: object = None
    ) -> None: ...
    def linsert(
        self,
        db: SupportsInt,
        pivot: _Message,
        obj: _Message,
        order: SupportsInt,
        privdata: object,
    ) -> None: ...
    def lrange(
        self,
        db: SupportsInt,
        obj: _Message,
        start: SupportsInt,
        stop: SupportsInt,
        privdata: object,
    ) -> None: ...

    def sadd(self, db: SupportsInt, obj: _Message) -> None: ...
    def srem(self, db: SupportsInt, obj: _Message, privdata: object = None) -> None: ...
    def smembers(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def scard(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def sismember(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...

    def zadd(
        self,
        db: SupportsInt,
        scores: Optional[List[_Float]],
        objs: Optional[List[Any]],
    ) -> None: ...
    def zrem(self, db: SupportsInt, objs: Optional[List[Any]]) -> None: ...
    def zcard(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def zrank(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def zscore(self, db: SupportsInt, obj: _Message, privdata: object) -> None: ...
    def zcount(
        self,
        db: SupportsInt,
        obj: _Message,
        min: SupportsFloat,
        max: SupportsFloat,
        privdata: object,
    ) -> None: ...
    def zrange(
        self,
        db: SupportsInt,
        obj: _Message,
        start: SupportsInt,
        stop: SupportsInt,
        privdata: object,
    ) -> None: ...
    def zrangebyscore(
        self,
        db: SupportsInt,
        obj: _Message,
        min: SupportsFloat,
        max: SupportsFloat,
        privdata: object,
    ) -> None: ...
    def zremrangebyscore(
        self, db: SupportsInt, obj: _Message, min: SupportsFloat, max: SupportsFloat
    ) -> None: ...
    def zremrangebyrank(
        self, db: SupportsInt, obj: _Message, start: SupportsInt, stop: SupportsInt
    ) -> None: ...

    def pexpire(
        self,
        db: SupportsInt,
        obj: _Message,
        level: SupportsInt,
        time: SupportsFloat,
        privdata: object,
    ) -> None: ...
    def pexpire_field(
        self,
        db: SupportsInt,
        obj: _Message,
        level: SupportsInt,
        tag: SupportsInt,
        time: SupportsFloat,
        privdata: object,
    ) -> None: ...
    def pexpire_fields(
        self,
        db: SupportsInt,
        obj: _Message,
        level: SupportsInt,
        field_tags: Optional[List[_Int]],
        time: SupportsFloat,
        privdata: object,
    ) -> None: ...
    def del_expire(
        self, db: SupportsInt, obj: _Message, level: SupportsInt, privdata: object
    ) -> None: ...
    def pdel(
        self, db: SupportsInt, obj: _Message, level: SupportsInt, privdata: object
    ) -> None: ...

    def subscribe(
        self, db: SupportsInt, obj: _Message, level: SupportsInt, privdata: object
    ) -> None: ...
    def unsubscribe(self, db: SupportsInt, obj: _Message, level: SupportsInt) -> None: ...
    def subscribe_field(
        self,
        db: SupportsInt,
        obj: _Message,
        level: SupportsInt,
        fields: Optional[List[_Int]],
        funcs: Optional[List[_Function]],
        args: Optional[List[Any]],
    ) -> None: ...
    def unsubscribe_field(
        self,
        db: SupportsInt,
        obj: _Message,
        level: SupportsInt,
        fields: Optional[List[_Int]],
    ) -> None: ...

    def publish(self, db: SupportsInt, obj: _Message) -> None: ...

def __pyx_unpickle_VuMom(
    __pyx_type: type[VuMom], __pyx_checksum: int, __pyx_state: Optional[tuple[Any, ...]]
) -> VuMom: ...
