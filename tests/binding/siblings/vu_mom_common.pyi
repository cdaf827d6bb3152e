"""Types of the stand-in, for checking the types of the tests. Its types take any arguments."""

from typing import Any, Dict, Generic, TypeVar

_R = TypeVar("_R")

failures: Dict[str, BaseException]

class PubSubMsg(Generic[_R]):
    def __init__(self, *arguments: object, **keywords: object) -> None: ...
    arguments: Any
    result: _R

def __getattr__(name: str) -> Any: ...
