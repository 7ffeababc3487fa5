#!/usr/bin/env python3
"""Reads every #include of the component's layers and checks that it points
at the same layer or one below it, and that none climbs out of its directory
by a relative path. The build enforces the same by include roots; this check
names every offending line at once.

Usage: check_includes.py <source dir> <layer> <layer> ... (bottom up)
"""

import os
import re
import sys

# Generated headers and the layer that owns them.
GENERATED = {
    "veltrane_tlb.h": "typelib",
    "veltrane_events.h": "typelib",
    "veltrane_errors.h": "runtime",
    "veltrane_version.h": "runtime",
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def main(argv):
    root, order = argv[1], argv[2:]
    rank = {name: i for i, name in enumerate(order)}
    problems = []
    for layer in order:
        base = os.path.join(root, layer)
        for dirpath, _dirs, files in os.walk(base):
            for name in sorted(files):
                if not name.endswith((".h", ".cpp")):
                    continue
                path = os.path.join(dirpath, name)
                with open(path, encoding="utf-8") as f:
                    for number, line in enumerate(f, 1):
                        m = INCLUDE.match(line)
                        if not m:
                            continue
                        header = m.group(1)
                        where = "%s:%d" % (os.path.relpath(path, root), number)
                        if ".." in header.split("/"):
                            problems.append("%s: '%s' climbs out of its directory" % (where, header))
                            continue
                        target = GENERATED.get(header, header.split("/")[0] if "/" in header else layer)
                        if target in rank and rank[target] > rank[layer]:
                            problems.append("%s: %s includes '%s' of the layer %s above it"
                                            % (where, layer, header, target))
    for p in problems:
        print(p)
    print("%d includes against the layers" % len(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
