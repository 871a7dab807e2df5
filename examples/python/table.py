#!/usr/bin/env python3
"""A table of many devices: a row for each, a column for each parameter that matches the pattern.

    table.py 'Fan*' rec-7 rec-8 10.0.0.9
"""
import sys
from concurrent.futures import ThreadPoolExecutor

import vexa


def row(address, pattern):
    """The values by name as people read them, or why there are none."""
    try:
        with vexa.Device(address) as device:
            return device.texts(pattern)
    except vexa.Error as error:
        return error


def main():
    if len(sys.argv) < 3:
        sys.exit(f"usage: {sys.argv[0]} PATTERN DEVICE...")
    pattern, *addresses = sys.argv[1:]
    with ThreadPoolExecutor(len(addresses)) as pool:
        rows = list(zip(addresses, pool.map(lambda address: row(address, pattern), addresses)))
    columns = sorted({name for _, values in rows if isinstance(values, dict) for name in values})
    print("device", *columns, sep="\t")
    for address, values in rows:
        if isinstance(values, vexa.Error):
            print(address, values, sep="\t")
        else:
            print(address, *(values.get(name, "") for name in columns), sep="\t")


if __name__ == "__main__":
    main()
