"""Publish and subscribe the lumotypes topics over the Krin transport.

Every topic is a class with one attribute per wire field (names as in the
schema), every enumeration an ``enum.IntEnum``. A ``Runtime`` makes
publishers and subscribers; they load the type-support plug-in with dlopen
and call its factories, as every host does::

    import lumotypes_krin as lk

    with lk.Runtime() as rt:
        sub = rt.subscriber("krin.ps://127.0.0.1:7400/lumo/LumoMode", lk.LumoMode)
        pub = rt.publisher("krin.ps://127.0.0.1:7400/lumo/LumoMode", lk.LumoMode)
        pub.publish(lk.LumoMode(controlMode=lk.CtrlMode.TEL_DRIVEN))
        for sample in sub.samples(timeout=1.0):
            print(sample.to_dict())

Float arrays read as read-only NumPy arrays that view the sample's own
storage; any sequence of numbers can be assigned. Time-outs are in seconds.
"""

import enum as _enum

from . import _native
from ._native import (
    DaboException,
    IllegalStateException,
    Listener,
    MrvSubscriber,
    PluginLoadError,
    Publisher,
    Runtime,
    Subscriber,
    TimeoutException,
    load_plugin,
)

#: Every topic class, in schema order.
TOPICS = tuple(
    value for value in vars(_native).values() if isinstance(value, type) and hasattr(value, "wire_type")
)
#: Every enumeration, in schema order.
ENUMS = tuple(
    value for value in vars(_native).values() if isinstance(value, type) and issubclass(value, _enum.IntEnum)
)
globals().update({cls.__name__: cls for cls in TOPICS + ENUMS})
for _cls in TOPICS + ENUMS + (Runtime, Publisher, Subscriber, MrvSubscriber, Listener, _native.Endpoint) + (
    DaboException, IllegalStateException, TimeoutException, PluginLoadError
):
    _cls.__module__ = __name__

__all__ = [
    "DaboException",
    "IllegalStateException",
    "TimeoutException",
    "PluginLoadError",
    "Runtime",
    "Publisher",
    "Subscriber",
    "MrvSubscriber",
    "Listener",
    "load_plugin",
    "TOPICS",
    "ENUMS",
    "topic",
] + [cls.__name__ for cls in TOPICS + ENUMS]


def topic(name):
    """The topic class called ``name``; KeyError for a name that is not a topic."""
    for cls in TOPICS:
        if cls.__name__ == name:
            return cls
    raise KeyError("no topic named %r; the topics are %s" % (name, ", ".join(c.__name__ for c in TOPICS)))


# --- Values -----------------------------------------------------------------


def _plain(value):
    """A field value as plain Python data: lists for arrays, dicts for topics."""
    if hasattr(value, "to_dict"):
        return value.to_dict()
    if hasattr(value, "tolist"):
        return value.tolist()
    if isinstance(value, list):
        return [_plain(element) for element in value]
    return value


def _to_dict(self):
    """The fields as a dict: arrays as lists, nested topics as dicts, enumerations as members."""
    return {name: _plain(getattr(self, name)) for name in self._fields}


def _from_dict(cls, fields):
    """A sample from a mapping of field names, as ``cls(fields)``."""
    return cls(fields)


def _repr(self):
    return "%s(%s)" % (type(self).__name__, ", ".join("%s=%r" % item for item in _to_dict(self).items()))


def _eq(self, other):
    if type(other) is not type(self):
        return NotImplemented
    return _to_dict(self) == _to_dict(other)


_wire = None


def _wire_module():
    global _wire
    if _wire is None:
        from . import Lumotypes_pb2

        _wire = Lumotypes_pb2
    return _wire


def _to_protobuf(self):
    """The same sample as a message of the protobuf class generated from the schema."""
    message = getattr(_wire_module(), type(self).__name__)()
    message.MergeFromString(self.to_bytes())
    return message


def _from_protobuf(cls, message):
    """A sample from a message of the protobuf class of the same topic."""
    descriptor = getattr(message, "DESCRIPTOR", None)
    if descriptor is None or descriptor.full_name != cls.wire_type:
        raise TypeError("%s.from_protobuf takes a %s message, not %s" % (cls.__name__, cls.wire_type, type(message).__name__))
    missing = [field.name for field in descriptor.fields if field.label == field.LABEL_REQUIRED and not message.HasField(field.name)]
    if missing:
        raise ValueError("%s.from_protobuf: the message lacks the required fields %s" % (cls.__name__, ", ".join(missing)))
    return cls.from_bytes(message.SerializePartialToString())


for _cls in TOPICS:
    _cls.to_dict = _to_dict
    _cls.from_dict = classmethod(_from_dict)
    _cls.__repr__ = _repr
    _cls.__eq__ = _eq
    _cls.__hash__ = None
    _cls.to_protobuf = _to_protobuf
    _cls.from_protobuf = classmethod(_from_protobuf)
    _cls.__copy__ = lambda self: self.copy()
    _cls.__deepcopy__ = lambda self, memo: self.copy()


# --- Publish and subscribe ----------------------------------------------------


def _enter(self):
    return self


def _exit(self, *exc):
    self.close()
    return False


for _cls in (Runtime, Publisher, Subscriber, MrvSubscriber, Listener):
    _cls.__enter__ = _enter
    _cls.__exit__ = _exit


def _samples(self, timeout=None, batch=256):
    """Yields samples as they arrive; ends when none arrives within ``timeout`` seconds (None: never)."""
    while True:
        got = self.read(batch, timeout)
        if not got:
            return
        yield from got


Subscriber.samples = _samples
Subscriber.__iter__ = lambda self: _samples(self)

del _cls
