import builtins
from typing import (
    Any,
    ClassVar,
    Generic,
    Iterable,
    Iterator,
    List,
    Mapping,
    MutableMapping,
    MutableSequence,
    Optional,
    SupportsIndex,
    Tuple,
    Type,
    TypeVar,
    Union,
    overload,
)

_M = TypeVar("_M", bound="Message")
_T = TypeVar("_T")
_K = TypeVar("_K")
_Get = TypeVar("_Get", covariant=True)
_Set = TypeVar("_Set", contravariant=True)

class EncodeError(ValueError):
    """A message cannot be turned into bytes."""

class DecodeError(ValueError):
    """Bytes are no such message."""

class File:
    """A .proto file that was made known."""

    @property
    def name(self) -> str:
        """The name of the .proto file."""
    @property
    def package(self) -> str:
        """The package of the file, with dots."""
    def message(self, full_name: str) -> MessageDescriptor:
        """The MessageDescriptor of a message of this file."""

class MessageDescriptor:
    """A message type: its fields, keys and counter."""

    @property
    def full_name(self) -> str:
        """The name with the package: "demo.Port"."""
    @property
    def name(self) -> str:
        """The message's own name: "Port"."""
    @property
    def file(self) -> str:
        """The name of the .proto file."""
    @property
    def fields(self) -> Tuple[Field[Any, Any], ...]:
        """The fields, in the order of the .proto file."""
    @property
    def fields_by_name(self) -> Mapping[str, Field[Any, Any]]:
        """The fields by name."""
    @property
    def key_fields(self) -> Tuple[Field[Any, Any], ...]:
        """The key fields, by position."""
    @property
    def counter(self) -> Optional[Field[Any, Any]]:
        """The counter field, or None."""
    @property
    def oneofs(self) -> Tuple[str, ...]:
        """The names of the oneofs."""
    @property
    def message_class(self) -> Type[_Named]:
        """The wrapper class of this type."""
    def field(self, name: str) -> Field[Any, Any]:
        """The field of that name."""

class Field(Generic[_Get, _Set]):
    """A field of a message type, and the attribute for it."""

    @property
    def name(self) -> str:
        """The field's name."""
    @property
    def full_name(self) -> str:
        """The name with package and message."""
    @property
    def number(self) -> int:
        """The field number, which commands call tag."""
    @property
    def type(self) -> str:
        """The type as in the .proto file, or "map"."""
    @property
    def repeated(self) -> bool:
        """Whether it is a repeated field or a map."""
    @property
    def key(self) -> int:
        """The position among the key fields, from 1; else 0."""
    @property
    def counter(self) -> bool:
        """Whether `incr` adds one to it."""
    @property
    def has_presence(self) -> bool:
        """Whether HasField applies to it."""
    @property
    def message_type(self) -> Optional[MessageDescriptor]:
        """The type of the messages it (or the values of the map) holds, or None."""
    @overload
    def __get__(self, instance: None, owner: Any = ...) -> Field[_Get, _Set]: ...
    # So that checkers which apply this to what properties return, too, find a Field there.
    @overload
    def __get__(self, instance: MessageDescriptor, owner: Any = ...) -> Field[_Get, _Set]: ...
    @overload
    def __get__(self, instance: Message, owner: Any = ...) -> _Get: ...
    def __set__(self, instance: Message, value: _Set) -> None: ...

class MessageType(builtins.type):
    """The type of message classes."""

class Message(metaclass=MessageType):
    """The base of message classes, which protoc-gen-vu makes from .proto files.

    Message(**fields) makes a new message; Message(address) copies the native message at
    an address, as replies hand it over."""

    DESCRIPTOR: ClassVar[MessageDescriptor]
    package_name: ClassVar[str]
    short_name: ClassVar[str]
    __hash__: ClassVar[None]  # type: ignore[assignment]
    @overload
    def __init__(self, __address: int) -> None: ...
    @overload
    def __init__(self, **fields: Any) -> None: ...
    def get_ptr(self) -> int:
        """The address of the native message, valid while this object lives."""
    def HasField(self, __name: str) -> bool:
        """Whether a field or oneof is set."""
    def ClearField(self, __name: str) -> None:
        """Unsets a field or oneof."""
    def WhichOneof(self, __name: str) -> Optional[str]:
        """The name of the member of a oneof that is set, or None."""
    def Clear(self) -> None:
        """Unsets all fields."""
    def ListFields(self) -> List[Tuple[Field[Any, Any], Any]]:
        """Pairs of Field and value of all fields that are set, by number."""
    def IsInitialized(self) -> bool:
        """Whether all required fields are set."""
    def ByteSize(self) -> int:
        """The size of the serialised message."""
    def SerializeToString(self, deterministic: bool = ...) -> bytes:
        """The message as bytes. EncodeError: a required field is not set."""
    def SerializePartialToString(self, deterministic: bool = ...) -> bytes:
        """The message as bytes, required fields or not."""
    def ParseFromString(self, __data: Union[bytes, bytearray, memoryview]) -> int:
        """Replaces the contents by those in the bytes and returns how
        many there were. DecodeError: they are no such message; nothing is changed."""
    def MergeFromString(self, __data: Union[bytes, bytearray, memoryview]) -> int:
        """Merges the message in the bytes into this one."""
    @classmethod
    def FromString(cls: Type[_M], __data: Union[bytes, bytearray, memoryview]) -> _M:
        """A new message from bytes."""
    def ToJson(
        self,
        *,
        indent: Optional[int] = ...,
        including_default_value_fields: bool = ...,
        preserving_proto_field_name: bool = ...,
        use_integers_for_enums: bool = ...
    ) -> str:
        """The message as JSON text, by the JSON mapping of protocol buffers. Without indent it is
        one line, else a member on each, indented by so many spaces (0 to 100) at each level.
        The fields that are not set are left out, or all but messages and members of oneofs
        are included; names are those for JSON ("lowerCamelCase"), or those of the .proto file;
        enums are names, or numbers. Unknown fields and extensions are left out.
        EncodeError, naming the field: JSON cannot say this, as a Timestamp out of range."""
    @classmethod
    def FromJson(cls: Type[_M], text: str, *, ignore_unknown_fields: bool = ...) -> _M:
        """A new message from JSON text (a str), by the JSON mapping of protocol buffers. Names are
        those for JSON or those of the .proto file; null leaves a field alone. DecodeError, naming
        the field: the text is no JSON, or not of such a message, or names a field that the type
        does not have, unless such fields are to be ignored."""
    def MergeFrom(self: _M, __other: _M) -> None:
        """Sets what is set in other; appends to repeated fields."""
    def CopyFrom(self: _M, __other: _M) -> None:
        """Becomes equal to other."""
    def SetInParent(self) -> None:
        """Marks this message as set in the message it is a field of."""
    def __copy__(self: _M) -> _M: ...
    def __deepcopy__(self: _M, __memo: Any) -> _M: ...

class _Repeated(MutableSequence[_T]):
    @overload
    def __getitem__(self, __index: SupportsIndex) -> _T: ...
    @overload
    def __getitem__(self, __index: slice) -> List[_T]: ...
    @overload
    def __setitem__(self, __index: SupportsIndex, __value: _T) -> None: ...
    @overload
    def __setitem__(self, __index: slice, __value: Iterable[_T]) -> None: ...
    def __delitem__(self, __index: Union[SupportsIndex, slice]) -> None: ...
    def __len__(self) -> int: ...
    def __add__(self, __other: Iterable[_T]) -> List[_T]: ...
    def insert(self, __index: SupportsIndex, __value: _T) -> None:
        """Inserts before index."""
    def sort(self, *, key: Any = ..., reverse: bool = ...) -> None:
        """Sorts in place."""
    def MergeFrom(self, __values: Iterable[_T]) -> None:
        """The same as extend."""

class RepeatedScalars(_Repeated[_T]):
    """A repeated field of numbers, strings or bytes, as a list."""

class RepeatedMessages(_Repeated[_T]):
    """A repeated field of messages, as a list; it keeps copies."""

    def add(self, **fields: Any) -> _T:
        """Appends a new message with these fields and returns it."""

class _Map(MutableMapping[_K, _T]):
    def __getitem__(self, __key: _K) -> _T: ...
    def __setitem__(self, __key: _K, __value: _T) -> None: ...
    def __delitem__(self, __key: _K) -> None: ...
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[_K]: ...
    def get_or_create(self, __key: _K) -> _T:
        """The value of key, made where there is none; as [key]."""
    def MergeFrom(self, __mapping: Mapping[_K, _T]) -> None:
        """The same as update."""

class ScalarMap(_Map[_K, _T]):
    """A map field with plain values, as a dict."""

class MessageMap(_Map[_K, _T]):
    """A map field of messages, as a dict; it keeps copies."""

def add_file(__serialized: bytes) -> File:
    """Makes a serialised FileDescriptorProto known. The files it imports come first."""

def descriptor(__full_name: str) -> MessageDescriptor:
    """The MessageDescriptor of a message type of any file that was imported, or of a
    well-known type. KeyError: it is not known."""

class _Named(Message):
    """A message of a class that was asked for by name: type checkers do not know its fields."""

    def __init__(self, __address: int = ..., **fields: Any) -> None: ...
    def __getattr__(self, name: str) -> Any: ...
    def __setattr__(self, name: str, value: Any) -> None: ...

def message_class(__full_name: str) -> Type[_Named]:
    """The class of a message type of any file that was imported, or of a well-known type:
    message_class("google.protobuf.Timestamp"). KeyError: it is not known."""
