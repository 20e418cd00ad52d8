"""What the performance report's parts share: reading the runs of
scripts/perf.sh, ddsperf's per-second lines, and the forms of figures,
ratios, verdicts and plots."""
import json
import os
import re
import statistics

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402,F401  (the one pyplot, set up for files)

# One second of a ddsperf ping: its round-trip halves' percentiles and count.
DDSPERF_SECOND = re.compile(r" 50% ([0-9.]+)us 90% ([0-9.]+)us 99% ([0-9.]+)us max ([0-9.]+)us(?: cnt ([0-9]+))?")


def runs(data, name):
    path = os.path.join(data, name)
    if not os.path.exists(path):
        return []
    with open(path) as lines:
        return [json.loads(line) for line in lines if line.strip()]


def median_run(candidates):
    """The run of median rate among repeats: single runs scatter on a shared machine."""
    if not candidates:
        return None
    ordered = sorted(candidates, key=lambda run: run["samples_per_s"])
    return ordered[(len(ordered) - 1) // 2]


def ddsperf_cost(data, name):
    """CPU microseconds and context switches of both processes per sample received."""
    totals = re.findall(r" total ([0-9]+) lost", read_text(os.path.join(data, f"ddsperf-{name}-a.log")))
    if not totals or int(totals[-1]) == 0:
        return None
    samples = int(totals[-1])
    cpu = switches = 0.0
    for side in "ab":
        for line in read_text(os.path.join(data, f"ddsperf-{name}-{side}.time")).splitlines():
            fields = line.split()
            if len(fields) == 4 and re.fullmatch(r"[0-9. ]+", line):
                cpu += float(fields[0]) + float(fields[1])
                switches += float(fields[2]) + float(fields[3])
    return cpu * 1e6 / samples, switches / samples


def read_text(path):
    return open(path).read() if os.path.exists(path) else ""


def ratio(a, b):
    return f"{a / b:.2f}" if a is not None and b else "n/a"


def figure(value, form="{:.0f}"):
    return form.format(value) if value is not None else "n/a"


def verdict(met):
    return "n/a" if met is None else ("**met**" if met else "**not met**")


def finish_plot(title, xlabel, ylabel, legend, out):
    """Labels, grid and legend of a plot over a logarithmic x axis; writes it to `out`."""
    plt.xscale("log")
    plt.title(title)
    plt.xlabel(xlabel)
    plt.ylabel(ylabel)
    plt.grid(True, which="both", alpha=0.3)
    plt.legend(loc=legend)
    plt.savefig(out, dpi=100)
    plt.close()


def ddsperf_log(data, name, side):
    return read_text(os.path.join(data, f"ddsperf-{name}-{side}.log"))


def ddsperf_rate(data, name, side="a"):
    """The subscriber's per-second rates after the first second, their median in samples/s."""
    rates = [float(r) for r in re.findall(r" rate ([0-9.]+) kS/s", ddsperf_log(data, name, side))]
    return statistics.median(rates[1:] or rates) * 1000 if rates else None


def ddsperf_seconds(data, name, side="b"):
    """The ping's per-second (50 %, 90 %, 99 %, max, count) after the first
    second, which holds discovery; the count is 0 where ddsperf prints none."""
    seconds = [tuple(float(field or 0) for field in line)
               for line in DDSPERF_SECOND.findall(ddsperf_log(data, name, side))]
    return seconds[1:] or seconds


def ddsperf_latency(data, name, side="b"):
    """Median of the per-second 50 %, 90 %, 99 % lines after the first second; the largest max."""
    seconds = ddsperf_seconds(data, name, side)
    if not seconds:
        return None
    return [statistics.median(s[i] for s in seconds) for i in range(3)] + [max(s[3] for s in seconds)]
