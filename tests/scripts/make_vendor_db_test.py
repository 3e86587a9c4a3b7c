#!/usr/bin/env python3
"""scripts/make_vendor_db.py on lists of its own."""

import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "make_vendor_db.py"
HEAD = "Registry,Assignment,Organization Name,Organization Address\n"


class MakeVendorDb(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.list = os.path.join(folder.name, "oui.csv")
        self.database = os.path.join(folder.name, "oui.db")

    def make(self, lines, fewest=1, head=HEAD):
        """Standard error; empty when the database was made."""
        if lines is None:
            os.remove(self.list)
        else:
            pathlib.Path(self.list).write_text(head + lines, encoding="utf-8")
        done = subprocess.run([sys.executable, SCRIPT, self.list, self.database, "--fewest", str(fewest)],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode != 0, done.stderr != "")
        return done.stderr

    def rows(self, where=""):
        with sqlite3.connect(self.database) as connection:
            return connection.execute(f"select mac, vendor from oui {where}").fetchall()

    def test_rows(self):
        self.assertEqual("", self.make('MA-L,001b92,"O\'Brien,  Sons\t& ""Co""; DROP TABLE oui",Somewhere\n'
                                       "MA-L,080030,B first,\nMA-L,000001,Zwölf,x\nMA-L,080030,A second,\n"
                                       "MA-L,000002,,nobody\n"))
        self.assertEqual([("00:00:01", "Zwölf"), ("00:1B:92", 'O\'Brien, Sons & "Co"; DROP TABLE oui'),
                          ("08:00:30", "B first"), ("08:00:30", "A second")], self.rows("order by mac"))
        self.assertEqual(1, len(self.rows("where mac = '00:1b:92'")), "however it is spelled")

    def test_what_is_no_list_leaves_the_old_database(self):
        self.assertEqual("", self.make("MA-L,000001,Old,x\n"))
        for lines, fewest, head, error in (("MA-L,000001,A,x\n", 2, HEAD, "1 entries; there should be at least 2"),
                                           ("MA-L,00000G,A,x\n", 1, HEAD, '"00000G" is not the prefix'),
                                           ("<html>\n", 1, "", "0 entries"),
                                           (None, 1, HEAD, "No such file")):
            self.assertIn(error, self.make(lines, fewest, head))
            self.assertEqual([("00:00:01", "Old")], self.rows())


if __name__ == "__main__":
    unittest.main()
