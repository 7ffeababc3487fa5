#!/usr/bin/env python3
"""Checks what libveltrane.so exports: nothing but the declarations that the
public headers mark VELTRANE_API (functions, variables, and the members,
vtables and type information of marked classes), and the generated
identifiers and dispatch tables of the type library. The number of exported
symbols is pinned, so that a change of the public API is a change of this
test as well.

Usage: check_exports.py <libveltrane.so> <expected count> <public header>...
"""

import re
import subprocess
import sys

# Symbols the sanitizers add to every instrumented library.
SANITIZER = re.compile(r"^(__odr_asan|__asan|__ubsan|__sancov|__lsan)")
GENERATED = [re.compile(r"^(IID|DIID|CLSID|LIBID|APPID)_\w+$"),
             re.compile(r"^veltrane_dispatch_table<\w+>::get\(\)$")]
FUNCTION = re.compile(r"VELTRANE_API\s+(?:static\s+)?[\w:<>\*& ]*?[\*& ]\s*(~?\w+)\s*\(")
VARIABLE = re.compile(r"extern\s+VELTRANE_API\s+const\s+\w+\s+(\w+)\s*;")
CLASS = re.compile(r"(?:class|struct)\s+VELTRANE_API\s+(\w+)")
NAMESPACE = re.compile(r"^namespace\s+([\w:]+)\s*\{")


def public_names(headers):
    """Qualified names of the marked functions and variables, and of the marked classes."""
    names, classes = set(), set()
    for path in headers:
        scope = []
        with open(path, encoding="utf-8") as f:
            for line in f:
                m = NAMESPACE.match(line)
                if m:
                    scope.append(m.group(1))
                    continue
                if re.match(r"^\}\s*//\s*namespace", line) and scope:
                    scope.pop()
                    continue
                prefix = "::".join(scope + [""]) if scope else ""
                for m in CLASS.finditer(line):
                    classes.add(prefix + m.group(1))
                for m in FUNCTION.finditer(line):
                    names.add(prefix + m.group(1))
                for m in VARIABLE.finditer(line):
                    names.add(prefix + m.group(1))
    return names, classes


def allowed(symbol, names, classes):
    if any(p.match(symbol) for p in GENERATED):
        return True
    base = symbol.split("(")[0]
    if base in names:
        return True
    for c in classes:
        if base.startswith(c + "::") or symbol in ("typeinfo for " + c, "typeinfo name for " + c, "vtable for " + c):
            return True
    return False


def main(argv):
    library, expected, headers = argv[1], int(argv[2]), argv[3:]
    out = subprocess.run(["nm", "-D", "--defined-only", "-C", library], capture_output=True, text=True, check=True)
    symbols = []
    for line in out.stdout.splitlines():
        parts = line.split(" ", 2)
        if len(parts) == 3 and not SANITIZER.match(parts[2]):
            symbols.append(parts[2])
    names, classes = public_names(headers)
    stray = sorted(s for s in symbols if not allowed(s, names, classes))
    for s in stray:
        print("exported but not public: %s" % s)
    print("%d symbols exported, %d expected" % (len(symbols), expected))
    return 1 if stray or len(symbols) != expected else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
