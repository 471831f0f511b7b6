#!/usr/bin/env python3
"""Usage: declared.py ast.json. Reads what clang makes of headers, and prints the linker's name of
each function that a client can call and that the headers declare without a body."""
import json
import sys

ACCESSIBLE = ("public", "protected")


def declared(node, access):
    for inner in node.get("inner", []):
        kind = inner.get("kind", "")
        if kind == "AccessSpecDecl":
            access = inner["access"]
        elif kind in ("NamespaceDecl", "FriendDecl", "LinkageSpecDecl"):
            yield from declared(inner, "public")
        elif kind == "CXXRecordDecl":
            yield from declared(inner, "public" if inner.get("tagUsed") == "struct" else "private")
        elif kind in ("FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl"):
            hasBody = any(part["kind"] == "CompoundStmt" for part in inner.get("inner", []))
            absent = inner.get("isImplicit") or inner.get("pure") or inner.get("explicitlyDefaulted")
            if access in ACCESSIBLE and not hasBody and not absent and not inner.get("explicitlyDeleted"):
                yield inner["mangledName"]


with open(sys.argv[1], encoding="utf-8") as file:
    text, place = file.read().strip(), 0
while place < len(text):
    tree, place = json.JSONDecoder().raw_decode(text, place)
    print("\n".join(declared({"inner": [tree]}, "public")))
    place += len(text[place:]) - len(text[place:].lstrip())
