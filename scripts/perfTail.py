"""The report's parts on the loop's tail latency, the in-process path, the
rate a subscriber keeps up with, and the targets that rest on them.

ddsperf prints per second only its ping's 50 %, 90 %, 99 % and maximum
round-trip halves and their count. Its p99.9 and its count of late samples
are therefore bounds from below: at least as many halves as those figures
prove were at least that late. A bound from below is the figure least
favourable to the plug-in when it is held against Cyclone's.
"""
import math
import os
import re
import statistics

from perfCommon import (ddsperf_cost, ddsperf_latency, ddsperf_log, ddsperf_rate, ddsperf_seconds, figure,
                        finish_plot, median_run, plt, ratio, runs, verdict)

LATE_US = 1000.0
# A run keeps up with its offered rate when nothing is lost and this much of it arrives.
KEPT_UP = 0.98


def at_least_as_late(seconds, micros):
    """How many of the halves of ddsperf `seconds` were proven at least `micros` late: per second,
    half its count if its 50 % is that late, a tenth for its 90 %, a hundredth (and at least its
    maximum itself) for its 99 %, one for its maximum."""
    total = 0
    for p50, p90, p99, top, count in seconds:
        if micros <= p50:
            total += math.floor(0.5 * count)
        elif micros <= p90:
            total += math.floor(0.1 * count)
        elif micros <= p99:
            total += max(math.floor(0.01 * count), 1)
        elif micros <= top:
            total += 1
    return total


def ddsperf_p999_at_least(seconds):
    """The largest latency that at least a thousandth of all halves is proven to reach."""
    total = sum(second[4] for second in seconds)
    if not total:
        return None
    rank = max(1, math.ceil(0.001 * total))
    for micros in sorted({value for second in seconds for value in second[:4]}, reverse=True):
        if at_least_as_late(seconds, micros) >= rank:
            return micros
    return None


def ddsperf_loop(data, name):
    """ddsperf's figures of one paced ping run, in the loop table's form; None without its log."""
    seconds = ddsperf_seconds(data, name)
    if not seconds:
        return None
    return {"per_s": statistics.mean(s[4] for s in seconds),
            "p50_us": statistics.median(s[0] for s in seconds), "p99_us": statistics.median(s[2] for s in seconds),
            "p999_us": ddsperf_p999_at_least(seconds), "max_us": max(s[3] for s in seconds),
            "late_1ms": at_least_as_late(seconds, math.nextafter(LATE_US, math.inf)), "lost": None, "bound": True}


def loop_run(loop, rate, in_process):
    run = next((r for r in loop if r["rate_hz"] == rate and bool(r.get("in_process")) == in_process), None)
    return run and dict(run, per_s=run["received"] / run["seconds"] if run["seconds"] else None)


def loop_sides(data, loop, rate):
    """(label, figures, latency file) of every side measured at `rate`."""
    rate_name = f"{rate:.0f}"
    return [("plug-in across processes", loop_run(loop, rate, False), f"loop-plugin-{rate_name}.txt"),
            ("plug-in in one process", loop_run(loop, rate, True), f"loop-inprocess-{rate_name}.txt"),
            ("ddsperf across processes", ddsperf_loop(data, f"loop-{rate_name}"), None),
            ("ddsperf in one process", ddsperf_loop(data, f"loop-inprocess-{rate_name}"), None)]


def plot_loop(data, rate, sides, out):
    """The distribution of one-way latencies at `rate`: every sample of the plug-in's runs, ddsperf's
    per-second medians and 99 % as points. A logit fraction axis spreads out the tail."""
    plt.figure(figsize=(9, 5.6))
    for label, figures, latencies in sides:
        values = sorted(float(v) for v in read_values(data, latencies)) if latencies else []
        if values:
            plt.plot(values, [(i + 0.5) / len(values) for i in range(len(values))], linewidth=2, label=label)
        elif figures and figures.get("bound"):
            plt.plot([figures["p50_us"], figures["p99_us"]], [0.5, 0.99], "o", markersize=8,
                     label=f"{label}: median, 99 %")
    plt.axvline(LATE_US, color="grey", linestyle="--", linewidth=1)
    plt.yscale("logit")
    plt.ylim(0.01, 0.9999)
    fractions = [0.01, 0.1, 0.5, 0.9, 0.99, 0.999, 0.9999]
    plt.yticks(fractions, [f"{100 * f:g} %" for f in fractions])
    plt.minorticks_off()
    finish_plot(f"One-way latency at {rate:.0f} Hz, FieldStablizationTopicIn: distribution", "microseconds",
                "fraction of samples at most that late", "lower right", out)


def read_values(data, name):
    path = os.path.join(data, name)
    return open(path).read().split() if os.path.exists(path) else []


def shown(figures, key, form="{:.1f}"):
    if not figures or figures.get(key) is None:
        return "n/a"
    return ("≥ " if figures.get("bound") and key in ("p999_us", "late_1ms") else "") + form.format(figures[key])


def loop_section(data, out):
    """The tables and plots of the loop runs, one per rate."""
    lines = ["\n## Tail latency at the loop's rate\n",
             "`krin-perf loop`: FieldStablizationTopicIn (1 KiB of `gp1_cent_err`) published on an absolute",
             "schedule, each sample stamped in `timestamp_utc` with its send time on the steady clock, which",
             "every process of the machine shares; the subscriber (listener) takes arrival minus send time.",
             "Lost samples are told by gaps in `sample_id`. ddsperf: `ping` at the same rate against `pong`,",
             "round-trip halves; its p99.9 and late count are bounds from below (it prints per second only",
             "50 %, 90 %, 99 % and the maximum), its losses are not printed. received/s: the rate each side",
             "held.\n"]
    loop = runs(data, "loop.jsonl")
    logs = " ".join(os.listdir(data)) if os.path.isdir(data) else ""
    rates = sorted({r["rate_hz"] for r in loop} | {float(m) for m in re.findall(r"ddsperf-loop-([0-9]+)-b\.log", logs)})
    if not rates:
        lines.append("No loop run succeeded: n/a.")
    for rate in rates:
        sides = loop_sides(data, loop, rate)
        seconds = next((f["seconds"] for _, f, _ in sides if f and "seconds" in f), None)
        plot_loop(data, rate, sides, os.path.join(out, "perf", f"loop-{rate:.0f}.png"))
        lines.append(f"### {rate:.0f} Hz for {figure(seconds, '{:.0f}')} s\n")
        lines.append(f"![one-way latency at {rate:.0f} Hz](perf/loop-{rate:.0f}.png)\n")
        lines.append("| side | received/s | p50 µs | p99 µs | p99.9 µs | max µs | later than 1 ms | lost |")
        lines.append("|---|---:|---:|---:|---:|---:|---:|---:|")
        for label, figures, _ in sides:
            lines.append(f"| {label} | {shown(figures, 'per_s', '{:.0f}')} | {shown(figures, 'p50_us')} "
                         f"| {shown(figures, 'p99_us')} "
                         f"| {shown(figures, 'p999_us')} | {shown(figures, 'max_us')} "
                         f"| {shown(figures, 'late_1ms', '{:.0f}')} | {shown(figures, 'lost', '{:.0f}')} |")
        lines.append("")
    return lines


def in_process_figures(data, cross_latency, cross_rate, peer_latency, peer_rate):
    """Latency median and throughput at 1 KiB: plug-in in one process, plug-in across processes,
    ddsperf across processes, ddsperf in one process."""
    measured = runs(data, "inprocess.jsonl")
    latency = next((r for r in measured if r["test"] == "latency" and r["size"] == 1024), None)
    throughput = median_run([r for r in measured if r["test"] == "throughput" and r["size"] == 1024])
    peer_alone = ddsperf_latency(data, "latency-inprocess-1024")
    return {"latency": [latency and latency["median_us"], cross_latency, peer_latency,
                        peer_alone and peer_alone[0]],
            "throughput": [throughput and throughput["samples_per_s"], cross_rate, peer_rate,
                           ddsperf_rate(data, "throughput-inprocess-1024", side="b")]}


def in_process_section(figures):
    lines = ["\n## In-process path\n",
             "Both sides in one process over one runtime (`krin-perf ... --in-process`), beside the same runs",
             "across processes and ddsperf both ways (`ddsperf -L` matches its own endpoints in one process).\n",
             "| at 1 KiB | plug-in in one process | plug-in across processes | ddsperf across processes "
             "| ddsperf in one process | in one / across | in one / ddsperf across | in one / ddsperf in one |",
             "|---|---:|---:|---:|---:|---:|---:|---:|"]
    for key, label, form in (("latency", "latency median µs", "{:.1f}"), ("throughput", "samples/s", "{:.0f}")):
        mine, across, peer, peer_alone = figures[key]
        lines.append(f"| {label} | {figure(mine, form)} | {figure(across, form)} | {figure(peer, form)} "
                     f"| {figure(peer_alone, form)} | {ratio(mine, across)} | {ratio(mine, peer)} "
                     f"| {ratio(mine, peer_alone)} |")
    return lines


def keep_up_rates(data):
    """The highest offered rate at 1 KiB below which every rate tried was received whole, per side."""
    offered = runs(data, "keepup.jsonl")
    tried = {}
    for run in offered:
        kept = run["lost"] == 0 and run["samples_per_s"] >= KEPT_UP * run["offered_per_s"]
        tried.setdefault(run["impl"], []).append((run["offered_per_s"], kept))
    for name in os.listdir(data) if os.path.isdir(data) else []:
        found = re.fullmatch(r"ddsperf-keepup-([0-9]+)-a\.log", name)
        if found:
            rate = float(found.group(1))
            log = ddsperf_log(data, f"keepup-{found.group(1)}", "a")
            # Its best whole second: the first and last seconds hold only part of the publisher's run.
            received = max((float(r) * 1000 for r in re.findall(r" rate ([0-9.]+) kS/s", log)), default=0.0)
            losses = re.findall(r" lost ([0-9]+)", log)
            kept = received >= KEPT_UP * rate and all(int(n) == 0 for n in losses)
            tried.setdefault("ddsperf", []).append((rate, kept))
    highest = {}
    for side, rates in tried.items():
        best = None
        for rate, kept in sorted(rates):
            if not kept:
                break
            best = rate
        highest[side] = best
    return highest


def target_rows(data, latency, cost_rate, in_process):
    """The issue's targets that rest on the same run, each verdict computed from its figures."""
    rows = []

    def row(target, shown_figure, met):
        rows.append(f"| {target} | {shown_figure} | {verdict(met)} |")

    def median_of(impl):
        return next((r["median_us"] for r in latency
                     if r["size"] == 1024 and r["impl"] == impl and r["read"] in ("listener", "socket")), None)

    plugin, zmq = median_of("plugin"), median_of("zmq")
    row("latency median at 1 KiB across processes ≤ 1.2 × bare ZeroMQ", f"{ratio(plugin, zmq)} "
        f"({figure(plugin, '{:.1f}')} µs vs {figure(zmq, '{:.1f}')} µs)",
        None if plugin is None or not zmq else plugin <= 1.2 * zmq)
    mine, _, peer, peer_alone = in_process["latency"]
    row("latency median at 1 KiB in one process ≤ 1.0 × ddsperf across processes",
        f"{ratio(mine, peer)} ({figure(mine, '{:.1f}')} µs vs {figure(peer, '{:.1f}')} µs; ddsperf in one "
        f"process {figure(peer_alone, '{:.1f}')} µs)", None if mine is None or not peer else mine <= peer)

    cost = runs(data, "cost.jsonl")
    for size, label, limit in ((64, "64 B", 2.0), (1024, "1 KiB", 1.5)):
        run = next((r for r in cost if r["size"] == size and r["impl"] == "plugin"), None)
        peer_cost = ddsperf_cost(data, f"cost-{size}")
        mine_cpu, peer_cpu = run and run["cpu_us_per_sample"], peer_cost and peer_cost[0]
        row(f"CPU per sample at {cost_rate} samples/s, {label} ≤ {limit} × Cyclone", ratio(mine_cpu, peer_cpu),
            None if mine_cpu is None or not peer_cpu else mine_cpu <= limit * peer_cpu)

    loop = loop_run(runs(data, "loop.jsonl"), 1000.0, False)
    peer_loop = ddsperf_loop(data, "loop-1000")
    during = f"at 1 kHz for {figure(loop and loop['seconds'], '{:.0f}')} s across processes"
    row(f"{during}: nothing lost", f"{figure(loop and loop['lost'])} of {figure(loop and loop['sent'])}",
        None if loop is None else loop["lost"] == 0)
    mine_tail, peer_tail = loop and loop["p999_us"], peer_loop and peer_loop["p999_us"]
    row(f"{during}: p99.9 ≤ 2 × ddsperf's", f"{ratio(mine_tail, peer_tail)} ({figure(mine_tail, '{:.1f}')} µs vs "
        f"≥ {figure(peer_tail, '{:.1f}')} µs)", None if mine_tail is None or not peer_tail else
        mine_tail <= 2 * peer_tail)
    row(f"{during}: no sample later than 1 ms", f"{figure(loop and loop['late_1ms'])} later",
        None if loop is None else loop["late_1ms"] == 0)

    highest = keep_up_rates(data)
    mine_rate, peer_rate = highest.get("plugin"), highest.get("ddsperf")
    row("highest paced rate at 1 KiB received whole ≥ Cyclone's",
        f"plug-in {figure(mine_rate)}, zmq {figure(highest.get('zmq'))}, Cyclone {figure(peer_rate)} samples/s",
        None if mine_rate is None or not peer_rate else mine_rate >= peer_rate)
    return rows
