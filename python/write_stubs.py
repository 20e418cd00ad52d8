"""Writes the type stubs of lumotypes_krin from the wire schema's message
classes, so that editors and type checkers know every topic's fields.

Usage: write_stubs.py PACKAGE_DIR OUTPUT.pyi
"""

import importlib
import sys
import types

from google.protobuf.descriptor import FieldDescriptor as F

SCALARS = {
    F.TYPE_BOOL: "bool",
    F.TYPE_FLOAT: "float",
    F.TYPE_DOUBLE: "float",
    F.TYPE_INT32: "int",
    F.TYPE_INT64: "int",
    F.TYPE_UINT32: "int",
    F.TYPE_UINT64: "int",
    F.TYPE_SINT32: "int",
    F.TYPE_SINT64: "int",
    F.TYPE_FIXED32: "int",
    F.TYPE_FIXED64: "int",
    F.TYPE_SFIXED32: "int",
    F.TYPE_SFIXED64: "int",
}
ARRAY_DTYPES = {F.TYPE_FLOAT: "numpy.float32", F.TYPE_DOUBLE: "numpy.float64"}

PREAMBLE = '''# Type stubs of lumotypes_krin, written from the wire schema at build time.
import enum
from typing import Any, Callable, ClassVar, Dict, Iterator, List, Mapping, Optional, Sequence, Tuple, Type, TypeVar, Union

import numpy
import numpy.typing

_Topic = TypeVar("_Topic")
ArrayLike = Union[Sequence[float], numpy.typing.NDArray[Any]]

class DaboException(RuntimeError): ...
class IllegalStateException(DaboException): ...
class TimeoutException(DaboException): ...
class PluginLoadError(ImportError): ...

class Listener:
    def close(self) -> None: ...
    def __enter__(self) -> "Listener": ...
    def __exit__(self, *exc: Any) -> bool: ...

class Publisher:
    uri: str
    topic: type
    def publish(self, sample: Any, timeout: float = 1.0) -> None: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Publisher": ...
    def __exit__(self, *exc: Any) -> bool: ...

class Subscriber:
    uri: str
    topic: type
    def read(self, max: int = 0, timeout: Optional[float] = 0.0) -> List[Any]: ...
    def poll(self, callback: Callable[[Any], Any], max: int = 0, timeout: Optional[float] = 0.0) -> int: ...
    def listen(self, callback: Callable[[Any], Any]) -> Listener: ...
    def samples(self, timeout: Optional[float] = None, batch: int = 256) -> Iterator[Any]: ...
    def __iter__(self) -> Iterator[Any]: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Subscriber": ...
    def __exit__(self, *exc: Any) -> bool: ...

class MrvSubscriber:
    uri: str
    topic: type
    def read_most_recent(self, timeout: float = 0.0) -> List[Any]: ...
    def close(self) -> None: ...
    def __enter__(self) -> "MrvSubscriber": ...
    def __exit__(self, *exc: Any) -> bool: ...

class Runtime:
    properties: Dict[str, str]
    closed: bool
    def __init__(self, properties: Mapping[str, str] = ...) -> None: ...
    def publisher(self, uri: str, topic: type, properties: Mapping[str, str] = ...) -> Publisher: ...
    def subscriber(self, uri: str, topic: type, properties: Mapping[str, str] = ...) -> Subscriber: ...
    def mrv_subscriber(self, uri: str, topic: type, properties: Mapping[str, str] = ...) -> MrvSubscriber: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Runtime": ...
    def __exit__(self, *exc: Any) -> bool: ...

def load_plugin(path: str = "") -> str: ...
def topic(name: str) -> type: ...
'''


def field_types(field):
    """(type read, type accepted) of a field."""
    repeated = field.label == F.LABEL_REPEATED
    if field.type == F.TYPE_MESSAGE:
        name = field.message_type.name
        if repeated:
            return "List[%s]" % name, "Sequence[Union[%s, Mapping[str, Any]]]" % name
        return name, "Union[%s, Mapping[str, Any]]" % name
    if field.type == F.TYPE_ENUM:
        name = field.enum_type.name
        return name, "Union[%s, int]" % name
    if repeated:
        dtype = ARRAY_DTYPES.get(field.type, "Any")
        return "numpy.typing.NDArray[%s]" % dtype, "ArrayLike"
    scalar = SCALARS[field.type]
    return scalar, scalar


def topic_stub(message):
    lines = ["class %s:" % message.name]
    lines.append("    wire_type: ClassVar[str]")
    lines.append("    _fields: ClassVar[Tuple[str, ...]]")
    keywords = "".join(", %s: %s = ..." % (f.name, field_types(f)[1]) for f in message.fields)
    star = ", *" if message.fields else ""
    lines.append("    def __init__(self, fields: Optional[Mapping[str, Any]] = None%s%s) -> None: ..." % (star, keywords))
    for f in message.fields:
        read, accepted = field_types(f)
        if read == accepted:
            lines.append("    %s: %s" % (f.name, read))
        else:
            lines.append("    @property")
            lines.append("    def %s(self) -> %s: ..." % (f.name, read))
            lines.append("    @%s.setter" % f.name)
            lines.append("    def %s(self, value: %s) -> None: ..." % (f.name, accepted))
    lines.append("    def update(self, fields: Optional[Mapping[str, Any]] = None, **keywords: Any) -> None: ...")
    lines.append('    def copy(self) -> "%s": ...' % message.name)
    lines.append("    def to_dict(self) -> Dict[str, Any]: ...")
    lines.append("    @classmethod")
    lines.append('    def from_dict(cls, fields: Mapping[str, Any]) -> "%s": ...' % message.name)
    lines.append("    def to_bytes(self) -> bytes: ...")
    lines.append("    @staticmethod")
    lines.append('    def from_bytes(payload: bytes) -> "%s": ...' % message.name)
    lines.append("    def to_protobuf(self) -> Any: ...")
    lines.append("    @classmethod")
    lines.append('    def from_protobuf(cls, message: Any) -> "%s": ...' % message.name)
    return "\n".join(lines)


def enum_stub(enum):
    lines = ["class %s(enum.IntEnum):" % enum.name]
    lines += ["    %s = %d" % (value.name, value.number) for value in enum.values]
    return "\n".join(lines)


def main(package_dir, output):
    # The message modules import each other relatively: load them as members
    # of a stand-in package, without running the package's own __init__.
    package = types.ModuleType("lumotypes_krin_wire")
    package.__path__ = [package_dir]
    sys.modules[package.__name__] = package
    wire = importlib.import_module(package.__name__ + ".Lumotypes_pb2")
    schema = wire.DESCRIPTOR
    parts = [PREAMBLE]
    parts += [enum_stub(enum) for enum in schema.enum_types_by_name.values()]
    parts += [topic_stub(message) for message in schema.message_types_by_name.values()]
    topics = ", ".join(schema.message_types_by_name)
    enums = ", ".join(schema.enum_types_by_name)
    parts.append("TOPICS: Tuple[type, ...]  # %s\nENUMS: Tuple[type, ...]  # %s\n" % (topics, enums))
    with open(output, "w") as out:
        out.write("\n\n".join(parts))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: write_stubs.py PACKAGE_DIR OUTPUT.pyi")
    main(sys.argv[1], sys.argv[2])
