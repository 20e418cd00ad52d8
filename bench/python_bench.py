#!/usr/bin/python3
"""The cost of the Python binding per sample, against the C++ path in the
same run, and whether a Python subscriber keeps up with 10 kHz.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py build/python/tests/lumo-python-peer [COUNT]

1. loop: publish one FieldStablizationTopicIn and read it back in the same
   process, COUNT times; once by the C++ peer, once from Python. The
   difference per sample is what the binding adds.
2. 10 kHz: the C++ peer streams FieldStablizationTopicIn at 10 kHz for 10 s
   (default socket limits); a Python subscriber reads them, and the run
   reports how many it lost.
"""

import socket
import subprocess
import sys
import time

import lumotypes_krin as lk

PROBE = 4294967295


def free_uri(path):
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return "krin.ps://127.0.0.1:%d/bench/%s" % (probe.getsockname()[1], path)


def sample(i):
    errors = [0.5 * (i % 1000), 1.0, 2.0, 3.0]
    return lk.FieldStablizationTopicIn(
        sample_id=i, timestamp_utc=1e-3 * i, quality=True,
        gp1_cent_err=errors, gp2_cent_err=errors, gp3_cent_err=errors, pds_cent_err=errors,
    )


def python_loop(count):
    uri = free_uri("loop")
    with lk.Runtime() as rt:
        sub = rt.subscriber(uri, lk.FieldStablizationTopicIn)
        pub = rt.publisher(uri, lk.FieldStablizationTopicIn)
        while not sub.read(0, 0.05):
            pub.publish(sample(PROBE))
        sub.read(0, 0.2)
        received = 0
        start = time.perf_counter()
        for i in range(count):
            pub.publish(sample(i))
            got = sub.read(1, 1.0)
            received += len(got)
            assert got and got[0].sample_id == i and got[0].gp1_cent_err.size == 4
        micros = (time.perf_counter() - start) * 1e6 / count
    return micros, received


def cpp_loop(peer, count):
    out = subprocess.run([peer, "loop", free_uri("loop"), str(count)], capture_output=True, text=True, check=True)
    line = out.stdout.strip().splitlines()[-1]  # "loop N samples, M received, X us per sample"
    return float(line.split(",")[2].split()[0])


def keep_up(peer, rate, seconds):
    uri = free_uri("stream")
    count = int(rate * seconds)
    with lk.Runtime() as rt:
        sub = rt.subscriber(uri, lk.FieldStablizationTopicIn)
        stream = subprocess.Popen([peer, "stream", uri, str(count), str(rate)],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        assert stream.stdout.readline().strip() == "ready"
        while not any(s.sample_id == PROBE for s in sub.read(0, 0.1)):
            pass
        stream.stdin.write("go\n")
        stream.stdin.flush()
        ids = set()
        for s in sub.samples(timeout=2.0):
            if s.sample_id != PROBE:
                ids.add(s.sample_id)
        stream.communicate(timeout=30)
    return count, len(ids)


def main():
    peer = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 20000
    cpp = cpp_loop(peer, count)
    py, received = python_loop(count)
    print("loop of %d FieldStablizationTopicIn samples (publish + read back, one process):" % count)
    print("  C++     %8.1f us per sample" % cpp)
    print("  Python  %8.1f us per sample (%d received)" % (py, received))
    print("  Python adds %.1f us per sample (%.1fx)" % (py - cpp, py / cpp))
    sent, got = keep_up(peer, 10000, 10)
    print("10 kHz stream for 10 s from C++: %d sent, %d read by Python, %d lost" % (sent, got, sent - got))
    return 0 if got == sent else 1


if __name__ == "__main__":
    sys.exit(main())
