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
        ("entity E {\n  x : u32[u32] queue;\n}\n", "bad.rxn:2: x: 'queue' applies to a key set"),
        ("value V {\n  s : set<u32> queue;\n}\n", "bad.rxn:2: s: a key set of a value record walks in key order; a queue is an attribute"),
        ("entity E {\n  c : owned E = 1;\n}\n", "bad.rxn:2: c: an owned entity takes no default"),
        ("value V {\n  m : u32[u32];\n}\n", "bad.rxn:2: m: a value record holds plain fields and key sets only"),
        ("value V key k {\n  a : u32;\n}\n", "bad.rxn:1: value V: key k is not a field"),
        ("enum E { }\n", "bad.rxn:1: enum E has no enumerators"),
        ("entity E {\n  x : u32\n}\n", "bad.rxn:3: expected ';'"),
        ("entity E { x : u32; $ }\n", "bad.rxn:1: unexpected character '$'"),
        ("entity E {\n  m : u32[u32] = 1;\n}\n", "bad.rxn:2: m: a collection takes no default; it starts empty"),
        ("entity E {\n  s : set<u32> = 1;\n}\n", "bad.rxn:2: s: a collection takes no default; it starts empty"),
        ("entity E {\n  x : u32;\n  x : u64;\n}\n", "bad.rxn:3: E: duplicate attribute 'x'"),
        ("entity E key x : u32 {\n  x : u32;\n}\n", "bad.rxn:2: E: duplicate attribute 'x'"),
        ("value V {\n  a : u32;\n  b : u8;\n  a : u8;\n}\n", "bad.rxn:4: V: duplicate attribute 'a'"),
        ("entity E {\n  x : Nope;\n}\n", "bad.rxn:2: x: unknown type 'Nope'"),
        ("namespace A;\nentity E {\n  m : u32[Wire::IpAdr];\n}\n", "bad.rxn:3: m: unknown type 'Wire::IpAdr'"),
        ("entity E : Base {\n  x : u32;\n}\n", "bad.rxn:1: E: unknown type 'Base'"),
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


class KnownTypes(unittest.TestCase):
    """A C++ type is known when a hand-written header the schema reaches declares it."""

    HEADER = "#pragma once\n// class Ghost would be a comment\nnamespace Hw {\nclass Port {\n  struct Inner {};\n};\n}\n"

    def generate(self, schema):
        with tempfile.TemporaryDirectory() as root:
            os.makedirs(os.path.join(root, "hw"))
            with open(os.path.join(root, "hw", "Port.h"), "w") as f:
                f.write(self.HEADER)
            with open(os.path.join(root, "hw", "Card.h"), "w") as f:
                f.write('#include "hw/Port.h"\n')
            with open(os.path.join(root, "s.rxn"), "w") as f:
                f.write(schema)
            return run_generator(os.path.join(root, "out"), ["s.rxn"], root=root)

    def test_types_of_included_headers_are_known_and_others_are_not(self):
        result = self.generate('namespace Hw;\ninclude "hw/Card.h";\nentity E {\n  p : Port;\n  q : Hw::Port[u32];\n}\n')
        self.assertEqual(result.returncode, 0, result.stderr)
        result = self.generate('namespace Hw;\nentity E {\n  p : Port;\n}\n')
        self.assertEqual(result.stderr.strip(), "rxngen: s.rxn:3: p: unknown type 'Port'")
        result = self.generate('namespace Hw;\ninclude "hw/Port.h";\nentity E {\n  g : Ghost;\n}\n')
        self.assertEqual(result.stderr.strip(), "rxngen: s.rxn:4: g: unknown type 'Ghost'")


class InstalledSchemas(unittest.TestCase):
    """A platform's own schema, in its own tree, over the installed schemas and headers."""

    def test_a_platform_schema_uses_installed_types_by_their_include_names(self):
        with tempfile.TemporaryDirectory() as top:
            share, platform = os.path.join(top, "share"), os.path.join(top, "agent")
            for rel in ("fabvxlan/state/FabVxlanInfo.rxn", "fabvxlan/state/imported/Wire.h"):
                os.makedirs(os.path.dirname(os.path.join(share, rel)), exist_ok=True)
                with open(os.path.join(ROOT, rel)) as src, open(os.path.join(share, rel), "w") as dst:
                    dst.write(src.read())
            os.makedirs(os.path.join(platform, "agent"))
            with open(os.path.join(platform, "agent", "Chip.rxn"), "w") as f:
                f.write('namespace Chip;\ninclude "fabvxlan/state/FabVxlanInfo.h";\n'
                        'include "fabvxlan/state/imported/Wire.h";\n'
                        "entity ChipState {\n  feature : Fab::VXLAN::FabVxlanState;\n  vti : Wire::IntfId;\n}\n")
            imported = os.path.join(share, "fabvxlan", "state", "FabVxlanInfo.rxn")

            def generate(*include_dirs):
                return subprocess.run([sys.executable, GENERATOR, "--root", platform, "--out", os.path.join(top, "out"),
                                       *include_dirs, "--import", imported, os.path.join(platform, "agent", "Chip.rxn")],
                                      capture_output=True, text=True)

            # Without the installed folder the included names mean nothing.
            self.assertIn("unknown type 'Wire::IntfId'", generate().stderr)
            result = generate("--include-dir", share)
            self.assertEqual(result.returncode, 0, result.stderr)
            with open(os.path.join(top, "out", "agent", "Chip.h")) as f:
                self.assertIn('#include "fabvxlan/state/FabVxlanInfo.h"', f.read())


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
