#!/usr/bin/env python3
"""Every arrow runs down: a file includes files of its own room, or of rooms on lower floors.
Usage: include_direction.py"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# From the ground up. Rooms that share a floor do not know each other.
FLOORS = [
    ["messages", "config/base"],
    ["services/product"],
    ["config", "config/streams"],
    ["config/descriptors"],
    ["config/descriptors/catalogue"],
    ["config/descriptors/generic"],
    ["config/descriptors/registry"],
    ["config/values", "config/listeners", "config/delivery"],
    ["config/manager", "services/alarms"],
    ["config/access/protocol"],
    ["config/access/io"],
    ["config/access/client/cache", "config/access/client/queues"],
    ["config/access/client/network"],
    ["config/access/connector"],
    ["config/access/server"],
    ["config/access/server/network", "config/access/server/queues"],
    ["config/legacy", "device"],
    ["mainstay/state"],
    ["mainstay/actions"],
    ["mainstay/control"],
    ["mainstay", "vexactl"],
    ["bench", "fuzz", "soak"],
    ["."],  # the header that includes all public ones
]
FLOOR_OF = {room: number for number, rooms in enumerate(FLOORS) for room in rooms}

def files():
    """Each file and its name as other files include it."""
    for folder, base in (("classes", "classes"), ("apps", "apps"), ("bench", "."), ("fuzz", "."), ("soak", ".")):
        for file in sorted((ROOT / folder).rglob("*")):
            if file.suffix in (".h", ".cpp", ".inc"):
                yield file, file.relative_to(ROOT / base)


def main():
    errors = []
    for file, name in files():
        room = name.parent.as_posix()
        for target in re.findall(r'^#include "(.+)"', file.read_text(), re.MULTILINE):
            other = pathlib.PurePath(target).parent.as_posix()
            if other == ".":
                other = room  # beside the file itself
            if room not in FLOOR_OF or other not in FLOOR_OF:
                errors.append(f"{name} -> {target}: not in a known room")
            elif other != room and FLOOR_OF[other] >= FLOOR_OF[room]:
                errors.append(f"{name} -> {target}: not downwards")
    print("\n".join(errors or ["include direction: every arrow runs down"]))
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
