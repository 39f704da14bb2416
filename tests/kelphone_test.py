#!/usr/bin/env python3
# Usage: kelphone_test.py PHONE ROOT [EMULATOR] KELPHONE
# Runs kelphone on simulated phones, which PHONE makes and runs. ROOT is the folder of the root that its library trusts.
import json, os, shutil, subprocess, sys, threading, unittest

sys.dont_write_bytecode = True
from programs import IMEI, ProgramTest, content, issue, read, run, signed, work, write

PHONE, ROOT, *KELPHONE = sys.argv[1:]
FOLDERS = [os.path.dirname(KELPHONE[-1])] + os.environ.get("LD_LIBRARY_PATH", "").split(":")
BINDS = [word for folder in FOLDERS if folder for word in ("--bind", folder)]
CHIP_IDS = {"mediatek": "mt0123456789abcdef0123456789000000", "unisoc": "spab12cd3400000000"}
STORES = {"mediatek": "mnt/vendor/persist/startPara/", "unisoc": "mnt/vendor/productinfo/startPara/"}
BACKUP = "kelofs/startPara/"
LOG = "/mnt/vendor/persist/messages"
STORED = {}  # the parameter file of the default phone of each chip


def on_phone(*arguments, before=(), wrap=(), **options):
    return run(PHONE, "run", *BINDS, *before, work("phone"), "--", *wrap, *KELPHONE, *arguments, **options)


def make_phone(chip="mediatek", *options):
    made = work("-".join(["made", chip, *options]))  # to be copied, which takes a tenth of the time
    if not os.path.exists(made):
        libraries = os.path.dirname(KELPHONE[-1]) + "/simulator/vendor"
        subprocess.run([PHONE, "make", made, "--chip", chip, "--vendor-libraries", libraries, *options], check=True)
    replace = 'chmod -Rf u+rwx "$1"; rm -rf "$1" && cp -a "$0" "$1"'
    subprocess.run(["sh", "-c", replace, made, work("phone")], check=True)
    for folder in [STORES[chip], BACKUP]:
        os.mkdir(work("phone", folder))
        give(folder, 0o770)


def give(path, mode):
    """Gives |path| to whom the phone's folders belong."""
    owner = os.stat(work("phone/kelofs"))
    os.chown(work("phone", path), owner.st_uid, owner.st_gid)
    os.chmod(work("phone", path), mode)


def store(text, chip="mediatek", name="startPara.dat", stores=None):
    for folder in stores or [STORES[chip], BACKUP]:
        write(work("phone", folder, name), text)
        give(folder + name, 0o600)


def remove(*paths):
    for path in paths:
        path = work("phone", path)
        shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)


def set_property(value):
    subprocess.run([PHONE, "set", work("phone"), value], check=True)


class Session:
    def __init__(self):
        self.process = subprocess.Popen([PHONE, "run", *BINDS, work("phone"), "--", *KELPHONE, "line"], text=True,
                                        bufsize=1, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def ask(self, line):
        self.process.stdin.write(line + "\n")
        return self.process.stdout.readline().rstrip("\n")

    def end(self):
        self.process.communicate()
        return self.process.returncode


def setUpModule():
    issue("signer", ROOT)


class KelphoneTest(ProgramTest):
    def stored(self, chip="mediatek"):
        """The parameter file of the phone that make_phone() makes, provisioned once by a session."""
        if chip not in STORED:
            make_phone(chip)
            remove(STORES[chip], BACKUP)
            session = Session()
            challenge = session.ask("challenge 8")
            self.assertRegex(challenge, "^ok [0-9A-F]{8}$")
            self.assertEqual(session.ask("respond " + signed(challenge[3:])), "ok")
            record = session.ask("record featureCode=F01A" + ("&IMEI=" + IMEI if chip == "unisoc" else ""))
            self.assertRegex(record, "^ok buildTime=")
            self.assertEqual(session.ask("import " + signed(content(record[3:]))), "ok")
            self.assertEqual(session.end(), 0)
            STORED[chip] = read("phone/" + BACKUP + "startPara.dat")
        return STORED[chip]

    def test_check_shows_both_copies_and_files(self):
        good = self.stored()
        primary, valid = STORES["mediatek"], "parameter file: valid, from the primary"
        from_backup = "parameter file: valid, from the backup; the primary "
        put = lambda text, **where: lambda: store(text, **where)
        gone = lambda *paths: lambda: remove(*paths)
        for fault, code, words in [
                (lambda: None, 0, valid + "\n"),
                (lambda: set_property("ro.build.type=userdebug"), 1, 'parameter file: this phone has changed: buildType is '
                 '"userdebug", the file says "user" (the chip ids were not compared)\n'),
                (lambda: (make_phone("mediatek", "--psn", "\x1b]0;evil\x07\xc2\x9b12345"), store(good)), 1,
                 r'psn is "\x1B]0;evil\x07\xC3\x82\xC2\x9B123", the file says "KX67000000000000"' + "\n"),
                (gone("system/build.prop"), 1, "cannot be read\n"),
                (put(good[:500], stores=[primary]), 0, from_backup + "was repaired\nparameter file, primary: it holds"),
                (gone(primary), 0, from_backup + "could not be repaired: No such file or directory\n"),
                (gone("kelofs"), 0, valid + "; the backup could not be repaired: No such file or directory\n"
                 "checked without the lock: /kelofs: cannot be opened: No such file or directory\n"),
                (lambda: (store(b"x"), remove("kelofs")), 1,
                 "the backup store cannot be used: /kelofs: No such file or directory\nparameter file, primary: it"),
                (lambda: (store(good[:500]), store(b"", stores=[BACKUP])), 1,
                 "parameter file, primary: it holds no signer certificate: it is cut, or no signed file\n"
                 "parameter file, backup: it is empty\n"),
                (lambda: (remove(primary + "startPara.dat", BACKUP + "startPara.dat"),
                          store(signed(CHIP_IDS["mediatek"]), name="auFile.dat")), 0,
                 "authorization file: valid, from the primary\n"),
                (put(b"x", name="auFile.dat"), 0, valid + "\nauthorization file: it holds no signer certificate")]:
            with self.subTest(code=code, words=words):
                make_phone()
                store(good)
                fault()
                self.expect(on_phone("check"), code, words)

    def test_check_in_json_and_with_the_log(self):
        good = self.stored()
        make_phone("mediatek", "--serial", "5")
        store(good)
        result = on_phone("check", "--json")
        verdict = json.loads(result.out)
        self.assertEqual((result.code, verdict["valid"]), (1, False))
        self.assertRegex(verdict["reason"], "^parameter file: ")
        result = on_phone("--log", "check", env={**os.environ, "KELCHK_LOG": LOG})
        self.expect(result, 1, err="E kelchk: check_para err\n")
        self.assertNotIn("  check_para", result.out)
        self.assertIn(b"6 kelchk check_para err", read("phone" + LOG))  # passed on, too

    def test_service(self):
        good = {chip: self.stored(chip) for chip in CHIP_IDS}
        away = lambda: os.rename(work("phone/kelofs"), work("phone/later"))
        back = lambda: os.rename(work("phone/later"), work("phone/kelofs"))
        no_modem = lambda: remove("vendor/modem/imei")
        hung_modem = lambda: (no_modem(), os.mkfifo(work("phone/vendor/modem/imei")))
        slow_modem = lambda: write("phone/vendor/modem/imei", IMEI)
        for chip, before, after, wait, code, value, line in [
                ("mediatek", None, None, 9, 0, "1", "4 kelphone valid; parameter file: valid, from the primary\n"),
                ("mediatek", lambda: store(b""), None, 9, 1, "0", "6 kelphone not valid; parameter file: it is empty\n"),
                ("mediatek", away, back, 30, 0, "1", "4 kelphone valid; "),
                ("unisoc", no_modem, slow_modem, 30, 0, "1", "4 kelphone valid; "),
                ("unisoc", no_modem, None, 1, 4, None, "6 kelphone undecided; parameter file: this phone's IMEI"),
                ("unisoc", hung_modem, None, 1, 4, None, "6 kelphone undecided; no answer from this phone within 1 "),
                ("mediatek", lambda: set_property("ro.vendor.kelchk.verdict=1"), None, 9, 0, "1",
                 "the primary; cannot set ro.vendor.kelchk.verdict\n")]:
            with self.subTest(line=line, wait=wait):
                make_phone(chip)
                store(good[chip], chip)
                if before:
                    before()
                later = threading.Timer(0.5 if after else 0, after or (lambda: None))
                later.start()
                result = on_phone("check", "--service", "--wait", str(wait), env={**os.environ, "KELCHK_LOG": LOG},
                                  wrap=["sh", "-c", 'exec "$0" "$@" >&-'])
                later.join()
                self.assertEqual(result[:2], (code, ""), result)
                lines = [text for text in read("phone" + LOG).decode().splitlines(True) if " kelphone " in text]
                self.assertEqual((len(lines), line in lines[0]), (1, True), lines)
                verdict = f"ro.vendor.kelchk.verdict={value}\n".encode()
                self.assertEqual(verdict in read("phone/system/build.prop"), value is not None)

    def test_one_process_at_a_time(self):
        make_phone()
        session = Session()
        self.assertEqual(session.ask("challenge 0"), "ok")
        for command in ["check", "security", "efuse", "line"]:
            self.expect(on_phone("--wait", "0", command), 4, err="another process uses this phone")
        self.assertEqual(session.end(), 0)
        self.expect(on_phone("efuse", "--wait", "0"), 0, "efused")
        remove("kelofs")
        for command in ["security", "efuse", "line"]:
            self.expect(on_phone(command), 2, err="/kelofs: cannot be opened: No such file or directory")

    def test_line_mode_survives_every_line(self):
        self.stored()
        make_phone()
        session = Session()
        for line, answer in [("challenge 4\r", "ok "), ("challenge 251", "failed: challenge takes 0 to 250"),
                             ("challenge -1", "failed: challenge takes"), ("challenge", "ok "),
                             ("record featureCode=F", "failed: kelo_get_para err"),
                             ("x\x1b[2J", r'failed: unknown request "x\x1B[2J"'),
                             ("respond " + signed("other"), "failed: signature err"), ("", "failed: "),
                             (r"respond \x", "failed: "), ("x" * 16385, "failed: "), ("import x", "failed: in == NULL"),
                             ("challenge 0", "ok"), ("respond " + signed(""), "ok"),
                             (r"record featureCode=a\\b", "ok buildTime="),
                             ("import " + signed("other"), "failed: signature err")]:
            with self.subTest(line=line[:40]):
                self.assertTrue(session.ask(line).startswith(answer))
        self.assertEqual(session.end(), 0)

    def test_one_shot_commands(self):
        make_phone("mediatek", "--prop", "ro.boot.otp_ver=1&ro.boot.x=\x9b")
        result = on_phone("security", "--json")
        report = json.loads(result.out)
        self.assertEqual((result.code, len(report), report["ro.boot.otp_ver"]), (0, 24, r"1&ro.boot.x=\xC2\x9B"))
        result = on_phone("security")
        self.expect(result, 0, f"{'ro.boot.efusemode':<42} hw\n")
        self.assertNotIn("vendor process", result.out)
        set_property("partition.vendor.verified.root_digest=")
        self.expect(on_phone("security"), 0, "No vendor process may read")
        for value, code, out in [("sw", 1, "not efused\n"), ("", 0, "efused\n")]:
            set_property("ro.boot.efusemode=" + value)
            self.expect(on_phone("efuse"), code, out)
        make_phone("unisoc")
        self.expect(on_phone("efuse"), 0, "efused\n")
        remove("vendor/lib/libefuse.so")
        self.expect(on_phone("efuse"), 0, "efused\n  dlopen /vendor/lib/libefuse.so")
        for text, code, out in [(signed(CHIP_IDS["unisoc"]), 0, "ok\n"), ("x" * 4097, 2, ""), ("", 2, ""),
                                (signed("x"), 1, "failed\n  rid=spab12cd3400000000\n  signature err\n")]:
            self.expect(on_phone("authorize", "-", stdin=text.encode()), code, out)

    def test_wrong_usage_and_lost_output(self):
        make_phone()
        for arguments in [[], ["chek"], ["check", "x"], ["efuse", "--json"], ["security", "--service"], ["authorize"],
                          ["check", "--wait", "3601"], ["check", "--wait"], ["check", "--bogus"],
                          ["authorize", "/none"], ["authorize", "/"], ["authorize", "/dev/zero"]]:
            with self.subTest(arguments=arguments):
                self.expect(on_phone(*arguments), 2, err="kelphone: ")
        for redirection in [">/dev/full", ">&-"]:
            self.expect(on_phone("check", wrap=["sh", "-c", f'exec "$0" "$@" {redirection}']), 2, err="standard output")
        self.expect(run(*KELPHONE, "check"), 2, err="phone run DIR -- kelphone check")
        self.assertFalse(os.path.exists("/kelofs"))
        self.expect(run(*KELPHONE, "version"), 0, "kelphone 1.")

    @unittest.skipIf(os.geteuid() != 0, "needs a second user")
    def test_root_becomes_the_owner_of_the_phone(self):
        good = self.stored()
        make_phone()
        for folder in ["kelofs", "mnt/vendor/persist", BACKUP, STORES["mediatek"]]:
            os.chown(work("phone", folder), 1000, 1000)
        store(good, stores=[BACKUP])
        self.expect(on_phone("check"), 0, "was missing and was made again")
        self.assertEqual(os.stat(work("phone", STORES["mediatek"], "startPara.dat")).st_uid, 1000)
        os.chmod(work("phone", STORES["mediatek"]), 0)
        self.expect(on_phone("check"), 0, "the primary could not be repaired: Permission denied")
        os.chmod(work("phone", BACKUP), 0)
        self.expect(on_phone("check"), 1, "the backup store cannot be used: /kelofs/startPara/: Permission denied\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
