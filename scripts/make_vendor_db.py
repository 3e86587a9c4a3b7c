#!/usr/bin/env python3
"""Makes the vendor database from the registry's list of organisations (oui.csv of the package ieee-data).

One table, oui(mac, vendor): the first three octets of an address as "AA:BB:CC", and who registered them. A prefix
with several entries in the list has a row for each, in their order. The new database takes the place of the old one
only when it is complete.
"""

import argparse
import csv
import os
import re
import sqlite3
import sys

# What a list that was cut short would not reach.
FEWEST = 20000


class ListError(Exception):
    """The list is not what it should be."""


def entries(path):
    """(prefix, organisation) of every entry of the list."""
    with open(path, encoding="utf-8", errors="replace", newline="") as file:
        for row in csv.DictReader(file):
            assignment = (row.get("Assignment") or "").strip().upper()
            name = " ".join((row.get("Organization Name") or "").split())
            if not re.fullmatch(r"[0-9A-F]{6}", assignment):
                raise ListError(f"{path}: \"{assignment}\" is not the prefix of an address")
            if name:
                yield ":".join((assignment[0:2], assignment[2:4], assignment[4:6])), name


def write(rows, path):
    beside = path + ".new"
    if os.path.exists(beside):
        os.remove(beside)
    connection = sqlite3.connect(beside)
    # Addresses are looked up however they are spelled.
    connection.execute("create table oui(mac text collate nocase, vendor text)")
    connection.executemany("insert into oui values(?, ?)", rows)
    connection.execute("create index oui_mac on oui(mac)")
    connection.commit()
    connection.close()
    os.replace(beside, path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("list", help="oui.csv")
    parser.add_argument("database")
    parser.add_argument("--fewest", type=int, default=FEWEST, help="fewer entries are an error (default: %(default)s)")
    arguments = parser.parse_args()
    try:
        rows = sorted(entries(arguments.list), key=lambda row: row[0])
        if len(rows) < arguments.fewest:
            raise ListError(f"{arguments.list}: {len(rows)} entries; there should be at least {arguments.fewest}")
        write(rows, arguments.database)
    except (ListError, OSError, csv.Error, sqlite3.Error) as error:
        sys.exit(f"make_vendor_db.py: {error}")


if __name__ == "__main__":
    main()
