"""The binding and Python's threads: waiting without the GIL, Ctrl-C, and an
interpreter that ends while a runtime still delivers."""

import os
import signal
import subprocess
import sys
import textwrap
import threading

import lumotypes_krin as lk


def test_a_blocking_read_lets_another_python_thread_run(runtime, uri):
    sub = runtime.subscriber(uri("LumoMode"), lk.LumoMode)
    reading = threading.Event()
    finished = threading.Event()
    steps = 0

    def reader():
        reading.set()
        sub.read(1, 1.0)  # nothing is published: waits the whole second
        finished.set()

    thread = threading.Thread(target=reader)
    thread.start()
    reading.wait()
    while not finished.is_set():
        steps += 1
    thread.join()
    # Holding the GIL, the reader would have let this loop run only at the
    # interpreter's switch interval; without it the loop runs all along.
    assert steps > 100000


def run_python(code, uri, timeout=60, interrupt_after_line=None):
    """Runs `code` in a new interpreter, with URI defined."""
    env = dict(os.environ)
    process = subprocess.Popen(
        [sys.executable, "-c", "URI = %r\n" % uri + textwrap.dedent(code)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        env=env,
    )
    if interrupt_after_line is not None:
        assert process.stdout.readline().strip() == interrupt_after_line
        process.send_signal(signal.SIGINT)
    out, err = process.communicate(timeout=timeout)
    return process.returncode, out, err


def test_ctrl_c_interrupts_a_read_without_end(uri):
    code, _, err = run_python(
        """
        import lumotypes_krin as lk
        rt = lk.Runtime()
        sub = rt.subscriber(URI, lk.LumoMode)
        try:
            print("waiting", flush=True)
            sub.read(1, None)
        except KeyboardInterrupt:
            print("interrupted", flush=True)
            raise SystemExit(7)
        """,
        uri("ctrl-c"),
        interrupt_after_line="waiting",
    )
    assert code == 7, err


def test_the_interpreter_ends_cleanly_while_a_listener_is_being_called(uri):
    code, out, err = run_python(
        """
        import socket, threading, time
        import lumotypes_krin as lk
        rt = lk.Runtime()
        sub = rt.subscriber(URI, lk.RefPos)
        pub = rt.publisher(URI, lk.RefPos)
        called = threading.Event()
        def slow(sample):
            called.set()
            time.sleep(0.01)
        sub.listen(slow)
        def flood():
            while True:
                pub.publish(lk.RefPos(refPosX=1))
        threading.Thread(target=flood, daemon=True).start()
        assert called.wait(20)
        print("leaving", flush=True)
        """,
        uri("exit"),
    )
    assert code == 0, err
    assert out.strip() == "leaving"


def test_the_interpreter_ends_cleanly_while_threads_wait_without_the_gil(uri):
    # Publishing and reading threads spend most of their time without the
    # GIL, so at exit several are due to take it back while the interpreter
    # ends; each of the runs must end normally.
    script = """
        import threading
        import lumotypes_krin as lk
        rt = lk.Runtime()
        sub = rt.subscriber(URI, lk.RefPos)
        reader = rt.subscriber(URI, lk.RefPos)
        publishers = [rt.publisher(URI, lk.RefPos) for _ in range(6)]
        sub.listen(lambda sample: None)
        started = []
        def flood(pub, began):
            while True:
                pub.publish(lk.RefPos(refPosX=1))
                began.set()
        def read(began):
            while True:
                reader.read(1, 0.001)
                began.set()
        for target, argument in [(flood, pub) for pub in publishers] + [(read, None)] * 2:
            began = threading.Event()
            started.append(began)
            arguments = (argument, began) if argument is not None else (began,)
            threading.Thread(target=target, args=arguments, daemon=True).start()
        assert all(began.wait(20) for began in started)
        print("leaving", flush=True)
        """
    for run in range(5):
        code, out, err = run_python(script, uri("exit-%d" % run))
        assert code == 0, err
        assert out.strip() == "leaving"


def test_objects_that_outlive_their_runtime_are_harmless_at_exit(uri):
    code, out, err = run_python(
        """
        import lumotypes_krin as lk
        rt = lk.Runtime()
        pub = rt.publisher(URI, lk.LumoMode)
        sub = rt.subscriber(URI, lk.LumoMode)
        sub.listen(print)
        sample = lk.FieldStablizationTopicIn(gp1_cent_err=[1, 2])
        view = sample.gp1_cent_err
        del rt, sample
        print(view.tolist(), flush=True)
        """,
        uri("outlive"),
    )
    assert code == 0, err
    assert out.strip() == "[1.0, 2.0]"
