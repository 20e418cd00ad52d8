"""scripts/perfReport.py as scripts/perf.sh runs it, on data written here:
the loop's tables and the targets come from the runs, ddsperf's tail is
bounded from below by what it printed, and missing runs show n/a."""
import json
import os
import subprocess
import sys

import pytest

pytest.importorskip("matplotlib")

SCRIPTS = os.path.join(os.path.dirname(__file__), "..", "..", "scripts")
sys.path.insert(0, SCRIPTS)

import perfTail  # noqa: E402


def report(data, out):
    subprocess.run([sys.executable, os.path.join(SCRIPTS, "perfReport.py"), "--data", str(data), "--out", str(out),
                    "--cost-rate", "150000", "--command", "test"], check=True, capture_output=True)
    return (out / "performance.md").read_text()


def ddsperf_second(p50, p90, p99, top, count):
    return f"[1] 1.000  vm:2 size 1070 mean 1us min 1us 50% {p50}us 90% {p90}us 99% {p99}us max {top}us cnt {count}\n"


def row(text, start):
    return next(line for line in text.splitlines() if line.startswith(start))


def test_ddsperf_p999_is_the_largest_latency_a_thousandth_of_the_samples_is_proven_to_reach():
    # 3 000 samples: the p99.9 is the third largest. Each second's maximum is one sample,
    # so three maxima of at least 500 µs prove it; its 99 % points prove ten samples each.
    seconds = [(10, 20, 100, 900, 1000), (10, 20, 120, 700, 1000), (10, 20, 110, 500, 1000)]
    assert perfTail.ddsperf_p999_at_least(seconds) == 500
    assert perfTail.at_least_as_late(seconds, 1000.5) == 0
    assert perfTail.at_least_as_late(seconds, 600) == 2
    # 100 000 samples: the hundredth largest. One second's 99 % point alone proves a hundred.
    many = [(10, 20, 100 + n, 5000, 10000) for n in range(10)]
    assert perfTail.ddsperf_p999_at_least(many) == 109


def test_report_without_any_run_shows_na_and_still_writes_every_section(tmp_path):
    data = tmp_path / "data"
    data.mkdir()
    text = report(data, tmp_path)
    assert "## Tail latency at the loop's rate" in text
    assert "No loop run succeeded: n/a." in text
    assert row(text, "| latency median µs |").count("n/a") == 7
    assert row(text, "| at 1 kHz for n/a s across processes: nothing lost |").endswith("| n/a |")
    assert row(text, "| highest paced rate at 1 KiB received whole").endswith("| n/a |")


def test_loop_tables_plots_and_targets_come_from_the_runs(tmp_path):
    data = tmp_path / "data"
    data.mkdir()
    loop = {"test": "loop", "impl": "plugin", "read": "listener", "size": 1024, "rate_hz": 1000.0, "seconds": 3.0,
            "sent": 3000, "received": 3000}
    with open(data / "loop.jsonl", "w") as runs:
        runs.write(json.dumps(dict(loop, in_process=False, lost=0, late_1ms=2, p50_us=90.0, p99_us=300.0,
                                   p999_us=1200.0, max_us=2500.0)) + "\n")
        runs.write(json.dumps(dict(loop, in_process=True, lost=0, late_1ms=0, p50_us=40.0, p99_us=100.0,
                                   p999_us=150.0, max_us=400.0)) + "\n")
    (data / "loop-plugin-1000.txt").write_text("\n".join(str(90 + n % 50) for n in range(3000)))
    # The first second holds discovery and is left out.
    (data / "ddsperf-loop-1000-b.log").write_text(
        ddsperf_second(1, 2, 3, 4, 1000) + "".join(ddsperf_second(20, 40, 80, 700, 1000) for _ in range(3)))
    text = report(data, tmp_path)
    assert (tmp_path / "perf" / "loop-1000.png").stat().st_size > 0
    assert row(text, "| plug-in across processes |") == \
        "| plug-in across processes | 1000 | 90.0 | 300.0 | 1200.0 | 2500.0 | 2 | 0 |"
    assert row(text, "| plug-in in one process |").startswith("| plug-in in one process | 1000 | 40.0 |")
    assert row(text, "| ddsperf across processes |") == \
        "| ddsperf across processes | 1000 | 20.0 | 80.0 | ≥ 700.0 | 700.0 | ≥ 0 | n/a |"
    assert row(text, "| ddsperf in one process |").count("n/a") == 7
    assert row(text, "| at 1 kHz for 3 s across processes: nothing lost |").endswith("| **met** |")
    assert row(text, "| at 1 kHz for 3 s across processes: p99.9 ≤ 2 × ddsperf's |") == \
        "| at 1 kHz for 3 s across processes: p99.9 ≤ 2 × ddsperf's | 1.71 (1200.0 µs vs ≥ 700.0 µs) | **met** |"
    assert row(text, "| at 1 kHz for 3 s across processes: no sample later than 1 ms |").endswith("| **not met** |")


def test_highest_rate_kept_up_with_stops_at_the_first_rate_that_lost_samples(tmp_path):
    data = tmp_path / "data"
    data.mkdir()
    with open(data / "keepup.jsonl", "w") as runs:
        for rate, received, lost in ((10000, 10000, 0), (50000, 50000, 0), (100000, 80000, 20000),
                                     (200000, 200000, 0)):
            runs.write(json.dumps({"test": "throughput", "impl": "plugin", "offered_per_s": rate,
                                   "samples_per_s": received, "lost": lost}) + "\n")
    (data / "ddsperf-keepup-50000-a.log").write_text(
        "[1] 1.000  size 1045 total 50000 lost 0 delta 50000 lost 0 rate 50.00 kS/s 1 Mb/s (1 kS/s 1 Mb/s)\n")
    assert perfTail.keep_up_rates(str(data)) == {"plugin": 50000, "ddsperf": 50000.0}
