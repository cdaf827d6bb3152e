"""Types of the stand-in, for checking the types of the tests."""

from typing import Any, List

class VuGlobal:
    handle: int
    @property
    def apps(self) -> List[Any]: ...
    def __init__(self, handle: int = 0) -> None: ...
    def regist_app(self, app: object, /) -> None: ...
