#!/usr/bin/env python3
"""What the sources say by convention, spelled out for doxygen, with as many lines as before.

In headers a comment is also that of the declarations right behind it that belong to the first one: the setter of a getter,
further overloads, the Remove of an Add. Names that are made from a table get their comments from
the page or the table that describes them. In pages, links to what is no page become text.

Usage: filter.py FILE
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERBS = ("Get", "Set", "Add", "Remove")
MADE_BY_COMPILER = re.compile(r"\) = delete;$|\boperator(==|=)\(.*= default;$|^(\w+)\(const \2&\) = default;$")
NAME = re.compile(r"([~\w]+|operator[^\s(]+)\s*\(")


def parameters():
    """An enumerator for each parameter, with its name and description from docs/parameters.md."""
    described = {}
    for line in (ROOT / "docs/parameters.md").read_text().splitlines():
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        found = re.match(r"`(\w+)`<br>`0x", cells[0]) if cells else None
        if found:
            described[found[1]] = cells[1].split("<br>")[0] + ": " + re.sub(r"\s*<br>\s*", " ", cells[-1])
    for name, number in re.findall(r"^PARAM\((\w+), (\w+)\)", (ROOT / "classes/config/param_ids.inc").read_text(), re.M):
        text = described.get(name)
        yield f"/** {text} */ eParamID_{name} = {number}," if text else f"eParamID_{name} = {number},"


def predicates():
    """A predicate for each model, with the words of its row."""
    table = (ROOT / "classes/services/product/product_models.inc").read_text()
    for words, name in re.findall(r"^// ([^\n]*)\nMODEL\((\w+)", table, re.M):
        yield f"/** {words} */ static bool is{name}();"


def expand(text):
    """Tables in place of the lines that include them."""
    block = r"#define {0}\((?:.*\\\n)*.*\n#include \"[^\"]*\"\n#undef {0}\n"
    enumerators, models = " ".join(parameters()), " ".join(predicates())
    text = re.sub(block.format("PARAM"), lambda found: enumerators + "\n" * found[0].count("\n"), text, count=1)
    text = re.sub(block.format("PARAM"), lambda found: "\n" * found[0].count("\n"), text)
    return re.sub(block.format("MODEL"), lambda found: models + "\n" * found[0].count("\n"), text)


def subject(name):
    for verb in VERBS:
        if name.startswith(verb) and name != verb:
            return name[len(verb):]
    return name


def shared_comments(lines):
    """Repeats a comment before the declarations that share it."""
    comment, first, indent, ends_above = [], None, "", False
    for line in lines:
        code = line.strip()
        if MADE_BY_COMPILER.search(code):
            line = code = ""
        if code.startswith("///"):
            comment = comment + [code[3:].strip()] if ends_above else [code[3:].strip()]
            first, indent, ends_above = None, line[:line.index("/")], True
            yield line
            continue
        ends_above = False
        if not code or code.startswith("//"):
            comment = []
        found = NAME.search(code)
        if comment and found and line.startswith(indent) and not line.startswith(indent + " "):
            if first is None:
                first = subject(found[1])
            elif subject(found[1]) == first and "///<" not in code:
                line = f"{indent}/** {' '.join(comment)} */ {code}"
        yield line


DECLARATORS = re.compile(
    r"((?:^ *///(?!<)[^\n]*\n)*)^( +)((?:static constexpr )?[\w:]+) (\w+(?: = [^,;(){}]+)?(?:,\s+\w+(?: = [^,;(){}]+)?)+);( *///<[^\n]*)?",
    re.M)


def single_declarators(found):
    """Members that are declared together share a comment, too."""
    above, indent, kind, declarators, behind = found.groups()
    words = " ".join(line.strip(" /<") for line in (above + (behind or "")).split("\n")).strip()
    comment = f"/** {words} */ " if words else ""
    members = " ".join(f"{comment}{kind} {member.strip()};" for member in declarators.split(","))
    return "\n" * above.count("\n") + indent + members + "\n" * declarators.count("\n")


def linked(text):
    """Links between pages stay, without their anchors, which doxygen does not know."""
    def link(found):
        words, target = found[1], found[2].split("#")[0]
        return f"[{words}]({target})" if (ROOT / "docs" / target).parent == ROOT / "docs" and target.endswith(".md") else words
    return re.sub(r"\[([^\]]+)\]\((?!https?:)([^)\s]*)\)", link, text)


def main():
    path = pathlib.Path(sys.argv[1])
    text = path.read_text()
    if path.suffix == ".h":
        if path.name in ("param_ids.h", "product_id.h"):
            text = expand(text)
        text = re.sub(r"\A/// ", f"/// @file {path.name} ", text)  # without it, free functions have no page
        text = DECLARATORS.sub(single_declarators, text)
        text = "\n".join(shared_comments(text.split("\n")))
    else:
        text = linked(text)
    sys.stdout.write(text)


main()
