#!/usr/bin/env python3
"""The symbols file of the package libvexaconfig1 has every name of tests/golden/symbols.txt, with the version that
brought it: programs depend on the newest version of the names that they use.

Usage: scripts/checks/debian_symbols.py [--update]     --update: new names get this version, those that are gone go
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FILE = ROOT / "debian/libvexaconfig1.symbols"
# The patterns are what scripts/checks/symbols leaves out: it changes with the compiler and with protobuf.
HEAD = r"""libvexaconfig.so.1 libvexaconfig1 #MINVER#
* Build-Depends-Package: libvexaconfig-dev
 (c++|regex|optional)"^(.* )?(std|google|__gnu_cxx)::" 1.1.0
 (c++|regex|optional)"vexa::alarms::|alarm_2eproto" 1.1.0
"""
DURATION = ("duration<long, std::ratio<1l, 1000l> >", "duration<long long, std::ratio<1ll, 1000ll> >")


def entries(names):
    """The names as the file has them. Where words have 32 bits, an "unsigned long" has one of two names."""
    for name in names:
        narrow = name.replace(*DURATION)
        if re.fullmatch(r"\w+", name):
            yield f"{name}@Base"
        elif "unsigned long" in name:
            yield f'(c++|arch-bits=64)"{name}@Base"'
            for word in ("unsigned int", "unsigned long long"):
                yield f'(c++|arch-bits=32|optional)"{narrow.replace("unsigned long", word)}@Base"'
        elif narrow != name:
            yield f'(c++|arch-bits=64)"{name}@Base"'
            yield f'(c++|arch-bits=32)"{narrow}@Base"'
        else:
            yield f'(c++)"{name}@Base"'


def main():
    version = re.search(r"^project\(.* VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]
    golden = (ROOT / "tests/golden/symbols.txt").read_text().splitlines()
    names = sorted({line[2:] for line in golden})
    known = dict(re.findall(r"^ (.*@Base\"?) (\S+)$", FILE.read_text(), re.M)) if FILE.exists() else {}
    wanted = HEAD + "".join(f" {entry} {known.get(entry, version)}\n" for entry in entries(names))
    if "--update" in sys.argv[1:]:
        FILE.write_text(wanted)
    elif not FILE.exists() or FILE.read_text() != wanted:
        print(f"symbols: {FILE.relative_to(ROOT)} differs from what is agreed; scripts/checks/symbols --update")
        return 1
    return 0


sys.exit(main())
