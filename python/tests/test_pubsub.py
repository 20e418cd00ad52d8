"""Publishing and subscribing from Python within one process: reading,
polling, iterating, listening, most recent values, and what raises."""

import threading
import time

import pytest

import lumotypes_krin as lk
from conftest import full_sample


def joined(publisher, subscriber, probe, limit=20.0):
    """Publishes `probe` until `subscriber` has it: from then on nothing is
    lost to a subscriber that is still joining. Returns the probes read."""
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline:
        publisher.publish(probe)
        got = subscriber.read(0, 0.05)
        if got:
            return got
    pytest.fail("the subscriber did not join within %s s" % limit)


def test_read_returns_the_published_sample_with_every_field(runtime, uri):
    address = uri("FieldStablizationTopicOut")
    sub = runtime.subscriber(address, lk.FieldStablizationTopicOut)
    pub = runtime.publisher(address, lk.FieldStablizationTopicOut)
    sample = full_sample(lk.FieldStablizationTopicOut)
    assert joined(pub, sub, sample)[0] == sample


def test_read_takes_at_most_max_samples_oldest_first(runtime, uri):
    address = uri("RefPos")
    sub = runtime.subscriber(address, lk.RefPos)
    pub = runtime.publisher(address, lk.RefPos)
    joined(pub, sub, lk.RefPos(refPosX=999))
    for x in range(5):
        pub.publish(lk.RefPos(refPosX=x))
    got = []
    while len(got) < 5:
        batch = sub.read(2, 5.0)
        assert 1 <= len(batch) <= 2
        got += batch
    assert [s.refPosX for s in got] == [0, 1, 2, 3, 4]
    assert sub.read(0, 0.0) == []


def test_samples_iterates_until_nothing_arrives_within_the_timeout(runtime, uri):
    address = uri("CentOpt")
    sub = runtime.subscriber(address, lk.CentOpt)
    pub = runtime.publisher(address, lk.CentOpt)
    joined(pub, sub, lk.CentOpt(options=999))
    for n in range(20):
        pub.publish(lk.CentOpt(options=n))
    assert [s.options for s in sub.samples(timeout=0.5)] == list(range(20))


def test_poll_calls_the_function_on_the_calling_thread_and_raises_what_it_raised(runtime, uri):
    address = uri("Dummy")
    sub = runtime.subscriber(address, lk.Dummy)
    pub = runtime.publisher(address, lk.Dummy)
    joined(pub, sub, lk.Dummy())
    for _ in range(3):
        pub.publish(lk.Dummy(dummy_param=lk.TelescopeSystem.TEL_M4))
    seen = []
    while len(seen) < 3:
        sub.poll(lambda s: seen.append((s.dummy_param, threading.get_ident())), max=3 - len(seen), timeout=5.0)
    assert seen == [(lk.TelescopeSystem.TEL_M4, threading.get_ident())] * 3
    pub.publish(lk.Dummy())
    with pytest.raises(RuntimeError, match="ZeroDivisionError"):
        sub.poll(lambda s: 1 / 0, max=1, timeout=5.0)


def test_a_listener_is_called_on_the_runtimes_thread_until_closed(runtime, uri):
    address = uri("LumoMode")
    sub = runtime.subscriber(address, lk.LumoMode)
    pub = runtime.publisher(address, lk.LumoMode)
    joined(pub, sub, lk.LumoMode())
    arrived = threading.Event()
    seen = []

    def listener(sample):
        seen.append((sample.activeCameraFs, threading.get_ident()))
        if len(seen) == 3:
            arrived.set()

    with sub.listen(listener):
        for camera in (lk.Camera.IMG_GP1, lk.Camera.IMG_GP2, lk.Camera.IMG_GP3):
            pub.publish(lk.LumoMode(activeCameraFs=camera))
        assert arrived.wait(10)
    assert [camera for camera, _ in seen] == [lk.Camera.IMG_GP1, lk.Camera.IMG_GP2, lk.Camera.IMG_GP3]
    assert all(thread != threading.get_ident() for _, thread in seen)
    # Closed: samples queue again for read.
    pub.publish(lk.LumoMode(activeCameraFs=lk.Camera.WFS_GP1))
    assert [s.activeCameraFs for s in sub.read(1, 10.0)] == [lk.Camera.WFS_GP1]
    assert len(seen) == 3


def test_a_raising_listener_is_reported_on_stderr_and_the_stream_goes_on(runtime, uri, capfd):
    address = uri("RefPos")
    sub = runtime.subscriber(address, lk.RefPos)
    pub = runtime.publisher(address, lk.RefPos)
    joined(pub, sub, lk.RefPos())
    seen = []
    done = threading.Event()

    def listener(sample):
        seen.append(sample.refPosX)
        if sample.refPosX == 2:
            done.set()
        if sample.refPosX == 1:
            raise ValueError("refusing sample one")

    with sub.listen(listener):
        for x in range(3):
            pub.publish(lk.RefPos(refPosX=x))
        assert done.wait(10)
    assert seen == [0, 1, 2]
    err = capfd.readouterr().err
    assert "Exception occured in listener" in err and "ValueError: refusing sample one" in err


def test_a_most_recent_value_subscriber_holds_what_was_published(runtime, uri):
    address = uri("RefPos")
    mrv = runtime.mrv_subscriber(address, lk.RefPos)
    pub = runtime.publisher(address, lk.RefPos)
    deadline = time.monotonic() + 20
    held = []
    while time.monotonic() < deadline and not held:
        pub.publish(lk.RefPos(refPosX=7, refPosY=3))
        held = mrv.read_most_recent(0.05)
    assert [(s.refPosX, s.refPosY) for s in held] == [(7, 3)]


def test_a_negative_timeout_raises_value_error_everywhere(runtime, uri):
    address = uri("LumoMode")
    sub = runtime.subscriber(address, lk.LumoMode)
    pub = runtime.publisher(address, lk.LumoMode)
    mrv = runtime.mrv_subscriber(address, lk.LumoMode)
    for call in (
        lambda: pub.publish(lk.LumoMode(), timeout=-1),
        lambda: sub.read(1, -0.5),
        lambda: sub.poll(print, 1, -1),
        lambda: mrv.read_most_recent(-1),
    ):
        with pytest.raises(ValueError, match="time-out"):
            call()


def test_a_foreign_uri_raises_the_platforms_error_with_its_text(runtime):
    with pytest.raises(lk.DaboException, match="http://example.org/x"):
        runtime.publisher("http://example.org/x", lk.LumoMode)
    with pytest.raises(lk.DaboException):
        runtime.subscriber("not a uri", lk.LumoMode)


def test_a_publisher_of_one_topic_refuses_a_sample_of_another(runtime, uri):
    pub = runtime.publisher(uri("LumoMode"), lk.LumoMode)
    with pytest.raises(TypeError, match="LumoMode.*RefPos"):
        pub.publish(lk.RefPos())
    with pytest.raises(TypeError, match="topic class"):
        runtime.publisher(uri("x"), int)


def test_a_closed_publisher_or_subscriber_raises_the_platforms_error(runtime, uri):
    address = uri("LumoMode")
    pub = runtime.publisher(address, lk.LumoMode)
    sub = runtime.subscriber(address, lk.LumoMode)
    with pub, sub:
        pass
    with pytest.raises(lk.IllegalStateException):
        pub.publish(lk.LumoMode())
    with pytest.raises(lk.IllegalStateException):
        sub.read(1, 0.1)
    pub.close()  # closing twice is harmless


def test_closing_the_runtime_closes_what_it_made_and_they_raise_without_crashing(uri):
    address = uri("LumoMode")
    with lk.Runtime() as rt:
        pub = rt.publisher(address, lk.LumoMode)
        sub = rt.subscriber(address, lk.LumoMode)
        mrv = rt.mrv_subscriber(address, lk.LumoMode)
        listener = sub.listen(lambda s: None)
        sample = joined(pub, sub, lk.LumoMode(controlMode=2))[0]
    assert rt.closed
    with pytest.raises(lk.IllegalStateException, match="closed"):
        rt.publisher(address, lk.LumoMode)
    with pytest.raises(lk.IllegalStateException):
        pub.publish(lk.LumoMode())
    with pytest.raises(lk.IllegalStateException):
        sub.read()
    with pytest.raises(lk.IllegalStateException):
        mrv.read_most_recent()
    listener.close()
    del rt
    assert sample.controlMode == lk.CtrlMode.INS_DRIVEN_CASCADE
    assert sample.to_dict()["controlMode"] == 2


def test_every_platform_exception_is_a_dabo_exception_of_the_package():
    assert issubclass(lk.IllegalStateException, lk.DaboException)
    assert issubclass(lk.TimeoutException, lk.DaboException)
    assert lk.DaboException.__module__ == "lumotypes_krin"
