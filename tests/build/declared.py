#!/usr/bin/env python3
"""Usage: declared.py ast.json. Reads what clang makes of headers, and prints the linker's name of
each function that they declare without a body and that a client may call."""
import json
import sys

SCOPES = ("NamespaceDecl", "FriendDecl", "CXXRecordDecl")
FUNCTIONS = ("FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl")


def is_elsewhere(function):
    has_body = any(part["kind"] == "CompoundStmt" for part in function.get("inner", []))
    written = ("isImplicit", "pure", "explicitlyDefaulted", "explicitlyDeleted")
    return not has_body and not any(function.get(word) for word in written)


def declared(scope):
    access = "private" if scope.get("tagUsed") == "class" else "public"
    for node in scope.get("inner", []):
        if node["kind"] == "AccessSpecDecl":
            access = node["access"]
        elif node["kind"] in SCOPES:
            yield from declared(node)
        elif node["kind"] in FUNCTIONS and access != "private" and is_elsewhere(node):
            yield node["mangledName"]


with open(sys.argv[1], encoding="utf-8") as file:
    text = file.read().strip()
while text:  # one tree after the other
    tree, end = json.JSONDecoder().raw_decode(text)
    text = text[end:].lstrip()
    for name in declared({"inner": [tree]}):
        print(name)
