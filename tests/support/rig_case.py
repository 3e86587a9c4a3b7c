"""What the tests of whole processes share. PAVO_BUILD names the build folder."""

import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(os.path.dirname(HERE))
BUILD = os.environ.get("PAVO_BUILD", os.path.join(TREE, "build", "dev"))
sys.path.insert(0, os.path.join(TREE, "demo"))

from rig import FOLDERS, Rig  # noqa: E402

# Nothing to wait for, unlike a disk; and what a killed program has written is kept by either.
SCRATCH = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else BUILD
LIMIT = 60  # real seconds that any one event may take
FOLDERS["cache_client"] = FOLDERS["web_test"] = "tests"
FOLDERS["pavo_cgi"] = FOLDERS["pavo_webd"] = FOLDERS["route_documents"] = "web"


def run(command, check=False, **options):
    return subprocess.run(command, capture_output=True, text=True, check=check, **options)


def assert_sound(rig):
    """Ends all processes; none of them may have tripped a sanitizer."""
    rig.stop_all()
    for name in glob.glob(rig.path("tmp/*.out")):
        text = rig.read(os.path.relpath(name, rig.root))
        if re.search("Sanitizer|runtime error", text):
            raise AssertionError(f"{os.path.basename(name)}:\n{text}")


class RigTest(unittest.TestCase):
    """Each test has a rig, or several; nothing is started yet."""

    def setUp(self):
        self.rig = self.new_rig()

    def new_rig(self, scale=50):
        rig = Rig(BUILD, tempfile.mkdtemp(prefix="pavo-test-", dir=SCRATCH), scale)
        self.addCleanup(self.close, rig)
        return rig

    @staticmethod
    def close(rig):
        try:
            assert_sound(rig)
        finally:
            shutil.rmtree(rig.root, ignore_errors=True)

    def see(self, what, condition, rig=None):
        (rig or self.rig).wait_for(condition, LIMIT, what)

    def run_program(self, name, *words, **options):
        return run([self.rig.program(name), *words], env=self.rig.env, timeout=LIMIT, **options)
