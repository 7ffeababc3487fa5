"""Benchmark: 100,000 rows of SFLIGHT through veltrane.Client.read_table, over
SOAP and over the NW RFC back end (our libsapnwrfc.so), beside the
requests+lxml peer (bench/peers/read_table_requests.py), against one
veltrane-sim. The two sides alternate, each run in a fresh interpreter, so that
load from elsewhere falls on both alike; each run reports its time (the read
alone) and its peak resident memory (the whole process).

usage: bench_read_table.py --peer PEER.py [--rows N] [--rounds N] [--benchmark_min_time=S]
Needs VELTRANE_SIM (the program), VELTRANE_NWRFC_SDK_DIR (our SDK) and the
package on PYTHONPATH."""

import argparse
import ctypes
import os
import signal
import statistics
import subprocess
import sys

SIDES = {
    "veltrane-soap": """
import veltrane
with veltrane.connect(url=URL, user="DEMO", passwd="Welcome1") as c:
    START()
    rows = c.read_table("SFLIGHT", max_rows=ROWS, page_size=10000).to_list()
    STOP(len(rows))
""",
    "veltrane-nwrfc": """
import veltrane
host, port = RFC.rsplit(":", 1)
with veltrane.connect("nwrfc", ashost=host, gwserv=port, user="DEMO", passwd="Welcome1") as c:
    START()
    rows = c.read_table("SFLIGHT", max_rows=ROWS, page_size=10000).to_list()
    STOP(len(rows))
""",
    "requests+lxml": """
sys.path.insert(0, os.path.dirname(PEER))
from read_table_requests import read_table
START()
rows = read_table(URL, "DEMO", "Welcome1", "SFLIGHT", ROWS, 10000)
STOP(len(rows))
""",
}

RUNNER = """
import os, resource, sys, time
URL, RFC, ROWS, PEER = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
clock = {}
def START(): clock["start"] = time.perf_counter()
def STOP(n):
    clock["seconds"] = time.perf_counter() - clock["start"]
    clock["rows"] = n
"""


def run(side, url, rfc, rows, peer):
    code = RUNNER + SIDES[side] + """
print(clock["seconds"], clock["rows"], resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
"""
    out = subprocess.run([sys.executable, "-c", code, url, rfc, str(rows), peer], capture_output=True, text=True, check=True)
    seconds, count, peak_kb = out.stdout.split()
    if int(count) != rows:
        raise RuntimeError(f"{side} read {count} rows, not {rows}")
    return float(seconds), int(peak_kb) / 1024


def main():
    args = argparse.ArgumentParser()
    args.add_argument("--peer", required=True)
    args.add_argument("--rows", type=int, default=100000)
    args.add_argument("--rounds", type=int, default=0, help="default: from --benchmark_min_time, at least 3")
    args.add_argument("--benchmark_min_time", type=float, default=0.5)
    options = args.parse_args()
    rounds = options.rounds or max(3, int(options.benchmark_min_time * 10))

    sim = subprocess.Popen([os.environ.get("VELTRANE_SIM", "veltrane-sim"), "--soap-port", "0", "--rfc-port", "0", "--log-level", "error",
                            "--flight-rows", str(options.rows)], stdout=subprocess.PIPE, text=True,
                           preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGTERM))  # ends with this process
    try:
        ready = sim.stdout.readline()
        url, rfc = ready.split("soap=")[1].split()[0], ready.split("rfc=")[1].split()[0]
        results = {side: [] for side in SIDES}
        for r in range(rounds):
            order = list(SIDES) if r % 2 == 0 else list(reversed(SIDES))
            for side in order:
                results[side].append(run(side, url, rfc, options.rows, options.peer))
    finally:
        sim.terminate()
        sim.wait()

    print(f"read_table of {options.rows} rows of SFLIGHT (14 fields), {rounds} rounds, side by side")
    print(f"{'Benchmark':<36}{'median s':>10}{'min s':>10}{'rows/s':>12}{'peak RSS MB':>14}")
    print("-" * 82)
    medians = {}
    for side, runs in results.items():
        times = [t for t, _ in runs]
        medians[side] = statistics.median(times)
        peak = max(m for _, m in runs)
        print(f"{'BM_PythonReadTable/' + side:<36}{medians[side]:>10.3f}{min(times):>10.3f}"
              f"{options.rows / medians[side]:>12.0f}{peak:>14.1f}")
    for side in ("veltrane-soap", "veltrane-nwrfc"):
        print(f"ratio {side} / requests+lxml (median time): {medians[side] / medians['requests+lxml']:.2f}")


if __name__ == "__main__":
    main()
