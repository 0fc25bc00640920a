#!/usr/bin/env python3
"""Prints the symbol of each function and operation that the public headers declare for callers and subclasses.

Left out are operations without a definition: pure virtual and deleted operations, and operations that the compiler adds.
"""

import json
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
OPERATIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl"}
SCOPES = {"NamespaceDecl", "CXXRecordDecl", "LinkageSpecDecl"}


def declarations():
    """The osal namespaces of all public headers, as clang describes them."""
    includes = "".join(f'#include "osal/{header.name}"\n' for header in sorted((ROOT / "include/osal").glob("*.h")))
    clang = ["clang++", "-std=c++17", "-x", "c++", "-I", ROOT / "include", "-fsyntax-only"]
    ast = ["-Xclang", "-ast-dump=json", "-Xclang", "-ast-dump-filter=osal"]
    run = subprocess.run([*clang, *ast, "-"], input=includes, capture_output=True, text=True)
    if run.returncode != 0:
        sys.exit(run.stderr)
    text = run.stdout
    while (start := text.find("{")) >= 0:
        declaration, end = json.JSONDecoder().raw_decode(text[start:])
        yield declaration
        text = text[start + end :]


def operations(scope):
    is_private = scope.get("tagUsed") == "class"
    for inner in scope.get("inner", []):
        if inner["kind"] == "AccessSpecDecl":
            is_private = inner["access"] == "private"
        elif is_private:
            continue
        elif inner["kind"] in SCOPES:
            yield from operations(inner)
        elif inner["kind"] in OPERATIONS and not any(map(inner.get, ("pure", "explicitlyDeleted", "isImplicit"))):
            # The constructor of an abstract class is only called as that of a base class.
            is_abstract = scope.get("definitionData", {}).get("isAbstract")
            yield inner["mangledName"].replace("C1E", "C2E") if is_abstract else inner["mangledName"]


if len(sys.argv) > 1:
    sys.exit("usage: public_operations.py")
found = {name for declaration in declarations() for name in operations(declaration)}
if not found:
    sys.exit("public_operations.py: found no operation")
print("\n".join(sorted(found)))
