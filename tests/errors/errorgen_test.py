#!/usr/bin/env python3
"""Runs the error table generator on broken tables and on the real one.

Usage: errorgen_test.py <errorgen.py> <data dir> <errors.table>

Each data/bad_*.table names in its first line what the generator must say:
    # expect: <line>: <text>
The generator must exit with a non-zero code, print "<file>:<line>: error: ...<text>..."
and write nothing.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

GENERATOR, DATA, TABLE = sys.argv[1:4] if len(sys.argv) >= 4 else (None, None, None)


def run(*args):
    return subprocess.run([sys.executable, GENERATOR, *args], capture_output=True, text=True, timeout=60)


class BrokenTables(unittest.TestCase):
    def test_each_broken_table_is_refused_with_its_line(self):
        files = sorted(f for f in os.listdir(DATA) if f.startswith("bad_") and f.endswith(".table"))
        self.assertGreaterEqual(len(files), 10)
        for name in files:
            path = os.path.join(DATA, name)
            with open(path, encoding="utf-8") as f:
                first = f.readline()
            m = re.match(r"# expect: (\d+): (.*)$", first.strip())
            self.assertIsNotNone(m, "%s lacks its expect line" % name)
            line, text = m.group(1), m.group(2)
            with self.subTest(file=name):
                result = run(path, "--check")
                self.assertNotEqual(result.returncode, 0, name)
                self.assertIn("%s:%s: error: " % (path, line), result.stderr)
                self.assertIn(text, result.stderr)
                self.assertEqual(result.stdout, "")

    def test_missing_file(self):
        result = run(os.path.join(DATA, "no_such_file.table"), "--check")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("no_such_file.table: error: cannot read", result.stderr)

    def test_broken_table_writes_nothing(self):
        with tempfile.TemporaryDirectory() as out:
            result = run(os.path.join(DATA, "bad_duplicate_name.table"), "--platform-dir", out,
                         "--component-dir", out)
            self.assertNotEqual(result.returncode, 0)
            self.assertEqual(os.listdir(out), [])


class RealTable(unittest.TestCase):
    def test_checks_clean(self):
        result = run(TABLE, "--check")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")

    def test_writes_the_headers_and_leaves_them_when_unchanged(self):
        with tempfile.TemporaryDirectory() as out:
            platform, component = os.path.join(out, "p"), os.path.join(out, "c")
            self.assertEqual(run(TABLE, "--platform-dir", platform, "--component-dir", component).returncode, 0)
            self.assertEqual(sorted(os.listdir(platform)), ["result_codes.h", "result_names.h"])
            self.assertEqual(sorted(os.listdir(component)), ["nwrfc_return_codes.h", "veltrane_errors.h"])
            stamp = os.stat(os.path.join(component, "veltrane_errors.h")).st_mtime_ns
            self.assertEqual(run(TABLE, "--platform-dir", platform, "--component-dir", component).returncode, 0)
            self.assertEqual(os.stat(os.path.join(component, "veltrane_errors.h")).st_mtime_ns, stamp)

    def test_a_new_code_group_needs_only_its_rows(self):
        with open(TABLE, encoding="utf-8") as f:
            text = f.read()
        text += ("\ngroup SdkCode code type=int constants=macro lookup=SdkCodeName texts=SdkCodeText\n"
                 "  SDK_OK 0 \"done\"\n  SDK_FAILED 1 \"failed\"\n")
        with tempfile.TemporaryDirectory() as out:
            path = os.path.join(out, "errors.table")
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
            self.assertEqual(run(path, "--platform-dir", out, "--component-dir", out).returncode, 0)
            with open(os.path.join(out, "veltrane_errors.h"), encoding="utf-8") as f:
                header = f.read()
            self.assertIn("#define SDK_FAILED 1", header)
            self.assertIn("inline constexpr const char* SdkCodeName(int code)", header)
            self.assertIn("inline constexpr const char* SdkCodeText(int code)", header)

    def test_a_group_with_a_header_of_its_own(self):
        with open(TABLE, encoding="utf-8") as f:
            text = f.read()
        text += ("\ngroup OwnCode code type=OWN_RC constants=none lookup=OwnCodeName include=own/own_types.h "
                 "header=own_codes.h\n  OWN_OK 0\n  OWN_BAD 7\n")
        with tempfile.TemporaryDirectory() as out:
            path = os.path.join(out, "errors.table")
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
            self.assertEqual(run(path, "--platform-dir", out, "--component-dir", out).returncode, 0)
            with open(os.path.join(out, "own_codes.h"), encoding="utf-8") as f:
                own = f.read()
            with open(os.path.join(out, "veltrane_errors.h"), encoding="utf-8") as f:
                component = f.read()
            self.assertIn('#include "veltrane_errors.h"\n#include "own/own_types.h"', own)
            self.assertIn('static_assert(static_cast<long long>(OWN_BAD) == 7, "OWN_BAD is 7 in the error table");',
                          own)
            self.assertIn("inline constexpr const char* OwnCodeName(OWN_RC code)", own)
            self.assertNotIn("own_types.h", component)
            self.assertNotIn("OwnCode", component)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]], verbosity=1)
