#!/usr/bin/env python3
"""Prints the layout of the records that the host and a built library share, as the library's debug information
has it (abidw reads it): record, size in bytes, then offset, name and type of each field.
Usage: record_layout.py LIBRARY"""
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

SHARED = re.compile("Lum(?!DewarpNode)|Grid|IPE|ANative|android_native")

command = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", sys.argv[1]]
corpus = ElementTree.fromstring(subprocess.run(command, check=True, capture_output=True).stdout)
types = {element.get("id"): element for element in corpus.iter() if element.get("id")}


def name_of(type_id):
    element = types[type_id]
    inner = element.get("type-id")
    if element.tag == "pointer-type-def":
        return name_of(inner) + "*"
    if element.tag == "qualified-type-def":
        return "const " + name_of(inner)
    if element.tag == "array-type-def":
        return name_of(inner) + "".join(f"[{part.get('length')}]" for part in element.findall("subrange"))
    if element.tag == "function-type":
        parameters = ", ".join(name_of(part.get("type-id")) for part in element.findall("parameter"))
        return f"{name_of(element.find('return').get('type-id'))}({parameters})"
    return element.get("name", element.tag)


records = {}
for record in corpus.iter("class-decl"):
    name = record.get("name", "")
    if SHARED.match(name) and record.get("size-in-bits"):
        records[name] = [f"{name} {int(record.get('size-in-bits')) // 8}"]
        for member in record.findall("data-member"):
            field = member.find("var-decl")
            offset = int(member.get("layout-offset-in-bits")) // 8
            records[name].append(f"  {offset} {field.get('name')} {name_of(field.get('type-id'))}")
print("\n".join(line for name in sorted(records) for line in records[name]))
