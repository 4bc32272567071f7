#!/usr/bin/env python3
"""Compares the list in tarvo/internal/border_layout.h with the SDK's headers.

    border_layout_test.py CLANG INCLUDE

Every field, virtual function and enumerator of the headers must be named in the list, whose hash is a
part of the build tag, or stand below with the reason why not. What the headers declare and what the
list names is both taken from the compiler's syntax tree.
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

NOT_AT_THE_BORDER = {
    "SourceFile": "makes SourceLocations and stays with its own side",
    "SpinLock": "a module's own",
    "Counted": "behind an interface; only its own side's code sees the counter",
    "ClosureJob": "behind Job",
}
RECORDS = {"CXXRecordDecl", "ClassTemplateSpecializationDecl", "ClassTemplatePartialSpecializationDecl"}
# One of each that no list names: the comparison must see them.
CONTROL = """
namespace tarvo {
struct Control : Object {
  enum class Enumeration { Value };
  virtual void Function() = 0;
  int field;
};
}
"""
CONTROL_MEMBERS = {"Control::Enumeration::Value", "Control::Function", "Control::field"}


def syntax_tree(clang, include):
    headers = sorted(path.relative_to(include) for path in pathlib.Path(include).glob("tarvo/*.h"))
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
        source.write("".join(f'#include "{header}"\n' for header in headers) + CONTROL)
        source.flush()
        text = subprocess.run(
            [clang, "-std=c++23", "-fsyntax-only", "-I", include, "-Xclang", "-ast-dump=json", "-Xclang",
             "-ast-dump-filter=tarvo", source.name], check=True, stdout=subprocess.PIPE, text=True).stdout
    decoder = json.JSONDecoder()
    position = 0
    while position < len(text):  # one document for each opening of the namespace
        document, position = decoder.raw_decode(text, position)
        yield document
        position += len(text[position:]) - len(text[position:].lstrip())


def declared_members(node, owner, members):
    """Fills members: id of a declaration -> "Class::member". In templates several have one name."""
    kind = node.get("kind")
    name = node.get("name", "")
    if node.get("isImplicit"):
        return
    if kind in RECORDS or kind == "EnumDecl":
        owner = f"{owner}{name}::"
    # A virtual destructor has slots too, but no pointer to member: interfaces have none.
    if kind in ("FieldDecl", "EnumConstantDecl") or node.get("virtual"):
        members[node["id"]] = owner + name
    for child in node.get("inner", []):
        declared_members(child, owner, members)


def referenced_ids(node, ids):
    if "referencedDecl" in node:
        ids.add(node["referencedDecl"]["id"])
    for child in node.get("inner", []):
        referenced_ids(child, ids)


def list_of(node):
    """The syntax tree of BorderLayout."""
    if node.get("kind") == "CXXRecordDecl" and node.get("name") == "BorderLayout" and "inner" in node:
        yield node
    for child in node.get("inner", []):
        yield from list_of(child)


def main():
    clang, include = sys.argv[1:]
    members = {}
    ids = set()
    for document in syntax_tree(clang, include):
        declared_members(document, "", members)
        for border_list in list_of(document):
            referenced_ids(border_list, ids)
    listed = {members[one] for one in ids if one in members}
    # The tree does not tell what offsetof speaks of.
    text = (pathlib.Path(include) / "tarvo/internal/border_layout.h").read_text(encoding="utf-8")
    listed |= {f"{record}::{field}" for record, field in re.findall(r"offsetof\((\w+), (\w+)\)", text)}
    own = NOT_AT_THE_BORDER.keys() | {"LayoutHash"}
    unlisted = {member for member in set(members.values()) - listed if member.split("::")[0] not in own}
    if not CONTROL_MEMBERS <= unlisted:
        sys.exit(f"The comparison does not see {CONTROL_MEMBERS - unlisted}.")
    if unlisted - CONTROL_MEMBERS:
        sys.exit("Not in tarvo/internal/border_layout.h: " + ", ".join(sorted(unlisted - CONTROL_MEMBERS)))


if __name__ == "__main__":
    main()
