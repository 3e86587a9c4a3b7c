#!/usr/bin/env python3
"""scripts/check_includes.py on small trees of its own."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check_includes.py"
HEADER = "# Architecture\n\n| folder | holds | may use |\n|---|---|---|\n"
ROWS = {"platform": "nothing", "common": "platform", "store": "common", "swapi": "common", "vlan": "store, swapi",
        "ctl": "all above", "ui": "the HTTP interface only", "vswitch": "platform", "tests": "all"}


def table(**changes):
    rows = {**ROWS, **changes}
    return HEADER + "".join(f"| `{name}/` | files | {rule} |\n" for name, rule in rows.items() if rule) + "\nText.\n"


class CheckIncludes(unittest.TestCase):
    def check(self, files, architecture=table()):
        """(exit status, standard error) for a tree of `files`: path -> what its only line includes, "<...>" or a path."""
        with tempfile.TemporaryDirectory() as root:
            subprocess.run(["git", "init", "-q", root], check=True)
            for name, included in files.items():
                path = pathlib.Path(root, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(f"#include {included}\n" if included.startswith("<") else f'# include "{included}"\n',
                                encoding="utf-8")
            if architecture is not None:
                pathlib.Path(root, "ARCHITECTURE.md").write_text(architecture, encoding="utf-8")
            subprocess.run(["git", "-C", root, "add", "-A"], check=True)
            done = subprocess.run([sys.executable, SCRIPT, "--root", root], capture_output=True, text=True, check=False)
            return done.returncode, done.stderr

    def refuses(self, expected, files, architecture=table()):
        status, errors = self.check(files, architecture)
        self.assertEqual(1, status, errors)
        self.assertIn(expected, errors)
        self.assertEqual(1, len(errors.splitlines()), errors)

    def test_good_tree(self):
        self.assertEqual((0, ""), self.check({
            "vlan/a.cpp": "vlan/a.h", "vlan/b.cpp": "platform/clock.h",  # itself; down through two rows
            "ctl/main.cpp": "swapi/swapi.h", "tests/vswitch/x_test.cpp": "vswitch/x.h", "vswitch/x.h": "platform/open.h",
            "common/log.cpp": "<sys/stat.h>", "ui/page.ts": "vlan/a.h", "README.md": "nowhere/at/all.h"}))
        self.assertEqual((0, ""), self.check({"bench/a.cpp": "vlan/a.h"},
                                             table().replace("`tests/`", "`tests/`, `bench/`")))

    def test_forbidden_includes(self):
        cases = {
            "upward": ("common/log.cpp", "store/db.h", "common/ may use: platform"),
            "from the bottom": ("platform/clock.h", "common/log.h", "platform/ may use: nothing"),
            "below all above": ("ctl/main.cpp", "vswitch/server.h", "ctl/ may use: all above"),
            "X-macro file": ("vswitch/calls.def", "vlan/a.h", "vswitch/ may use: platform"),
        }
        for name, (file, included, rule) in cases.items():
            with self.subTest(name):
                self.refuses(f"{file}:1: includes {included}; {rule}", {file: included, "vlan/good.cpp": "store/db.h"})
                self.refuses(rule, {file: f"<{included}>"})
        self.refuses("not by its path from the top of the tree", {"common/log.cpp": "../store/db.h"})
        self.refuses("not by its path from the top of the tree", {"common/log.cpp": "db.h"})

    def test_bad_tables(self):
        tree = {"common/log.cpp": "platform/clock.h"}
        cases = {
            "missing file": (None, "No such file"),
            "two tables": (table() + table(), "2 tables"),
            "missing row": (table(common=None, store="platform", swapi="platform"), "no row for common/"),
            "folder twice": (table().replace("`store/`", "`platform/`"), "platform/ has a row already"),
            "upward rule": (table(common="vlan"), '"vlan" is no folder of a row above'),
            "rule in prose": (table(common="the HTTP interface only"), "is no folder of a row above"),
            "a cell too many": (table(common="platform | store"), "4 columns"),
        }
        for name, (text, expected) in cases.items():
            with self.subTest(name):
                self.refuses(expected, tree, text)


if __name__ == "__main__":
    unittest.main()
