#!/usr/bin/env python3
"""Runs the SDK entry-point generator on broken lists, which it must refuse with the line, and on
the real list, whose outputs must agree with one another.

Usage: sdkgen_test.py <sdkgen.py> <entry_points.txt>...
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

GENERATOR, LISTS = (sys.argv[1], sys.argv[2:]) if len(sys.argv) >= 3 else (None, [])
ENTRY = r"^(?:required|optional) .*?\b((?:Rfc|It)\w+)\("

BROKEN = {
    "no kind": ("RFC_RC RfcPing(RFC_CONNECTION_HANDLE h, RFC_ERROR_INFO* e)\n", "line starts with 'required'"),
    "no prototype": ("required RfcPing\n", "not a C prototype"),
    "twice": ("required RFC_RC RfcPing(RFC_CONNECTION_HANDLE h)\noptional RFC_RC RfcPing(RFC_CONNECTION_HANDLE h)\n",
              "listed twice"),
    "unnamed parameter": ("required RFC_RC RfcPing(RFC_CONNECTION_HANDLE)\n", "needs a type and a name"),
    "empty": ("# nothing\n", "no entry points"),
}


def generate(list_path, out, *extra):
    return subprocess.run([sys.executable, GENERATOR, list_path, "--namespace", "t::sdk", "--types", "t/types.h",
                           "--library", "libt.so", "--declarations", os.path.join(out, "f.h"),
                           "--declarations-include", "t/f.h", "--table", os.path.join(out, "e.h"),
                           "--version-script", os.path.join(out, "t.map"), *extra],
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

    def test_the_real_lists_give_one_entry_per_output(self):
        self.assertEqual(len(LISTS), 2)
        for path in LISTS:
            with self.subTest(list=path):
                self.check_list(path)

    def check_list(self, path):
        with open(path) as f:
            text = f.read()
        names = re.findall(ENTRY, text, re.M)
        self.assertGreater(len(names), 50)
        with tempfile.TemporaryDirectory() as d:
            r = generate(path, d)
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
            required = re.findall(ENTRY.replace("(?:required|optional)", "required"), text, re.M)
            self.assertEqual(table.count("&& !missing) missing ="), len(required))

    def test_a_types_namespace_holds_the_declarations_and_qualifies_the_table(self):
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "list.txt")
            with open(path, "w") as f:
                f.write("required RFC_RC RfcPingU(RFC_HANDLE h)\n")
            r = generate(path, d, "--types-namespace", "t::c")
            self.assertEqual(r.returncode, 0, r.stderr)
            decl = open(os.path.join(d, "f.h")).read()
            self.assertLess(decl.index("namespace t::c {"), decl.index('extern "C" {'))
            self.assertLess(decl.index("RfcPingU("), decl.index("}  // namespace t::c"))
            self.assertIn("decltype(&::t::c::RfcPingU) RfcPingU = nullptr;", open(os.path.join(d, "e.h")).read())

if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]])
