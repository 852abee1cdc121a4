#!/usr/bin/env python3
"""Makes povmesh/_abi.py and povmesh/_report_classes.py of include/povmesh/context.h.

usage: python/make_abi.py [--check]      --check: only tell, by the exit status, whether they are up
to date
"""
import re
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
HEADER = HERE.parent / "include" / "povmesh" / "context.h"
NUMBERS = {
    "int32_t": "c_int32",
    "uint32_t": "c_uint32",
    "uint64_t": "c_uint64",
    "double": "c_double",
    "size_t": "c_size_t",
    "povmesh_status": "c_int32",
}
# Fields of reports that stand for themselves as yes or no.
ASKING = re.compile(r"^(is|has|was|were|fits|lost)(_|$)")
# Numbers that are not counted for every model; NaN in C, None in Python.
SOMETIMES = re.compile(r"^(smallest|mean_wall|tilt|volume$)")
NAMED = {"reduce.ended_by": "ENDED", "balance.outcome": "BALANCE"}


def code_of(text):
    """The header without comments and preprocessor lines."""
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    return re.sub(r"^#.*?(?<!\\)$", "", text, flags=re.S | re.M)


def enumerators_of(code):
    for body in re.findall(r"enum \{(.*?)\};", code, re.S):
        value = -1
        for item in filter(None, (item.strip() for item in body.split(","))):
            name, _, given = (part.strip() for part in item.partition("="))
            value = int(given) if given else value + 1
            yield name, value


def structs_of(code):
    """Name and fields (C type, name, length or None) of each struct with a body."""
    for body, name in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", code, re.S):
        fields = []
        for declaration in filter(None, (part.strip() for part in body.split(";"))):
            c_type, names = re.match(
                r"((?:const )?\w+(?:\s*\*)?)\s+(.*)", declaration, re.S
            ).groups()
            for field in names.split(","):
                field, _, length = field.strip().partition("[")
                fields.append((c_type, field, int(length.rstrip("]")) if length else None))
        yield name, fields


def python_type(c_type, structs, callbacks):
    name = c_type.replace("const ", "").strip()
    stars = name.count("*") + name.count(" const*")
    name = name.split("*")[0].replace(" const", "").strip()
    if stars == 0:
        return NUMBERS.get(name, name if name in structs or name in callbacks else None)
    if name == "char":
        return "c_char_p"
    if stars == 1 and name in structs:
        return f"POINTER({name})"
    if stars == 1 and name in NUMBERS:
        return f"POINTER({NUMBERS[name]})"
    return "c_void_p" if stars == 1 else "POINTER(c_void_p)"


def abi_text(code):
    callbacks = re.findall(r"typedef (\w+) \(\*(\w+)\)\((.*?)\);", code, re.S)
    structs = dict(structs_of(code))
    callback_names = [name for _, name, _ in callbacks]

    def type_of(c_type):
        found = python_type(c_type, structs, callback_names)
        if found is None:
            raise SystemExit(f"make_abi.py: no type for '{c_type}'")
        return found

    def argument_types(arguments):
        types = []
        for argument in arguments.split(","):
            argument = " ".join(argument.split())
            if argument == "void":
                continue
            starred = re.match(r"(.*\*)(\s*\w+)?$", argument)
            types.append(type_of(starred.group(1) if starred else " ".join(argument.split()[:-1])))
        return types

    lines = [
        '"""What povmesh/context.h declares. Made by make_abi.py; do not edit."""',
        "",
        "from ctypes import CFUNCTYPE, POINTER, Structure",
        "from ctypes import c_char_p, c_double, c_int32, c_size_t, c_uint32, c_uint64, c_void_p",
        "from typing import Any, Dict, List, Tuple",
        "",
    ]
    version = re.search(r"#define POVMESH_VERSION (\d+)", HEADER.read_text()).group(1)
    parts = int(version) // 1000000, int(version) // 1000 % 1000, int(version) % 1000
    lines += [f"HEADER_VERSION = {version}", f'VERSION = "{".".join(map(str, parts))}"', ""]
    lines += [f"{name} = {value}" for name, value in enumerators_of(code)]
    lines += [""]
    for returned, name, arguments in callbacks:
        types = ", ".join([NUMBERS.get(returned, "None"), *argument_types(arguments)])
        lines += [f"{name} = CFUNCTYPE({types})"]
    for name, fields in structs.items():
        lines += ["", "", f"class {name}(Structure):", "    _fields_ = ["]
        for c_type, field, length in fields:
            lines += [f'        ("{field}", {type_of(c_type)}{f" * {length}" if length else ""}),']
        lines += ["    ]"]
    lines += ["", "", "STRUCTS: Dict[str, Any] = {"]
    lines += [f'    "{name}": {name},' for name in structs] + ["}"]
    lines += [
        "",
        "# Of each function what it returns and what it takes.",
        "FUNCTIONS: Dict[str, Tuple[Any, List[Any]]] = {",
    ]
    functions = re.findall(r"POVMESH_API\s+([\w ]+?\*?)\s*(povmesh_\w+)\((.*?)\);", code, re.S)
    for returned, name, arguments in functions:
        result = "None" if returned == "void" else type_of(returned)
        lines += [f'    "{name}": (', f"        {result},"]
        lines += ["        ["] + [f"            {one}," for one in argument_types(arguments)]
        lines += ["        ],", "    ),"]
    return "\n".join(lines + ["}", ""])


def report_text(code):
    lines = [
        '"""The reports of operations, as povmesh/context.h names them. Made by make_abi.py."""',
        "",
        "from typing import Optional, Tuple",
        "",
        "from ._reports import Report",
    ]
    classes = {}
    for name, fields in structs_of(code):
        if not name.endswith("_report"):
            continue
        operation = name[len("povmesh_") : -len("_report")]
        class_name = operation.capitalize() + "Report"
        classes[operation] = class_name
        lines += [
            "",
            "",
            f"class {class_name}(Report):",
            f'    """What `{operation}` found and did, in units of the file."""',
            "",
        ]
        for c_type, field, length in fields[1:]:
            if f"{operation}.{field}" in NAMED or c_type.startswith("const char"):
                kind = "str"
            elif c_type == "int32_t" and ASKING.match(field):
                kind = "bool"
            elif length:
                kind = f"Tuple[{', '.join(['float'] * length)}]"
            elif c_type == "double":
                kind = "Optional[float]" if SOMETIMES.match(field) else "float"
            else:
                kind = (
                    "Optional[int]"
                    if f"{operation}.{field}" == "check.self_intersections"
                    else "int"
                )
            lines += [f"    {field}: {kind}"]
    lines += ["", "", "CLASSES = {"]
    lines += [f'    "{operation}": {name},' for operation, name in classes.items()]
    return "\n".join(lines + ["}", "", f"NAMED = {NAMED!r}".replace("'", '"'), ""])


def main():
    code = code_of(HEADER.read_text())
    is_current = True
    for path, text in (
        (HERE / "povmesh" / "_abi.py", abi_text(code)),
        (HERE / "povmesh" / "_report_classes.py", report_text(code)),
    ):
        if path.exists() and path.read_text() == text:
            continue
        is_current = False
        if "--check" not in sys.argv[1:]:
            path.write_text(text)
    return 0 if is_current or "--check" not in sys.argv[1:] else 1


if __name__ == "__main__":
    sys.exit(main())
