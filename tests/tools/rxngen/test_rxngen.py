#!/usr/bin/env python3
"""Tests of the schema generator: golden output and the errors of bad schemas.

The golden files are the generator's output for tests/runtime/RxnTestState.rxn,
a schema that the runtime tests also compile and exercise. After an intended
change of the generator, regenerate them and review the diff:

    python3 tests/tools/rxngen/test_rxngen.py --update
"""

import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", "..", ".."))
GENERATOR = os.path.join(ROOT, "tools", "rxngen", "rxngen.py")
SCHEMA = os.path.join("tests", "runtime", "RxnTestState.rxn")
GOLDEN = os.path.join(HERE, "golden")


def run_generator(out, schemas, root=ROOT):
    return subprocess.run([sys.executable, GENERATOR, "--root", root, "--out", out, *schemas],
                          capture_output=True, text=True, cwd=root)


class GoldenOutput(unittest.TestCase):
    def test_output_matches_golden_files(self):
        with tempfile.TemporaryDirectory() as out:
            result = run_generator(out, [SCHEMA])
            self.assertEqual(result.returncode, 0, result.stderr)
            for suffix in (".h", ".cpp"):
                with open(os.path.join(out, "tests", "runtime", "RxnTestState" + suffix)) as f:
                    generated = f.read()
                with open(os.path.join(GOLDEN, "RxnTestState" + suffix)) as f:
                    self.assertEqual(generated, f.read(), f"RxnTestState{suffix} differs from the golden file")

    def test_unchanged_output_is_not_rewritten(self):
        with tempfile.TemporaryDirectory() as out:
            run_generator(out, [SCHEMA])
            header = os.path.join(out, "tests", "runtime", "RxnTestState.h")
            os.utime(header, (1, 1))
            run_generator(out, [SCHEMA])
            self.assertEqual(os.stat(header).st_mtime, 1)


class BadSchemas(unittest.TestCase):
    CASES = [
        ("namespace A;\nwidget W {}\n", "bad.rxn:2: expected namespace, include, enum, value, wrapper, entity or attrs, got 'widget'"),
        ("entity E {\n  name : string;\n}\n", "bad.rxn:2: entity E: 'name' would hide a member every entity has"),
        ("entity E {\n  x : u32 inside;\n}\n", "bad.rxn:2: x: 'inside' applies to a keyed value collection"),
        ("entity E {\n  c : owned E = 1;\n}\n", "bad.rxn:2: c: an owned entity takes no default"),
        ("value V {\n  m : u32[u32];\n}\n", "bad.rxn:2: m: a value record holds plain fields and key sets only"),
        ("value V key k {\n  a : u32;\n}\n", "bad.rxn:1: value V: key k is not a field"),
        ("enum E { }\n", "bad.rxn:1: enum E has no enumerators"),
        ("entity E {\n  x : u32\n}\n", "bad.rxn:3: expected ';'"),
        ("entity E { x : u32; $ }\n", "bad.rxn:1: unexpected character '$'"),
    ]

    def test_each_error_names_the_file_and_line(self):
        for text, message in self.CASES:
            with self.subTest(message=message), tempfile.TemporaryDirectory() as root:
                with open(os.path.join(root, "bad.rxn"), "w") as f:
                    f.write(text)
                result = run_generator(os.path.join(root, "out"), ["bad.rxn"], root=root)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stderr.strip(), "rxngen: " + message)
                self.assertFalse(os.path.exists(os.path.join(root, "out")), "nothing is written on error")


def update_golden():
    with tempfile.TemporaryDirectory() as out:
        result = run_generator(out, [SCHEMA])
        if result.returncode != 0:
            sys.exit(result.stderr)
        for suffix in (".h", ".cpp"):
            with open(os.path.join(out, "tests", "runtime", "RxnTestState" + suffix)) as f:
                text = f.read()
            with open(os.path.join(GOLDEN, "RxnTestState" + suffix), "w") as f:
                f.write(text)


if __name__ == "__main__":
    if "--update" in sys.argv:
        update_golden()
    else:
        unittest.main()
