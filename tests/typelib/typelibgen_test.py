#!/usr/bin/env python3
"""Runs the type library generator on broken descriptions and on the real one.

Usage: typelibgen_test.py <typelibgen.py> <data dir> <veltrane.idl>

Each data/bad_*.idl names in its first line what the generator must say:
    // expect: <line>: <text>
The generator must exit with a non-zero code and print "<file>:<line>: error: ...<text>...".
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

GENERATOR, DATA, IDL = sys.argv[1:4] if len(sys.argv) >= 4 else (None, None, None)


def run(*args):
    return subprocess.run([sys.executable, GENERATOR, *args], capture_output=True, text=True, timeout=60)


class BrokenDescriptions(unittest.TestCase):
    def test_each_broken_file_is_refused_with_its_line(self):
        files = sorted(f for f in os.listdir(DATA) if f.startswith("bad_") and f.endswith(".idl"))
        self.assertGreaterEqual(len(files), 10)
        for name in files:
            path = os.path.join(DATA, name)
            with open(path, encoding="utf-8") as f:
                first = f.readline()
            m = re.match(r"// expect: (\d+): (.*)$", first.strip())
            self.assertIsNotNone(m, "%s lacks its expect line" % name)
            line, text = m.group(1), m.group(2)
            with self.subTest(file=name):
                result = run(path, "--check")
                self.assertNotEqual(result.returncode, 0, name)
                self.assertIn("%s:%s: error: " % (path, line), result.stderr)
                self.assertIn(text, result.stderr)
                self.assertEqual(result.stdout, "")

    def test_missing_file(self):
        result = run(os.path.join(DATA, "no_such_file.idl"), "--check")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("no_such_file.idl: error: cannot read", result.stderr)

    def test_broken_file_writes_nothing(self):
        with tempfile.TemporaryDirectory() as out:
            result = run(os.path.join(DATA, "bad_unknown_type.idl"), "--header-dir", out, "--source-dir", out)
            self.assertNotEqual(result.returncode, 0)
            self.assertEqual(os.listdir(out), [])


class ObjectMap(unittest.TestCase):
    def generate(self, *creatable):
        with tempfile.TemporaryDirectory() as out:
            path = os.path.join(out, "object_map.cpp")
            args = [IDL, "--object-map", path]
            for c in creatable:
                args += ["--creatable", c]
            result = run(*args)
            text = open(path, encoding="utf-8").read() if os.path.exists(path) else None
            return result, text

    def test_one_entry_per_implemented_class(self):
        result, text = self.generate("SoapSession=soap/soap_session.h", "RfcSession=rfc/rfc_session.h")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn('#include "soap/soap_session.h"', text)
        self.assertIn("{&CLSID_SoapSession, &CreateObjectOf<CSoapSession>}", text)
        self.assertIn("{&CLSID_RfcSession, &CreateObjectOf<CRfcSession>}", text)
        self.assertIn("Not built, so not creatable (CLASS_E_CLASSNOTAVAILABLE): BSPApplication", text)

    def test_no_class_gives_an_empty_map(self):
        result, text = self.generate()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("std::span<const ObjectEntry> ObjectMap() { return {}; }", text)

    def test_a_class_that_is_not_creatable_is_refused(self):
        result, text = self.generate("RfcType=model/rfc_type.h")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("--creatable RfcType: the coclass is not creatable by its class id", result.stderr)
        self.assertIsNone(text)

    def test_an_unknown_class_is_refused(self):
        result, _text = self.generate("NoSuchClass=x.h")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("--creatable NoSuchClass: the library has no coclass of that name", result.stderr)


class RealDescription(unittest.TestCase):
    def test_checks_clean(self):
        result = run(IDL, "--check")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")

    def test_output_is_stable(self):
        with tempfile.TemporaryDirectory() as a, tempfile.TemporaryDirectory() as b:
            for out in (a, b):
                result = run(IDL, "--header-dir", out, "--source-dir", out, "--thunk-parts", "2")
                self.assertEqual(result.returncode, 0, result.stderr)
            names = sorted(os.listdir(a))
            self.assertEqual(names, sorted(os.listdir(b)))
            self.assertIn("veltrane_tlb.h", names)
            self.assertIn("veltrane_tlb_thunks_2.cpp", names)
            for n in names:
                with open(os.path.join(a, n), encoding="utf-8") as fa, open(os.path.join(b, n), encoding="utf-8") as fb:
                    self.assertEqual(fa.read(), fb.read(), n)


if __name__ == "__main__":
    if GENERATOR is None:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], "-v"])
