#!/usr/bin/env python3
"""Fault soak: tavo-probe with every sensor kind on one broker while the broker restarts,
freezes, loses a connection during re-subscription and refuses the password for a while.
Afterwards every sensor must report results without error and count again, the probe's
threads and file descriptors must be back at their baseline, its memory within a bound, and
no sanitizer report may have been printed.

Usage: soak.py BIN_DIR RESTARTS    (BIN_DIR holds tavo-probe and fault_proxy)
"""
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

TIMEOUT = 3            # the sensors' "timeout" setting, seconds
INTERVAL = 2           # every sensor's scan interval, seconds
RECOVERY = 100         # longest wait for recovery: one 60 s back-off step plus scans
MEMORY_BOUND_MB = 64   # growth of the probe's resident memory over the soak


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Broker:
    def __init__(self, workdir, port):
        self.dir, self.port, self.proc = workdir, port, None

    def write_passwords(self, password):
        path = os.path.join(self.dir, "passwords")
        open(path, "w").close()
        subprocess.run(["mosquitto_passwd", "-b", path, "probe", password], check=True)
        os.chmod(path, 0o600)

    def start(self):
        conf = os.path.join(self.dir, "mosquitto.conf")
        with open(conf, "w") as f:
            f.write(f"listener {self.port} 127.0.0.1\nallow_anonymous false\n"
                    f"password_file {self.dir}/passwords\npersistence false\n")
            # Started as root, mosquitto drops to its own user, which cannot read our files.
            if os.geteuid() == 0:
                f.write("user root\n")
        self.proc = subprocess.Popen(["mosquitto", "-c", conf], stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
        deadline = time.time() + 5
        while time.time() < deadline:
            try:
                socket.create_connection(("127.0.0.1", self.port), 0.2).close()
                return
            except OSError:
                time.sleep(0.05)
        raise RuntimeError("mosquitto did not start")

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGCONT)
            self.proc.terminate()
            self.proc.wait(10)

    def restart(self):
        self.stop()
        self.start()


class Proxy:
    def __init__(self, bin_dir, target_port):
        self.proc = subprocess.Popen([os.path.join(bin_dir, "fault_proxy"), "0", "127.0.0.1",
                                      str(target_port)], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, text=True, bufsize=1)
        words = self.proc.stdout.readline().split()
        if len(words) != 2 or words[0] != "ready":
            raise RuntimeError("fault_proxy did not start")
        self.port = int(words[1])

    def command(self, text):
        self.proc.stdin.write(text + "\n")
        self.proc.stdin.flush()
        if self.proc.stdout.readline().strip() != "ok":
            raise RuntimeError(f"fault_proxy refused '{text}'")

    def close(self):
        self.proc.stdin.close()
        self.proc.wait(10)


class Results:
    """Reads the probe's JSON lines and keeps each sensor's latest scan result."""

    def __init__(self, stream):
        self.latest, self.lock = {}, threading.Lock()
        self.errors_seen = set()
        threading.Thread(target=self._read, args=(stream,), daemon=True).start()

    def _read(self, stream):
        for line in stream:
            try:
                r = json.loads(line)
            except ValueError:
                continue
            if r.get("type") != "scan_result":
                continue
            with self.lock:
                self.latest[r["sensor_id"]] = (time.time(), r)
                if failed(r) and r.get("message"):
                    self.errors_seen.add(r["message"].get("key", ""))

    def since(self, t):
        with self.lock:
            return {i: r for i, (at, r) in self.latest.items() if at >= t}


def failed(result):
    return result.get("state", "error" if result.get("error") else "ok") in ("error", "unknown")


def channel(result, name):
    for c in result.get("channels", []):
        if c.get("name") == name:
            return c.get("value")
    return None


def healthy(results, since, sensor_ids):
    """Every sensor has a result without error after `since`, and the push sensors count."""
    latest = results.since(since)
    if set(latest) != set(sensor_ids):
        return False
    for r in latest.values():
        if failed(r):
            return False
    messages = channel(latest[1], "Messages Received")
    value = channel(latest[3], "Value")
    return bool(messages) and value is not None


def wait_until(predicate, seconds):
    deadline = time.time() + seconds
    while time.time() < deadline:
        if predicate():
            return True
        time.sleep(0.5)
    return False


def proc_figures(pid):
    status = open(f"/proc/{pid}/status").read().splitlines()
    fields = dict(line.split(":", 1) for line in status if ":" in line)
    return {"threads": int(fields["Threads"].strip()),
            "fds": len(os.listdir(f"/proc/{pid}/fd")),
            "rss_mb": int(fields["VmRSS"].split()[0]) // 1024}


def quiet_figures(pid, seconds=6):
    """The fewest threads and descriptors over a few seconds: round trips open clients of their
    own while they scan, so a single reading can catch one."""
    least = proc_figures(pid)
    deadline = time.time() + seconds
    while time.time() < deadline:
        now = proc_figures(pid)
        least = {k: min(least[k], now[k]) for k in least}
        time.sleep(0.1)
    return least


def config(port):
    topic = "subscribe_custom.connection_subscribe_custom."
    return f"""defaults:
  host: 127.0.0.1
  timeout: {TIMEOUT}
  credentials.connection_mqtt.port: {port}
  credentials.user_credentials.active: "yes"
  credentials.user_credentials.user: probe
  credentials.user_credentials.password: soak-secret
sensors:
  - id: 1
    kind: statistics_sensor
    interval: {INTERVAL}
    settings:
      statistics.connection_statistics.topic: "soak/#"
  - id: 2
    kind: roundtrip_sensor
    interval: {INTERVAL}
  - id: 3
    kind: subscribe_custom_sensor
    interval: {INTERVAL}
    settings:
      {topic}topic: soak/data
      {topic}channel1_jsonpath: $.value
      {topic}channel1_name: Value
      {topic}channel1_type: absolute_integer
"""


def main():
    bin_dir, restarts = sys.argv[1], int(sys.argv[2])
    work = tempfile.mkdtemp(prefix="tavo-soak-")
    rows, ok = [], True

    def row(step, passed, detail=""):
        nonlocal ok
        ok = ok and passed
        rows.append((step, "ok" if passed else "FAILED", detail))
        print(f"soak: {step}: {'ok' if passed else 'FAILED'} {detail}", flush=True)

    broker = Broker(work, free_port())
    broker.write_passwords("soak-secret")
    broker.start()
    proxy = Proxy(bin_dir, broker.port)
    stop_feed = threading.Event()

    def feed():
        n = 0
        while not stop_feed.is_set():
            n += 1
            subprocess.run(["mosquitto_pub", "-p", str(broker.port), "-u", "probe", "-P",
                            "soak-secret", "-t", "soak/data", "-m", json.dumps({"value": n})],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(0.2)

    threading.Thread(target=feed, daemon=True).start()
    with open(os.path.join(work, "soak.yaml"), "w") as f:
        f.write(config(proxy.port))
    stderr = open(os.path.join(work, "probe.stderr"), "w+")
    env = dict(os.environ, ASAN_OPTIONS="detect_leaks=1:abort_on_error=0",
               UBSAN_OPTIONS="print_stacktrace=1")
    probe = subprocess.Popen([os.path.join(bin_dir, "tavo-probe"), "run",
                              os.path.join(work, "soak.yaml"), "--json"],
                             stdout=subprocess.PIPE, stderr=stderr, text=True, env=env)
    results = Results(probe.stdout)
    sensors = [1, 2, 3]
    try:
        start = time.time()
        row("first results", wait_until(lambda: healthy(results, start, sensors), 60))
        baseline = quiet_figures(probe.pid)
        row("baseline", True, f"threads {baseline['threads']}, fds {baseline['fds']}, "
                              f"rss {baseline['rss_mb']} MiB")

        for n in range(restarts):
            broker.restart()
            time.sleep(random.uniform(1, 8))
        row(f"{restarts} broker restarts", True)

        broker.proc.send_signal(signal.SIGSTOP)
        time.sleep(2 * TIMEOUT)
        broker.proc.send_signal(signal.SIGCONT)
        row("freeze for twice the timeout", True)

        proxy.command("cut-on subscribe")
        proxy.command("cut")
        time.sleep(3 * INTERVAL)
        proxy.command("pass")
        row("cut during re-subscription", True)

        broker.write_passwords("changed")
        broker.restart()
        refused = wait_until(lambda: "error.login_refused_at" in results.errors_seen, 30)
        row("changed password reported", refused, ", ".join(sorted(results.errors_seen)))
        broker.write_passwords("soak-secret")
        broker.restart()

        back = time.time()
        row("every sensor counting again",
            wait_until(lambda: healthy(results, back, sensors), RECOVERY),
            f"after {time.time() - back:.0f} s")
        figures = quiet_figures(probe.pid)
        row("threads and fds at baseline",
            figures["threads"] <= baseline["threads"] and figures["fds"] <= baseline["fds"],
            f"threads {figures['threads']}/{baseline['threads']}, fds {figures['fds']}/{baseline['fds']}")
        growth = figures["rss_mb"] - baseline["rss_mb"]
        row(f"memory growth <= {MEMORY_BOUND_MB} MiB", growth <= MEMORY_BOUND_MB, f"{growth} MiB")
    finally:
        stop_feed.set()
        if probe.poll() is None:
            probe.terminate()
        try:
            code = probe.wait(30)
        except subprocess.TimeoutExpired:
            probe.kill()
            code = probe.wait()
        proxy.close()
        broker.stop()
    row("probe ended cleanly", code == 0, f"exit {code}")
    stderr.seek(0)
    reports = [l for l in stderr if "Sanitizer" in l or "runtime error:" in l]
    row("no sanitizer report", not reports, reports[0].strip() if reports else "")

    print("\nstep                                 result  detail")
    for step, result, detail in rows:
        print(f"{step:<36} {result:<7} {detail}")
    if ok:
        shutil.rmtree(work, ignore_errors=True)
    else:
        print(f"soak: files kept in {work}", file=sys.stderr)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
