"""Fixtures of the Python binding's tests: free loopback URIs, a runtime, the
C++ peer host, and a sample of every topic with every field set."""

import enum
import os
import socket
import subprocess

import numpy
import pytest

import lumotypes_krin as lk
import lumotypes_krin.Lumotypes_pb2 as wire

PEER = os.environ.get("LUMO_PYTHON_PEER", "")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture
def uri():
    """A new loopback URI for each use: uri("name")."""
    return lambda path: "krin.ps://127.0.0.1:%d/test/%s" % (free_port(), path)


@pytest.fixture
def runtime():
    with lk.Runtime() as rt:
        yield rt


class Peer:
    """The C++ host lumo-python-peer, started with `args`; it prints "ready"
    once its endpoints exist."""

    def __init__(self, *args):
        if not PEER:
            pytest.fail("LUMO_PYTHON_PEER names no peer program; run the tests through ctest")
        self.process = subprocess.Popen(
            [PEER, *map(str, args)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        line = self.process.stdout.readline().strip()
        assert line == "ready", "the peer did not start: %r" % line

    def tell(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def finish(self, timeout=30):
        """Closes the peer's input and returns (exit code, the rest of its output)."""
        output, _ = self.process.communicate(timeout=timeout)
        return self.process.returncode, output


@pytest.fixture
def peer():
    started = []

    def start(*args):
        started.append(Peer(*args))
        return started[-1]

    yield start
    for p in started:
        if p.process.poll() is None:
            p.process.kill()
            p.process.wait()


def value_like(default, seed):
    """A value of the field's kind, other than its default, made from `seed`."""
    if isinstance(default, enum.IntEnum):
        members = list(type(default))
        return members[(seed % (len(members) - 1)) + 1]
    if isinstance(default, bool):
        return True
    if isinstance(default, int):
        return 1000 + seed
    if isinstance(default, float):
        return 0.5 + seed
    if isinstance(default, numpy.ndarray):
        return numpy.arange(1, seed % 5 + 3, dtype=default.dtype) * 0.25 + seed
    if isinstance(default, list):
        element = default[0] if default else None
        assert element is None
        return None  # filled by full_sample, which knows the element class
    if hasattr(default, "_fields"):
        return full_sample(type(default), seed)
    raise AssertionError("no value for a field of type %s" % type(default).__name__)


def element_class(topic, name):
    """The topic class of the elements of a sequence field, from the schema."""
    field = getattr(wire, topic.__name__).DESCRIPTOR.fields_by_name[name]
    return lk.topic(field.message_type.name)


def full_sample(topic, seed=1):
    """A sample of `topic` with every field away from its default."""
    sample = topic()
    for index, name in enumerate(topic._fields):
        default = getattr(sample, name)
        if isinstance(default, list):
            cls = element_class(topic, name)
            value = [full_sample(cls, seed + index + k) for k in range(2)]
        else:
            value = value_like(default, seed + index)
        setattr(sample, name, value)
    return sample
