#!/usr/bin/env python3
"""Rooms include only rooms below them. Usage: include_direction.py"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# From the ground up: a path prefix and the floor of the files below it. The longest prefix decides.
FLOORS = {
    "services/product/": 0,
    "messages/": 0,
    "config/thread_annotations.h": 0,
    "config/semaphore_helper.": 0,
    "config/param_ids.": 0,
    "config/descriptors/": 1,
    "config/": 2,
    "config/values/": 2,
    "config/manager/": 3,
    "services/alarms/": 3,
    "config/access/": 4,
    "vexactl/": 5,
    "mainstay/": 5,
}

# Edges that run up, forced by the contract. Each with its reason.
BACK_EDGES = {
    ("config/descriptors/catalogue/group_99_100.cpp", "config/config.h"):
        "the parameter of group 99 carries an action, which works on a Config",
    ("config/descriptors/legacy_param.cpp", "config/config.h"):
        "the legacy accessor reads through a Config",
    ("config/descriptors/legacy_param.cpp", "config/access/config_factory_impl.h"):
        "and connects by itself",
    ("config/descriptors/legacy_param.cpp", "config/access/uri.h"):
        "to the device's own configuration",
}


def floor(path):
    prefixes = [prefix for prefix in FLOORS if path.startswith(prefix)]
    return FLOORS[max(prefixes, key=len)] if prefixes else None


def includes():
    for folder in (ROOT / "classes", ROOT / "apps"):
        for file in sorted(folder.rglob("*")):
            if file.suffix not in (".h", ".cpp", ".inc"):
                continue
            for target in re.findall(r'^#include "(.+)"', file.read_text(), re.MULTILINE):
                yield file.relative_to(folder).as_posix(), target


def main():
    errors, unused = [], dict(BACK_EDGES)
    for source, target in includes():
        if floor(source) is None or floor(target) is None:
            errors.append(f"{source} -> {target}: not in a known room")
        elif unused.pop((source, target), None) is None and floor(target) > floor(source):
            errors.append(f"{source} -> {target}: upwards, from floor {floor(source)} to {floor(target)}")
    errors += [f"{source} -> {target}: listed as a back edge, but not there" for source, target in unused]
    print("\n".join(errors or ["include direction: every arrow runs down"]))
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
