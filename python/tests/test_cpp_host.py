"""Python and a C++ host in another process: every field of every topic
crosses in both directions, and a listener keeps up with a long stream."""

import threading
import time

import pytest

import lumotypes_krin as lk
from conftest import full_sample

PROBE = 4294967295


@pytest.mark.parametrize("topic", lk.TOPICS, ids=lambda t: t.__name__)
def test_every_field_goes_to_a_cpp_host_and_comes_back(topic, runtime, uri, peer):
    there, back = uri(topic.__name__ + "/there"), uri(topic.__name__ + "/back")
    sub = runtime.subscriber(back, topic)
    pub = runtime.publisher(there, topic)
    echo = peer("echo", there, back, topic.__name__)
    sample = full_sample(topic, seed=len(topic.__name__))
    deadline = time.monotonic() + 20
    received = []
    while not received and time.monotonic() < deadline:
        pub.publish(sample)
        received = sub.read(1, 0.1)
    assert received, "nothing came back from the C++ host"
    # The C++ host read each field through its accessor and wrote it into a new sample.
    assert received[0].to_dict() == sample.to_dict()
    assert received[0].to_protobuf() == sample.to_protobuf()
    code, _ = echo.finish()
    assert code == 0


def test_a_listener_sees_every_sample_of_a_stream_of_100000_from_a_cpp_host(uri, peer):
    # Sockets without a message limit on both sides: a busy machine may hold
    # up the listener for a moment, and the binding itself must lose nothing.
    unlimited = {"krin.runtime.highWaterMark": "0"}
    runtime = lk.Runtime(unlimited)
    address = uri("FieldStablizationTopicIn")
    count = 100000
    sub = runtime.subscriber(address, lk.FieldStablizationTopicIn)
    stream = peer("stream", address, count, 10000, "krin.runtime.highWaterMark=0")
    joined = threading.Event()
    done = threading.Event()
    ids = []

    def listener(sample):
        if sample.sample_id == PROBE:
            joined.set()
            return
        ids.append(sample.sample_id)
        if len(ids) == count:
            done.set()

    with sub.listen(listener):
        assert joined.wait(20), "the subscriber did not join"
        stream.tell("go")
        done.wait(300)
    runtime.close()
    assert len(ids) == count
    assert ids == list(range(count))
    code, output = stream.finish()
    assert code == 0, output
