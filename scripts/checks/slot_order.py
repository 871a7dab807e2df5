#!/usr/bin/env python3
"""The order of the virtual operations is part of the contract: applications and plug-ins are built apart from
the library. This compares the order in the headers with tests/golden/slot_order.txt.

The lists come from clang, because g++ names neither pure operations nor parameter types; both compilers lay
tables out by the same ABI. Usage: slot_order.py [--update]
"""
import difflib
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
GOLDEN = ROOT / "tests/golden/slot_order.txt"

# Each class with its base. A class shows only the slots that it appends to those of its base.
CLASSES = {
    "Serializable": None,
    "ConfigValue": "Serializable",
    "IntegerValue": "ConfigValue",
    "StringValue": "ConfigValue",
    "SectorHeader": "Serializable",
    "Checkpoint": "Serializable",
    "ClassFactory": None,
    "Serializer": None,
    "MemorySerializer": "Serializer",
    "MemorySerializerSizer": "Serializer",
    "IPCSerializer": "MemorySerializer",
    "DeSerializer": None,
    "MemoryDeSerializer": "DeSerializer",
    "IPCDeSerializer": "MemoryDeSerializer",
    "ParamDescriptor": None,
    "IntegerDescriptor": "ParamDescriptor",
    "DecimalDescriptor": "IntegerDescriptor",
    "EnumDescriptor": "IntegerDescriptor",
    "StringDescriptor": "ParamDescriptor",
    "DataDescriptor": "StringDescriptor",
    "AlarmDescriptor": "StringDescriptor",
    "Config": None,
    "ConfigEventListener": None,
    "ConfigManager": "Config",
    "vexa::config::UpdatePrecondition": None,
    "vexa::config::UpdatePreconditionValues": "vexa::config::UpdatePrecondition",
    "Runnable": None,
    "ConfigFactory": "Runnable",
    "ConfigFactoryImpl": "ConfigFactory",
    "vexa::corvalis::config::access::NetworkClient": "Config",
    "vexa::corvalis::config::access::NetworkTCPClient": "vexa::corvalis::config::access::NetworkClient",
    "vexa::corvalis::config::access::NetworkUDPClient": "vexa::corvalis::config::access::NetworkClient",
    "vexa::corvalis::config::access::NetworkConnection": None,
    "vexa::corvalis::config::access::NetworkTCPConnection": "vexa::corvalis::config::access::NetworkConnection",
    "vexa::corvalis::config::access::NetworkUDPConnection": "vexa::corvalis::config::access::NetworkConnection",
    "vexa::corvalis::config::access::NetworkEventListener": "ConfigEventListener",
    "vexa::corvalis::config::access::Socket": None,
    "vexa::config::access::PosixMQClient": "Config",
    "vexa::config::access::PosixMQFactory": None,
    "ConfigCache": "Config",
    "CParam": None,
    "CParam_ZK9": "CParam",
    "AlarmProducer": None,
    "AlarmConsumer": None,
}


def dump():
    """clang prints the table of a class when code calls through it: here, by deleting an object. Objects of final
    classes are deleted without the table, so no class is final here."""
    headers = sorted(p.relative_to(ROOT / "classes") for p in (ROOT / "classes").glob("*/**/*.h"))
    source = "".join(f'#include "{header}"\n' for header in headers)
    source += "template <class T> void Use(T* object) { delete object; }\n"
    source += "".join(f"template void Use({name}*);\n" for name in CLASSES)
    with tempfile.TemporaryDirectory() as generated:
        for message in (ROOT / "classes/messages").glob("*.proto"):
            subprocess.run(["protoc", "-I", ROOT / "classes", "--cpp_out", generated, message], check=True)
        command = ["clang++", "-std=c++20", f"-I{ROOT}/classes", f"-I{generated}", "-w", "-x", "c++", "-", "-S",
                   "-emit-llvm", "-Dfinal=", "-o", "/dev/null", "-Xclang", "-fdump-vtable-layouts"]
        return subprocess.run(command, input=source, stdout=subprocess.PIPE, text=True, check=True).stdout


def tables(text):
    """Class -> its operations in slot order, without the name of the class that implements each."""
    result, slots = {}, []
    for line in text.splitlines():
        if title := re.match(r"Vtable for '(.*)' \(", line):
            slots = result.setdefault(title[1], [])
        elif line.startswith("VTable indices"):
            slots = []
        elif "::~" in line:
            if "[complete]" in line:
                slots.append("destructor")
        elif slot := re.match(r" +\d+ \| (.*\(.*\).*)", line):
            if not slot[1].startswith("offset_to_top"):
                operation = re.sub(r" \[.*\]$", "", slot[1])  # "[pure]", "[T = unsigned int]"
                slots.append(re.sub(r"(\w+(<[^()]*>)?::)*(\w+\()", r"\3", operation, count=1))
    return result


def render(found):
    lines, errors = [], []
    for name, base in CLASSES.items():
        slots, inherited = found.get(name, []), found[base] if base else []
        if slots[:len(inherited)] != inherited or not slots:
            errors.append(f"{name}: the table does not begin with the slots of {base}")
        lines.append(name + (f" : {base}" if base else ""))
        lines += [f"  {slot}" for slot in slots[len(inherited):]]
    return lines, errors


def main():
    lines, errors = render(tables(dump()))
    if sys.argv[1:] == ["--update"]:
        GOLDEN.write_text("\n".join(lines) + "\n")
    golden = GOLDEN.read_text().splitlines()
    errors += difflib.unified_diff(golden, lines, "agreed order", "headers", lineterm="")
    print("\n".join(errors or [f"slot order: {len(CLASSES)} classes as agreed"]))
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
