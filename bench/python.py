"""What the package vexa costs beside the least that the same work could cost: rows of docs/performance.md. Run by
scripts/bench python. The two sides of a row take turns; every figure is a median."""
import os
import pathlib
import statistics
import subprocess
import sys
import threading
import time

import vexa

ROOT = pathlib.Path(__file__).resolve().parents[1]
DEVICES, ROUNDS = 100, 9


def seconds(work):
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def print_row(what, least, measured, unit, target):
    """Both in seconds, as medians of pairs."""
    ratio = statistics.median(m / l for l, m in zip(least, measured))
    scale = {"ns": 1e9, "ms": 1e3}[unit]
    figures = [f"{scale * statistics.median(each):.0f} {unit}" for each in (least, measured)]
    print(f"| {what:<58} | {figures[0]:>12} | {figures[1]:>12} | {ratio:>6.2f} | <= {target} | "
          f"{'met   ' if ratio <= target else 'MISSED'} |", flush=True)


def compare_reading(address):
    lock, values, count = threading.Lock(), {"FanSpeed": 50}, 100_000

    def look_up():
        for _ in range(count):
            with lock:
                values["FanSpeed"]

    with vexa.Device(address) as device:
        def read():
            for _ in range(count):
                device["FanSpeed"]

        device.wait()
        pairs = [(seconds(look_up) / count, seconds(read) / count) for _ in range(ROUNDS)]
    print_row("a value in step; of a dictionary behind a lock", *zip(*pairs), "ns", 5.0)


def compare_programs(address, table):
    arguments = ["*", *[address] * DEVICES]

    def run(*program):
        subprocess.run([*program, *arguments], check=True, stdout=subprocess.DEVNULL)

    pairs = [(seconds(lambda: run(table)), seconds(lambda: run(sys.executable, ROOT / "examples/python/table.py")))
             for _ in range(ROUNDS)]
    print_row(f"{DEVICES} devices, all values: the program; that in C++", *zip(*pairs), "ms", 1.5)


def main():
    daemon = subprocess.Popen([ROOT / "build/bin/mainstay", "--no-mq", "--no-udp", "--tcp-port", "0"],
                              env={**os.environ, "PRODUCT_ID": "ROWAN"}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
    try:
        ready = next(line for line in daemon.stdout if "ready" in line)
        threading.Thread(target=daemon.stdout.read, daemon=True).start()
        address = "127.0.0.1:" + ready.split("TCP port ")[1].split(",")[0].split()[0]
        print("| **Python** | | | | | |")
        compare_reading(address)
        compare_programs(address, sys.argv[1])
    finally:
        daemon.terminate()


if __name__ == "__main__":
    main()
