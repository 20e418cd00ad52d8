#!/usr/bin/python3
"""Turns the runs of scripts/perf.sh into the performance report.

Reads the data directory perf.sh filled (krin-perf's JSON lines, the
benchmarks' JSON, ddsperf's logs and CPU times), takes the median of repeated
runs, draws the throughput and latency plots and writes performance.md with
its tables of ratios, ending with the hand-written docs/perf/notes.md.
"""
import argparse
import datetime
import json
import os
import platform
import re
import statistics
import subprocess

from perfCommon import (ddsperf_cost, ddsperf_latency, ddsperf_rate, figure, finish_plot, median_run, plt, ratio,
                        read_text, runs, verdict)
import perfTail

SIDES = """- **plug-in**: `krin-perf`, HokuTopicIn samples through the exported publisher and subscriber
  factories, payload in the `coefficients` array, two processes on TCP loopback.
- **raw**: the same three frames (topic frame, a header of a real header's length, a payload of the
  wire message's length) through the same runtime with nothing of the plug-in on either side.
- **zmq**: the same three frames over a bare ZeroMQ XPUB->SUB pair between the two processes,
  with neither the runtime nor the plug-in: the floor that the runtime's data path is measured
  against.
- **Cyclone DDS**: its own `ddsperf` (Debian's `cyclonedds-tools`), `pub`/`sub` and
  `ping`/`pong`, payload size set to the plug-in's wire size, loopback unicast only.

Losses are counted from gaps in `sample_id`, which the publisher numbers consecutively: the
subscriber side does not hand out the header's `sampleSequence`. The publisher never waits
(a full queue loses the frame, by design), so a publisher faster than its subscriber loses samples.
"""
ENGINE_BENCHMARKS = ["Parse/RefPos/0", "NewDataThenRead/RefPos/0", "NewDataToListener/RefPos/0",
                     "Parse/HokuTopicIn/4096", "NewDataThenRead/HokuTopicIn/4096",
                     "NewDataToListener/HokuTopicIn/4096"]


def benchmark_medians(data, name):
    """CPU ns and counters of each benchmark's median aggregate."""
    path = os.path.join(data, f"{name}.json")
    if not os.path.exists(path):
        return {}
    medians = {}
    for entry in json.load(open(path)).get("benchmarks", []):
        if entry.get("aggregate_name") == "median":
            medians[entry["run_name"]] = entry
    return medians


def plot_throughput(rows, out):
    plt.figure(figsize=(9, 5.6))
    for key, label in (("plugin", "plug-in (listener)"), ("raw", "raw pipeline (runtime alone)"),
                       ("zmq", "bare ZeroMQ (the floor)"), ("ddsperf", "Cyclone DDS ddsperf")):
        points = [(row["size"], row[key]) for row in rows if row[key]]
        if points:
            plt.plot(*zip(*points), marker="o", label=label)
    plt.yscale("log")
    finish_plot("Throughput by payload size, two processes on loopback", "float array bytes per sample",
                "samples/s received", "lower left", out)


def plot_latency(data, peer, out):
    plt.figure(figsize=(9, 5.6))
    for impl, label in (("plugin", "plug-in (listener)"), ("raw", "raw pipeline"), ("zmq", "bare ZeroMQ")):
        path = os.path.join(data, f"latency-{impl}-1024.txt")
        halves = sorted(float(line) for line in read_text(path).split())
        if halves:
            plt.plot(halves, [(i + 1) / len(halves) for i in range(len(halves))], linewidth=2, label=label)
    if peer:
        plt.plot(peer[:3], [0.5, 0.9, 0.99], "o", markersize=8, label="ddsperf median, p90, p99")
    finish_plot("Round-trip halves at 1 KiB: distribution", "microseconds", "fraction of round trips", "lower right",
                out)


def machine():
    model = "unknown CPU"
    for line in subprocess.run(["lscpu"], capture_output=True, text=True).stdout.splitlines():
        if line.startswith("Model name:"):
            model = line.split(":", 1)[1].strip()
            break
    return f"{model}, {os.cpu_count()} cores, {platform.system()} {platform.release()}"


def report(args):
    data = args.data
    lines = []
    emit = lines.append

    throughput = runs(data, "throughput.jsonl")
    rows = []
    for size in sorted({run["size"] for run in throughput}):
        plugin = median_run([r for r in throughput if r["size"] == size and r["impl"] == "plugin"])
        raw = median_run([r for r in throughput if r["size"] == size and r["impl"] == "raw"])
        zmq = median_run([r for r in throughput if r["size"] == size and r["impl"] == "zmq"])
        rows.append({"size": size, "wire": (plugin or raw or {}).get("wire_bytes"), "plugin_run": plugin,
                     "raw_run": raw, "plugin": plugin and plugin["samples_per_s"],
                     "raw": raw and raw["samples_per_s"], "zmq": zmq and zmq["samples_per_s"],
                     "ddsperf": ddsperf_rate(data, f"throughput-{size}")})
    latency = runs(data, "latency.jsonl")
    peers = {size: ddsperf_latency(data, f"latency-{size}") for size in {r["size"] for r in latency}}

    os.makedirs(os.path.join(args.out, "perf"), exist_ok=True)
    plot_throughput(rows, os.path.join(args.out, "perf", "throughput.png"))
    plot_latency(data, peers.get(1024), os.path.join(args.out, "perf", "latency.png"))

    emit("# Performance\n")
    emit(f"Measured by `{args.command}` on {datetime.date.today().isoformat()}.")
    emit(f"Machine: {machine()}. Everything below ran in that one invocation,")
    emit("so the ratios compare like with like; absolute figures belong to this machine.\n")
    emit(SIDES)

    emit("## Throughput\n")
    emit("![throughput by size](perf/throughput.png)\n")
    emit("| array bytes | wire bytes | plug-in samples/s | MB/s | lost | raw samples/s | lost | zmq samples/s "
         "| ddsperf samples/s | plug-in / zmq | plug-in / raw | plug-in / Cyclone |")
    emit("|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for row in rows:
        plugin, raw = row["plugin_run"] or {}, row["raw_run"] or {}
        emit(f"| {row['size']} | {row['wire']} | {figure(row['plugin'])} | {figure(plugin.get('mb_per_s'), '{:.1f}')} "
             f"| {figure(plugin.get('loss_pct'), '{:.2f}')} % | {figure(row['raw'])} "
             f"| {figure(raw.get('loss_pct'), '{:.2f}')} % | {figure(row['zmq'])} | {figure(row['ddsperf'])} "
             f"| {ratio(row['plugin'], row['zmq'])} | {ratio(row['plugin'], row['raw'])} "
             f"| {ratio(row['plugin'], row['ddsperf'])} |")

    emit(f"\n### Cost per sample at {args.cost_rate} samples/s, nothing lost\n")
    emit("CPU time of both processes (all their threads, user and system) and context switches, divided")
    emit(f"by the samples sent; the publisher paced to {args.cost_rate} samples/s, a rate all three sustain.")
    emit("This is the machine's price of one sample through each pipeline, independent of how each sheds")
    emit("load when flooded.\n")
    emit("| array bytes | side | CPU µs per sample | context switches per sample | lost | CPU / Cyclone |")
    emit("|---:|---|---:|---:|---:|---:|")
    cost = runs(data, "cost.jsonl")
    for size in sorted({r["size"] for r in cost}):
        peer = ddsperf_cost(data, f"cost-{size}")
        for run in (r for r in cost if r["size"] == size):
            emit(f"| {size} | {run['impl']} | {run['cpu_us_per_sample']:.3f} | {run['switches_per_sample']:.4f} "
                 f"| {run['loss_pct']:.2f} % | {ratio(run['cpu_us_per_sample'], peer and peer[0])} |")
        if peer:
            emit(f"| {size} | ddsperf | {peer[0]:.3f} | {peer[1]:.4f} | 0 % | 1.00 |")

    emit("\n### Read modes of the subscriber\n")
    emit("| array bytes | read mode | samples/s | lost |")
    emit("|---:|---|---:|---:|")
    modes = runs(data, "modes.jsonl")
    for size in sorted({r["size"] for r in modes}):
        for mode in ("listener", "read", "poll", "notifier"):
            run = median_run([r for r in modes if r["size"] == size and r["read"] == mode])
            if run:
                emit(f"| {size} | {mode} | {run['samples_per_s']:.0f} | {run['loss_pct']:.2f} % |")

    emit("\n## Latency (round-trip halves)\n")
    emit("![latency distribution](perf/latency.png)\n")
    emit("| array bytes | side | median µs | p90 µs | p99 µs | max µs | median / Cyclone |")
    emit("|---:|---|---:|---:|---:|---:|---:|")
    for run in latency:
        size, peer = run["size"], peers.get(run["size"])
        side = run["impl"] if run["read"] in ("listener", "events") else f"{run['impl']}-{run['read']}"
        emit(f"| {size} | {side} | {run['median_us']:.1f} | {run['p90_us']:.1f} | {run['p99_us']:.1f} "
             f"| {run['max_us']:.1f} | {ratio(run['median_us'], peer and peer[0])} |")
        if run["impl"] == "raw" and peer:
            emit(f"| {size} | ddsperf | {peer[0]:.1f} | {peer[1]:.1f} | {peer[2]:.1f} | {peer[3]:.1f} | 1.00 |")

    emit("\n".join(perfTail.loop_section(data, args.out)))
    by_size = {row["size"]: row for row in rows}
    plugin_1k = next((r for r in latency if r["size"] == 1024 and r["impl"] == "plugin" and r["read"] == "listener"),
                     None)
    peer_1k = peers.get(1024)
    in_process = perfTail.in_process_figures(data, plugin_1k and plugin_1k["median_us"],
                                             by_size.get(1024, {}).get("plugin"), peer_1k and peer_1k[0],
                                             by_size.get(1024, {}).get("ddsperf"))
    emit("\n".join(perfTail.in_process_section(in_process)))

    entity = benchmark_medians(data, "entity")
    cpu = {name: entry["cpu_time"] for name, entry in entity.items()}
    emit("\n## Binding overhead (CPU time per call, ns; ratio to the message library on the same message)\n")
    emit("| topic | toByteArray | SerializeToArray | ratio | fromByteArray | ParseFromArray | ratio |")
    emit("|---|---:|---:|---:|---:|---:|---:|")
    worst_to = worst_from = None
    # The topics as the benchmark names them, by name: the repetitions run
    # interleaved at random, so the results come in no fixed order.
    topics = sorted(name.split("/", 1)[1] for name in cpu if name.startswith("ToByteArray/"))
    for topic in topics:
        to, ser = cpu.get(f"ToByteArray/{topic}"), cpu.get(f"SerializeToArray/{topic}")
        fr, par = cpu.get(f"FromByteArray/{topic}"), cpu.get(f"ParseFromArray/{topic}")
        if None in (to, ser, fr, par):
            continue
        worst_to = max(worst_to or 0, to / ser)
        worst_from = max(worst_from or 0, fr / par)
        emit(f"| {topic} | {to:.1f} | {ser:.1f} | {ratio(to, ser)} | {fr:.1f} | {par:.1f} | {ratio(fr, par)} |")
    emit("\nArray views against copies (HokuTopicIn `coefficients`, CPU ns per call):\n")
    emit("| floats | getCoefficients view | copy into std::vector | copy / view |")
    emit("|---:|---:|---:|---:|")
    for floats in (16, 256, 16384):
        view, copy = cpu.get(f"GetCoefficientsView/{floats}"), cpu.get(f"CopyCoefficients/{floats}")
        if view and copy:
            emit(f"| {floats} | {view:.1f} | {copy:.1f} | {ratio(copy, view)} |")

    engine = benchmark_medians(data, "engine")
    emit("\n## Engine (one thread, no transport; heap allocations per sample counted with a global operator new)\n")
    emit("| benchmark | CPU ns per sample | samples/s | allocations per sample |")
    emit("|---|---:|---:|---:|")
    for name in ENGINE_BENCHMARKS:
        entry = engine.get(name)
        if entry:
            emit(f"| {name} | {entry['cpu_time']:.0f} | {1e9 / entry['cpu_time']:.0f} "
                 f"| {entry.get('allocations_per_sample', 0):.0f} |")

    def target(size, key, threshold):
        row = by_size.get(size)
        if not row or not row["plugin"] or not row[key]:
            return "n/a", None
        value = row["plugin"] / row[key]
        return f"{value:.2f}", value >= threshold

    emit("\n## Targets\n")
    emit("| target | figure | verdict |")
    emit("|---|---|---|")
    for size, label in ((64, "64 B"), (1024, "1 KiB")):
        for key, name, threshold in (("ddsperf", "Cyclone", 1.0), ("raw", "raw", 0.8)):
            shown, met = target(size, key, threshold)
            emit(f"| throughput {label} ≥ {threshold:.1f} × {name} | {shown} | {verdict(met)} |")
    if plugin_1k and peer_1k:
        emit(f"| latency median at 1 KiB ≤ Cyclone | {plugin_1k['median_us']:.1f} µs vs {peer_1k[0]:.1f} µs "
             f"| {verdict(plugin_1k['median_us'] <= peer_1k[0])} |")
    else:
        emit("| latency median at 1 KiB ≤ Cyclone | n/a | n/a |")
    emit(f"| toByteArray ≤ 1.05 × SerializeToArray (worst topic) | {figure(worst_to, '{:.2f}')} "
         f"| {verdict(None if worst_to is None else worst_to <= 1.05)} |")
    emit(f"| fromByteArray ≤ 1.05 × ParseFromArray (worst topic) | {figure(worst_from, '{:.2f}')} "
         f"| {verdict(None if worst_from is None else worst_from <= 1.05)} |")
    emit("\n".join(perfTail.target_rows(data, latency, args.cost_rate, in_process)) + "\n")
    emit(read_text(os.path.join(os.path.dirname(__file__), "..", "docs", "perf", "notes.md")).rstrip())

    with open(os.path.join(args.out, "performance.md"), "w") as out:
        out.write("\n".join(lines) + "\n")
    print(f"wrote {os.path.join(args.out, 'performance.md')} and its plots in {os.path.join(args.out, 'perf')}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--data", required=True, help="the data directory scripts/perf.sh filled")
    parser.add_argument("--out", required=True, help="where performance.md and perf/*.png go")
    parser.add_argument("--cost-rate", type=int, required=True, help="the rate of the cost runs")
    parser.add_argument("--command", required=True, help="the command that made the data, for the header")
    report(parser.parse_args())


if __name__ == "__main__":
    main()
