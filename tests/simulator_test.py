#!/usr/bin/env python3
"""Usage: simulator_test.py PHONE LIBRARIES
Tests the program PHONE with the stand-ins for a phone's own libraries in the folder LIBRARIES."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

PHONE, LIBRARIES = sys.argv[1:3]
MARKER = ".kelchk-simulated-phone"
IS_ROOT = os.geteuid() == 0
CAPABILITIES = {"CHOWN": 0, "DAC_OVERRIDE": 1, "FOWNER": 3, "KILL": 5, "SETGID": 6, "SETUID": 7}


def phone(*arguments, cwd=None, stdout=subprocess.PIPE):
    return subprocess.run([PHONE, *map(str, arguments)], stdout=stdout, stderr=subprocess.PIPE, text=True, cwd=cwd)


def content(folder):
    return sorted((str(path), path.is_symlink() or path.is_dir() or path.read_text()) for path in folder.rglob("*"))


class SimulatorTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        self.root = self.folder / "phone"

    def make(self):
        done = phone("make", self.root, "--chip", "unisoc")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def run_inside(self, script, *options):
        return phone("run", *options, self.root, "--", "sh", "-c", script)

    def set_properties(self, properties, *options, user=""):
        script = (f"import ctypes; set = ctypes.CDLL('{LIBRARIES}/libcutils.so').property_set; "
                  f"print([set(key, value) for key, value in {properties}])")
        done = self.run_inside(f'{user} python3 -c "{script}"', "--bind", LIBRARIES, *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(done.stdout)

    def test_what_is_no_phone_stays_as_it_is(self):
        image = self.folder / "rom"
        for name in ("system/build.prop", "vendor/firmware", "kelofs/file"):
            (image / name).parent.mkdir(parents=True, exist_ok=True)
            (image / name).write_text("precious")
        before = content(image)
        for arguments in (["make", image, "--chip", "unisoc"], ["set", image, "a=b"], ["run", image, "--", "true"],
                          ["make", "", "--chip", "unisoc"], ["set", "", "a=b"], ["run", "", "--", "true"],
                          ["make", "/", "--chip", "unisoc"], ["run", "/", "--", "true"]):
            with self.subTest(arguments=arguments):
                done = phone(*arguments, cwd=image)
                self.assertEqual(done.returncode, 125 if arguments[0] == "run" else 2)
                self.assertRegex(done.stderr, "no phone|empty|own root")
        self.assertEqual(content(image), before)

    def test_make_replaces_an_earlier_phone(self):
        self.make()
        (self.root / "kelofs/left").write_text("over")
        (self.root / "vendor/lib").chmod(0)
        self.make()
        self.assertFalse((self.root / "kelofs/left").exists())
        self.assertTrue((self.root / MARKER).is_file())

    def test_no_link_leads_out_of_the_phone(self):
        outside = self.folder / "outside"
        outside.mkdir()
        (outside / "build.prop").write_text("theirs=1\n")
        before = content(outside)
        for name, arguments in (("system", ["set", self.root, "a=b"]), ("proc", ["run", self.root, "--", "true"]),
                                ("etc", ["run", self.root, "--", "true"]), ("usr", ["run", self.root, "--", "true"])):
            with self.subTest(name=name):
                self.make()
                if (self.root / name).exists():
                    (self.root / name).rename(self.folder / f"moved-{name}")
                (self.root / name).symlink_to(outside)
                done = phone(*arguments)
                self.assertIn(f"{self.root}/{name} is a link, which is not followed", done.stderr)
                self.make()
                (self.root / name).unlink() if (self.root / name).is_symlink() else None
                self.assertEqual(content(outside), before)

    def test_keeps_few_capabilities(self):
        self.make()
        for options, dropped in (((), 0), (("--no-override",), 1 << CAPABILITIES["DAC_OVERRIDE"])):
            done = self.run_inside("sed -n 's/^CapEff:.//p' /proc/self/status; cat /vendor/none", *options)
            expected = sum(1 << number for number in CAPABILITIES.values()) - dropped
            self.assertEqual(int(done.stdout, 16), expected)
        script = "echo text > /vendor/none; chmod 0 /vendor/none; cat /vendor/none"
        self.assertEqual(self.run_inside(script).stdout, "text\n")
        self.assertIn("Permission denied", self.run_inside(script, "--no-override").stderr)

    @unittest.skipUnless(IS_ROOT, "an ordinary user's sandbox has no other users")
    def test_the_user_system_owns_the_stores(self):
        self.make()
        as_system = "setpriv --reuid 1000 --regid 1000 --clear-groups"
        done = self.run_inside(f"{as_system} mkdir /kelofs/startPara /mnt/vendor/productinfo/startPara")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.set_properties([(b"ro.verdict", b"1")], user=as_system), [0])
        self.assertEqual(self.set_properties([(b"ro.other", b"1")], user="setpriv --reuid 2000"), [-1])

    def test_sets_properties_as_a_phone_does(self):
        self.make()
        rows = ((b"ro.verdict", b"valid", 0), (b"ro.verdict", b"changed", -1), (b"ro.long", b"x" * 92, 0),
                (b"a.b", b"1", 0), (b"a.b", b"2", 0), (b"a.long", b"x" * 91, 0), (b"a.long", b"y" * 92, -1),
                (b"a.lines", b"1\nro.debuggable=1", -1), (b"", b"1", -1), (b"a=b", b"1", -1))
        results = self.set_properties([row[:2] for row in rows])
        for row, result in zip(rows, results, strict=True):
            with self.subTest(row=row):
                self.assertEqual(result, row[2])
        lines = (self.root / "system/build.prop").read_text().splitlines()
        added = [line for line in lines if line.startswith(("ro.verdict", "ro.long", "a."))]
        self.assertEqual(added, ["ro.verdict=valid", "ro.long=" + "x" * 92, "a.b=2", "a.long=" + "x" * 91])
        (self.root / "system").chmod(0o555)
        self.assertEqual(self.set_properties([(b"a.b", b"3")], "--no-override"), [-1])

    def test_shows_the_lib_folder_beside_the_command(self):
        self.make()
        for name in ("bin", "lib"):
            (self.folder / name).mkdir()
        (self.folder / "bin/show").write_text('#!/bin/sh\ncat "${0%/*}/../lib/text"\n')
        (self.folder / "bin/show").chmod(0o755)
        (self.folder / "lib/text").write_text("found")
        self.assertEqual(phone("run", self.root, "--", self.folder / "bin/show").stdout, "found")

    def test_escapes_names_and_reports_lost_output(self):
        done = phone("set", self.folder / "\x1b]0;x\x07\\", "a=b")
        self.assertIn(r"\x1B]0;x\x07\\", done.stderr)
        with open("/dev/full", "w") as full:
            self.assertEqual(phone("--help", stdout=full).returncode, 2)


unittest.main(argv=sys.argv[:1])
