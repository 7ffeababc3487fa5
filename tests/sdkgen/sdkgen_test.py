#!/usr/bin/env python3
"""Runs the SDK entry-point generator on broken lists, which it must refuse with the line, and on
the real list, whose outputs must agree with one another.

Usage: sdkgen_test.py <sdkgen.py> <entry_points.txt>
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

GENERATOR, LIST = sys.argv[1:3] if len(sys.argv) >= 3 else (None, None)

BROKEN = {
    "no kind": ("RFC_RC RfcPing(RFC_CONNECTION_HANDLE h, RFC_ERROR_INFO* e)\n", "line starts with 'required'"),
    "no prototype": ("required RfcPing\n", "not a C prototype"),
    "twice": ("required RFC_RC RfcPing(RFC_CONNECTION_HANDLE h)\noptional RFC_RC RfcPing(RFC_CONNECTION_HANDLE h)\n",
              "listed twice"),
    "unnamed parameter": ("required RFC_RC RfcPing(RFC_CONNECTION_HANDLE)\n", "needs a type and a name"),
    "empty": ("# nothing\n", "no entry points"),
}


def generate(list_path, out):
    return subprocess.run([sys.executable, GENERATOR, list_path, "--namespace", "t::sdk", "--types", "t/types.h",
                           "--library", "libt.so", "--declarations", os.path.join(out, "f.h"),
                           "--declarations-include", "t/f.h", "--table", os.path.join(out, "e.h"),
                           "--version-script", os.path.join(out, "t.map")],
                          capture_output=True, text=True, timeout=60)


class Generator(unittest.TestCase):
    def test_broken_lists_are_refused_with_their_line(self):
        for name, (text, message) in BROKEN.items():
            with tempfile.TemporaryDirectory() as d:
                path = os.path.join(d, "list.txt")
                with open(path, "w") as f:
                    f.write(text)
                r = generate(path, d)
                self.assertNotEqual(r.returncode, 0, name)
                self.assertIn(message, r.stderr, name)
                self.assertFalse(os.path.exists(os.path.join(d, "f.h")), name)

    def test_the_real_list_gives_one_entry_per_output(self):
        with open(LIST) as f:
            names = re.findall(r"^(?:required|optional) .*?\b(Rfc\w+)\(", f.read(), re.M)
        self.assertGreater(len(names), 100)
        with tempfile.TemporaryDirectory() as d:
            r = generate(LIST, d)
            self.assertEqual(r.returncode, 0, r.stderr)
            decl = open(os.path.join(d, "f.h")).read()
            table = open(os.path.join(d, "e.h")).read()
            script = open(os.path.join(d, "t.map")).read()
            for n in names:
                self.assertIn(f" {n}(", decl)
                self.assertIn(f"decltype(&::{n}) {n} = nullptr;", table)
                self.assertIn(f'"{n}",', table)
                self.assertIn(f"    {n};", script)
            self.assertTrue(script.startswith("/*") and "libt.so {" in script and "local:\n    *;" in script)
            self.assertIn(f"kEntryCount = {len(names)};", table)
            required = re.findall(r"^required .*?\b(Rfc\w+)\(", open(LIST).read(), re.M)
            self.assertEqual(table.count("&& !missing) missing ="), len(required))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]])
