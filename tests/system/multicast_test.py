#!/usr/bin/env python3
"""Multicast groups, modes and the deny list with several processes. PAVO_BUILD names the build folder."""

import json
import os
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, RigTest  # noqa: E402


class MulticastTest(RigTest):
    def setUp(self):
        super().setUp()
        self.rig.start_switch()

    def answer(self, key, *words):
        return json.loads(self.rig.pavoctl("--json", "multicast", *words).stdout)[key]

    def groups(self):
        return [(row["port"], row["subscriberAddress"], row["multicastAddress"], row["timeout"] is not None)
                for row in self.answer("multicastGroups", "groups")["rows"]]

    def igmp(self, *words):
        return self.run_program("vswitchctl", "igmp", *words)

    def test_groups_come_and_go(self):
        rig = self.rig
        rig.cli("vlan database", "set igmp 1", "set igmp fast-leave 1")
        rig.control("plug", name="amp", port=5, mac="00:1B:92:00:00:01", ip="10.0.0.1", groups=["239.1.1.1"])
        self.assertEqual([("5", "10.0.0.1", "239.1.1.1", True)], self.groups())
        self.assertEqual(0, self.igmp("join", "amp", "239.2.0.0", "--count", "600", "--version", "3").returncode)
        self.assertEqual(601, len(self.groups()))
        self.assertEqual(("5", "10.0.0.1", "239.2.2.87", False), self.groups()[-1])
        self.assertEqual(1, self.igmp("join", "nobody", "239.1.1.1").returncode)
        self.assertEqual("cached", rig.pavoctl("multicast", "groups", "--cache").stdout.strip())
        chunk = json.loads(rig.pavoctl("cache", "read", "multicast_groups_ex/1").stdout)["multicastGroups"]
        self.assertEqual((101, True), (len(chunk["rows"]), chunk["isLastChunk"]))
        self.igmp("leave", "amp", "239.2.0.0", "--count", "600")
        # Another process, which has stored nothing before.
        rig.pavoctl("multicast", "groups", "--cache")
        self.assertNotEqual(0, rig.pavoctl("cache", "read", "multicast_groups_ex/1", check=False).returncode)
        # Nobody asks: 260 s after the last report the group is forgotten. With a querier it stays.
        self.see("the group is forgotten", lambda: self.groups() == [])
        rig.cli("configure", "ip igmp snooping querier query-interval 30")
        self.see("the device answers the querier", lambda: len(self.groups()) == 1)

    def test_two_who_set_the_deny_list(self):
        lists = (["225.0.0.0", "226.0.0.0"], ["227.0.0.0"])
        for _ in range(5):
            callers = [subprocess.Popen([self.rig.program("pavoctl"), "multicast", "deny", *addresses],
                                        env=self.rig.env, stdout=subprocess.DEVNULL) for addresses in lists]
            self.assertEqual([0, 0], [caller.wait(LIMIT) for caller in callers])
            self.assertIn(self.answer("blockAddressList", "deny"),
                          [[address + "/8" for address in addresses] for addresses in lists])

    def test_who_is_killed_is_in_nobodys_way(self):
        rig = self.rig
        rig.pavoctl("multicast", "deny", "225.0.0.0", "226.0.0.0")
        for call in ("rpcclt_openapiAclRuleDeleteLast", "rpcclt_openapiTxtCfgApply"):
            for when in ("before", "after"):
                rig.control("fault", call=call, kill=when, process="pavoctl")
                self.assertLess(rig.pavoctl("multicast", "deny", "227.0.0.0", check=False).returncode, 0)
                rig.control("faults", clear=True)
                # Nothing is lost: it is the old list or the new one.
                denied = ["227"] if call.endswith("Apply") and when == "after" else ["225", "226"]
                self.assertEqual([f"{first}.0.0.0/8" for first in denied], self.answer("blockAddressList", "deny"))
                self.assertIn("ip access-list NET-BLOCK\n" +
                              "".join(f"deny ip any {first}.0.0.0 0.255.255.255\n" for first in denied) +
                              "permit ip any any\nexit", "\n".join(rig.running_config()))
                rig.pavoctl("multicast", "deny", "225.0.0.0", "226.0.0.0")
        # What was blocked, and is to stay so, is blocked at each step.
        rig.pavoctl("multicast", "mode", "5", "blocked")
        for nth in range(1, 8):
            rig.control("fault", call="*", nth=nth, kill="after", process="pavoctl")
            rig.pavoctl("multicast", "mode", "5-6", "blocked", check=False)
            rig.control("faults", clear=True)
            self.assertIn({"portNum": 5, "multicastMode": 2},
                          self.answer("multicastModeConfig", "mode")["physicalPort"])


if __name__ == "__main__":
    unittest.main()
