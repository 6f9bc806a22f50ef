#!/usr/bin/env python3
"""One tavo-probe with many sensors on one local mosquitto: memory, creation time, scan starts.

Generates a config of statistics sensors (each on a filter of its own), subscribe-custom
sensors and round-trip sensors, starts a private mosquitto on a free port of 127.0.0.1 and
runs `tavo-probe run --json` twice: once with one sensor of each kind (the fixed cost) and
once with all of them. It reads the JSON lines and /proc/PID/status and prints, as JSON:

  rss_per_sensor_kib   (idle RSS of the full run - idle RSS of the small run) / extra sensors
  first_scan_s         seconds from the probe's start to its first scan (loading the config)
  created_s            seconds from the probe's start to the last sensor's first created result
  late_ms p50/p99/max  how late scans after the first start, against a fixed-rate plan
  metrics_ms           GET /metrics latencies once a second, only with --listen

Everything stops by itself after --seconds (plus a bounded grace period); all traffic stays
on 127.0.0.1. Run it from a release tree:

  bench/scale_probe.py --probe build-release/bin/tavo-probe
"""

import argparse
import datetime
import json
import os
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def config_text(port, stats, customs, roundtrips, interval, listen):
    lines = []
    if listen:
        lines.append(f'listen: "127.0.0.1:{listen}"')
    lines += [
        "defaults:",
        "  host: 127.0.0.1",
        f"  credentials.connection_mqtt.port: {port}",
        f"  interval: {interval}",
        "sensors:",
    ]
    sensor_id = 0

    def sensor(kind, settings):
        nonlocal sensor_id
        sensor_id += 1
        lines.append(f"  - id: {sensor_id}")
        lines.append(f"    kind: {kind}")
        if settings:
            lines.append("    settings:")
            lines.extend(f'      {k}: "{v}"' for k, v in settings)

    for i in range(stats):
        sensor("statistics_sensor", [("statistics.connection_statistics.topic", f"scale/stats/{i}/#")])
    sc = "subscribe_custom.connection_subscribe_custom."
    for i in range(customs):
        sensor("subscribe_custom_sensor", [(sc + "topic", f"scale/custom/{i}"),
                                           (sc + "channel1_jsonpath", "$.v"),
                                           (sc + "channel1_name", "V")])
    for _ in range(roundtrips):
        sensor("roundtrip_sensor", [])
    return "\n".join(lines) + "\n", sensor_id


def rss_kib(pid):
    try:
        with open(f"/proc/{pid}/status") as f:
            for line in f:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


def parse_time(text):
    return datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ").replace(
        tzinfo=datetime.timezone.utc).timestamp()


def percentile(values, p):
    if not values:
        return None
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * p / 100))]


def time_metrics(listen, stop_at, out):
    url = f"http://127.0.0.1:{listen}/metrics"
    while time.time() < stop_at:
        started = time.monotonic()
        try:
            with urllib.request.urlopen(url, timeout=5) as response:
                response.read()
            out.append((time.monotonic() - started) * 1000)
        except OSError:
            pass
        time.sleep(1)


def run_probe(args, workdir, port, stats, customs, roundtrips, tag):
    listen = free_port() if args.listen else None
    text, total = config_text(port, stats, customs, roundtrips, args.interval, listen)
    config = os.path.join(workdir, f"{tag}.yaml")
    with open(config, "w") as f:
        f.write(text)
    command = [args.probe, "run", config, "--json", "--seconds", str(args.seconds),
               "--state", os.path.join(workdir, f"{tag}.db")]
    started = time.time()
    probe = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    results = []
    reader = threading.Thread(target=lambda: results.extend(
        json.loads(line) for line in probe.stdout if line.startswith("{")))
    reader.start()
    metrics = []
    if listen:
        threading.Thread(target=time_metrics, args=(listen, started + args.seconds - 2, metrics),
                         daemon=True).start()
    samples = []  # (seconds since start, RSS KiB)
    while probe.poll() is None and time.time() - started < args.seconds + 30:
        value = rss_kib(probe.pid)
        if value:
            samples.append((time.time() - started, value))
        time.sleep(0.5)
    if probe.poll() is None:
        probe.send_signal(signal.SIGINT)
        try:
            probe.wait(timeout=20)
        except subprocess.TimeoutExpired:
            probe.kill()
            probe.wait()
    reader.join(timeout=10)

    first = {}
    scans = {}  # sensor id -> [(start, end)]
    for r in results:
        if r.get("type") != "scan_result":
            continue
        ended = parse_time(r["time"])
        scans.setdefault(r["sensor_id"], []).append((ended - r["duration_s"], ended))
        if not r["error"] and r["sensor_id"] not in first:
            first[r["sensor_id"]] = ended
    # A sensor's first scan creates it (counted under created_s); its rate counts from that
    # scan's end; after an overrun the next scan is due when the late one ends.
    origin = min((s[0][0] for s in scans.values()), default=started)
    all_created = max(first.values()) if len(first) == total else None
    late = []
    late_after = []  # scans that start once every sensor exists
    for times in scans.values():
        due = times[0][1]
        for k in range(1, len(times)):
            due = max(due + args.interval, times[k - 1][1])
            late.append(max(0.0, times[k][0] - due) * 1000)
            if all_created is not None and times[k][0] > all_created:
                late_after.append(late[-1])
    created = all_created - started if all_created is not None else None
    # Idle: the last samples, well after creation.
    tail = [v for t, v in samples if t > args.seconds * 0.6]
    return {
        "sensors": total,
        "created": len(first),
        "first_scan_s": round(origin - started, 2),
        "created_s": round(created, 2) if created is not None else None,
        "scans": sum(len(s) for s in scans.values()),
        "late_ms": {"p50": percentile(late, 50), "p99": percentile(late, 99),
                    "max": max(late, default=None)},
        "late_after_creation_ms": {"scans": len(late_after), "p50": percentile(late_after, 50),
                                   "p99": percentile(late_after, 99)},
        "rss_kib": int(statistics.median(tail)) if tail else None,
        "peak_rss_kib": max((v for _, v in samples), default=None),
        "metrics_ms": {"count": len(metrics), "p50": percentile(metrics, 50),
                       "p99": percentile(metrics, 99), "max": max(metrics, default=None)}
        if listen else "no --listen",
        "exit": probe.returncode,
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--probe", required=True, help="path of tavo-probe (release build)")
    parser.add_argument("--statistics", type=int, default=5000)
    parser.add_argument("--custom", type=int, default=4900)
    parser.add_argument("--roundtrips", type=int, default=100)
    parser.add_argument("--interval", type=int, default=20, help="scan interval, seconds")
    parser.add_argument("--seconds", type=int, default=90, help="length of each run")
    parser.add_argument("--listen", action="store_true",
                        help="also serve and time GET /metrics (a probe with --listen)")
    parser.add_argument("--mosquitto", default=shutil.which("mosquitto") or "/usr/sbin/mosquitto")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="scale-bench-") as workdir:
        port = free_port()
        conf = os.path.join(workdir, "mosquitto.conf")
        with open(conf, "w") as f:
            f.write(f"listener {port} 127.0.0.1\nallow_anonymous true\nmax_queued_messages 1000\n")
        broker = subprocess.Popen([args.mosquitto, "-c", conf], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        try:
            deadline = time.time() + 10
            while time.time() < deadline:
                try:
                    socket.create_connection(("127.0.0.1", port), timeout=1).close()
                    break
                except OSError:
                    time.sleep(0.1)
            small = run_probe(args, workdir, port, 1, 1, 1, "small")
            full = run_probe(args, workdir, port, args.statistics, args.custom, args.roundtrips, "full")
        finally:
            broker.terminate()
            try:
                broker.wait(timeout=10)
            except subprocess.TimeoutExpired:
                broker.kill()
                broker.wait()
    extra = full["sensors"] - small["sensors"]
    per_sensor = None
    if full["rss_kib"] and small["rss_kib"] and extra > 0:
        per_sensor = round((full["rss_kib"] - small["rss_kib"]) / extra, 2)
    json.dump({"small": small, "full": full, "rss_per_sensor_kib": per_sensor}, sys.stdout, indent=2)
    print()


if __name__ == "__main__":
    main()
