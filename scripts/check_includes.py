#!/usr/bin/env python3
"""Holds the includes of every tracked C++ file against the folder table of ARCHITECTURE.md.

The table has the columns "folder", "holds" and "may use". The last one names folders of rows further up, or says
"nothing", "all above" or "all"; what a folder may use, it may use with everything below that. A folder may always
include itself. Exits with 1 on a violation and when the table cannot be read or has no row for a folder with C++ files.
"""

import argparse
import pathlib
import re
import subprocess
import sys

TABLE_FILE = "ARCHITECTURE.md"
COLUMNS = ["folder", "holds", "may use"]
CPP_SUFFIXES = {".c", ".cc", ".cpp", ".cxx", ".def", ".h", ".hh", ".hpp", ".inc", ".ipp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')


class TableError(Exception):
    """The table of folders is missing or makes no sense."""


class Row:
    """One folder: what the table says of it, and all folders it may include (None: any)."""

    def __init__(self, folder, rule, allowed):
        self.folder, self.rule, self.allowed = folder, rule, allowed

    def permits(self, folder):
        return self.allowed is None or folder in self.allowed or folder == self.folder


def cells_of(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def table_lines(text):
    """(line number, cells) of the table's rows, without its header."""
    lines = text.splitlines()
    headers = [at for at, line in enumerate(lines) if line.lstrip().startswith("|") and cells_of(line) == COLUMNS]
    if len(headers) != 1:
        raise TableError(f"{TABLE_FILE}: {len(headers)} tables with the columns {', '.join(COLUMNS)}; there must be one")
    for at in range(headers[0] + 2, len(lines)):  # the line below the header is the ruler
        if not lines[at].lstrip().startswith("|"):
            return
        yield at + 1, cells_of(lines[at])


def allowed_by(rule, above):
    """The folders that `rule` permits, with all that these may use in turn; None means any."""
    if rule == "all":
        return None
    if rule == "all above":
        return set(above)
    allowed = set()
    if rule == "nothing":
        return allowed
    for name in (part.strip().strip("`").rstrip("/") for part in rule.split(",")):
        if name not in above:
            raise TableError(f'"{name}" is no folder of a row above')
        if above[name].allowed is None:
            return None
        allowed |= {name} | above[name].allowed
    return allowed


def read_table(text, folders_with_code):
    """Rows by folder. A rule that cannot be understood ("the HTTP interface only") is an error where there is C++."""
    rows = {}
    for number, cells in table_lines(text):
        if len(cells) != len(COLUMNS):
            raise TableError(f"{TABLE_FILE}:{number}: {len(cells)} columns")
        folders = [name.rstrip("/") for name in re.findall(r"`([^`]+)`", cells[0])]
        if not folders:
            raise TableError(f"{TABLE_FILE}:{number}: no folder in `backticks` in the first column")
        above = dict(rows)
        for folder in folders:
            if folder in rows:
                raise TableError(f"{TABLE_FILE}:{number}: {folder}/ has a row already")
            try:
                allowed = allowed_by(cells[2], above)
            except TableError as error:
                if folder in folders_with_code:
                    raise TableError(f"{TABLE_FILE}:{number}: {folder}/ may use: {error}") from error
                allowed = set()
            rows[folder] = Row(folder, cells[2], allowed)
    return rows


def violations(root, files, rows):
    for path in files:
        row = rows[path.parts[0]]
        for number, line in enumerate((root / path).read_text(encoding="utf-8", errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            name = match[1] or match[2]
            folder = name.split("/")[0] if "/" in name else None
            if folder in rows:
                if not row.permits(folder):
                    yield f"{path}:{number}: includes {name}; {row.folder}/ may use: {row.rule}"
            elif match[1]:  # in angle brackets it is a header of the system
                yield f"{path}:{number}: includes {name}, not by its path from the top of the tree"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent,
                        help="top of the tree")
    root = parser.parse_args().root
    listed = subprocess.run(["git", "-C", root, "ls-files", "-z"], check=True, capture_output=True, text=True).stdout
    files = [path for path in map(pathlib.Path, filter(None, listed.split("\0")))
             if path.suffix in CPP_SUFFIXES and len(path.parts) > 1 and (root / path).is_file()]
    folders = {path.parts[0] for path in files}
    try:
        try:
            text = (root / TABLE_FILE).read_text(encoding="utf-8")
        except OSError as error:
            raise TableError(f"{TABLE_FILE}: {error.strerror}") from error
        rows = read_table(text, folders)
        missing = sorted(folders - rows.keys())
        if missing:
            raise TableError(f"{TABLE_FILE}: no row for {', '.join(name + '/' for name in missing)}")
    except TableError as error:
        print(error, file=sys.stderr)
        return 1
    found = list(violations(root, files, rows))
    for line in found:
        print(line, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
