#!/usr/bin/env python3
"""docs/threads.md is true: every lock and every thread's name of the code stands there, and no other lock; and no lock
of the code escapes the thread-safety analysis. Usage: locks.py"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/threads.md"
BARE = re.compile(r"std::(?:\w+_)?mutex|std::condition_variable|std::(?:lock_guard|unique_lock|scoped_lock|shared_lock)"
                  r"|pthread_mutex_\w+\(|pthread_rwlock")
LOCK = re.compile(r"^\s*(?:static |mutable )*(?:vexa::)?(?:NoDestructor<(?:vexa::)?)?"
                  r"(?:Mutex|RecursiveMutex|LockSemaphore|StaticLock|ListenerLock)>?\s+(\w+)\b(?!::)", re.MULTILINE)
THREAD = re.compile(r'"((?:cfg-|ms-|TCPClnt|UDPClnt)[\w-]+)"')
# What the other locks are made of.
MAKERS = {"base/mutex.h", "base/semaphore_helper.h", "listeners/listener_lock.h"}


def sources():
    for folder in ("classes", "apps"):
        for file in sorted((ROOT / folder).rglob("*")):
            if file.suffix in (".h", ".cpp"):
                name = file.relative_to(ROOT / folder).as_posix()
                yield name.removeprefix("config/"), file.read_text()


def main():
    page = PAGE.read_text()
    rows = set(re.findall(r"^\| [^|]+ \| `([^`]+)`, `([^`]+)` \|", page, re.MULTILINE))
    found, errors = set(), []
    for name, text in sources():
        if name in MAKERS:
            continue
        errors += [f"{name}: {bare} is invisible to the analysis; use base/mutex.h" for bare in BARE.findall(text)]
        found |= {(name, lock) for lock in LOCK.findall(text)}
        errors += [f"{name}: the page lacks the thread {thread}" for thread in THREAD.findall(text) if thread not in page]
    errors += [f"{name}: the page lacks the lock {lock}" for name, lock in sorted(found - rows)]
    errors += [f"the page has {lock} of {name}, the code has not" for name, lock in sorted(rows - found)]
    print("\n".join(errors or [f"locks: {len(found)}, all of them on the page and in the analysis"]))
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
