#!/usr/bin/env python3
# Usage: kelphone_test.py PHONE ROOT [EMULATOR] KELPHONE
# Runs kelphone on simulated phones, which PHONE makes and runs. ROOT is the folder of the root that its library trusts.
import base64
import fcntl
import json
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest

PHONE, ROOT, *KELPHONE = sys.argv[1:]
WORK = tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None)  # most of the time is disk
os.chmod(WORK.name, 0o755)  # the user "system" looks into it, too
FOLDERS = [os.path.dirname(KELPHONE[-1])] + os.environ.get("LD_LIBRARY_PATH", "").split(":")
CHIP_IDS = {"mediatek": "mt0123456789abcdef0123456789000000", "unisoc": "spab12cd3400000000"}
STORES = {"mediatek": "mnt/vendor/persist/startPara/", "unisoc": "mnt/vendor/productinfo/startPara/"}
BACKUP = "kelofs/startPara/"
LOG = "/mnt/vendor/persist/messages"
STORED = {}  # the parameter file of the default phone of each chip


def work(*parts):
    return os.path.join(WORK.name, *parts)


def openssl(*arguments, stdin=b""):
    return subprocess.run(("openssl", *arguments), input=stdin, check=True, capture_output=True).stdout


def make_signer(name, root):
    with open(work("extensions"), "w") as file:
        file.write("nsComment=" + "c" * 300)  # the library accepts no short certificate
    request = openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", work(name + ".key"), "-subj", "/CN=s")
    openssl("x509", "-req", "-CA", root + "/root.pem", "-CAkey", root + "/root.key", "-extfile", work("extensions"),
            "-outform", "DER", "-out", work(name + ".der"), stdin=request)


def signed(message, signer="signer"):
    with open(work(signer + ".der"), "rb") as file:
        certificate = base64.b64encode(file.read()).decode()
    sign = openssl("dgst", "-sha256", "-sign", work(signer + ".key"), stdin=message.encode())
    return f"factoryCert={certificate}&sign={base64.b64encode(sign).decode()}"


def content(record):
    return "".join(field.split("=", 1)[1] for field in record.split("&"))


def on_phone(*arguments, before=(), wrap=(), **options):
    binds = [word for folder in FOLDERS if folder for word in ("--bind", folder)]
    command = [PHONE, "run", *binds, *before, work("phone"), "--", *wrap, *KELPHONE, *arguments]
    return subprocess.run(command, capture_output=True, timeout=120, **options)


def make_phone(chip="mediatek", *options):
    libraries = os.path.dirname(KELPHONE[-1]) + "/simulator/vendor"
    subprocess.run([PHONE, "make", work("phone"), "--chip", chip, "--vendor-libraries", libraries, *options], check=True)
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
        with open(work("phone", folder, name), "wb") as file:
            file.write(text)
        give(folder + name, 0o600)


def remove(*paths):
    for path in paths:
        path = work("phone", path)
        shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)


def set_property(value):
    subprocess.run([PHONE, "set", work("phone"), value], check=True)


class Session:
    def __init__(self):
        binds = [word for folder in FOLDERS if folder for word in ("--bind", folder)]
        self.process = subprocess.Popen([PHONE, "run", *binds, work("phone"), "--", *KELPHONE, "line"], text=True,
                                        bufsize=1, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def ask(self, line):
        self.process.stdin.write(line + "\n")
        return self.process.stdout.readline().rstrip("\n")

    def end(self):
        self.process.communicate()
        return self.process.returncode


def provision(test, request):
    session = Session()
    challenge = session.ask("challenge 8")
    test.assertRegex(challenge, "^ok [0-9A-F]{8}$")
    test.assertEqual(session.ask("respond " + signed(challenge[3:])), "ok")
    record = session.ask("record " + request)
    test.assertTrue(record.startswith("ok buildTime="), record)
    test.assertEqual(session.ask("import " + signed(content(record[3:]))), "ok")
    test.assertEqual(session.end(), 0)


def setUpModule():
    forged_root = work("forged-root")  # of the same names
    tools = os.path.dirname(os.path.realpath(__file__)) + "/../tools/"
    subprocess.run([tools + "make-development-root", forged_root], check=True)
    make_signer("signer", ROOT)
    make_signer("forger", forged_root)


class KelphoneTest(unittest.TestCase):
    maxDiff = None

    def expect(self, result, code, out="", err=""):
        self.assertEqual(result.returncode, code, result)
        self.assertIn(out, result.stdout.decode("ascii"))
        self.assertIn(err, result.stderr.decode("ascii"))
        return result.stdout.decode()

    def stored(self, chip="mediatek"):
        """The parameter file of the phone that make_phone() makes, provisioned once by a session."""
        if chip not in STORED:
            make_phone(chip)
            remove(STORES[chip], BACKUP)
            provision(self, "featureCode=F01A" + ("&IMEI=352099001761481" if chip == "unisoc" else ""))
            with open(work("phone", BACKUP, "startPara.dat"), "rb") as file:
                STORED[chip] = file.read()
        return STORED[chip]

    def test_check_says_what_decided(self):
        good = self.stored()
        primary = STORES["mediatek"]
        record = good.split(b"&factoryCert")[0].decode()
        both = "parameter file: "
        valid = both + "valid, from the primary"
        from_backup = both + "valid, from the backup; the primary "
        other = lambda *options: lambda: (make_phone("mediatek", *options), store(good))
        put = lambda text, name="startPara.dat", stores=None: lambda: store(text, name=name, stores=stores)
        gone = lambda *paths: lambda: remove(*paths)
        change = lambda old, new: put(good.replace(old, new))
        is_folder = lambda: (remove(primary + "startPara.dat"), os.mkdir(work("phone", primary, "startPara.dat")))
        chip_id = CHIP_IDS["mediatek"]
        none = gone(primary + "startPara.dat", BACKUP + "startPara.dat")
        authorization = lambda text: lambda: (none(), store(text.encode(), name="auFile.dat"))
        for fault, code, words in [
                (lambda: None, 0, valid + "\n"),
                (none, 1, "this phone was never provisioned\n"),
                (other("--serial", "5"), 1, both + 'the stored file is another phone\'s: cpuID is "mt0123456789abcdef'
                 f'0123456789000005", the file says "{chip_id}"\n'),
                (lambda: set_property("ro.build.type=userdebug"), 1, both + 'this phone has changed: buildType is '
                 '"userdebug", the file says "user" (the chip ids were not compared)\n'),
                (other("--psn", "\x1b]0;evil\x07\xc2\x9b12345"), 1,
                 r'psn is "\x1B]0;evil\x07\xC3\x82\xC2\x9B123", the file says "KX67000000000000"' + "\n"),
                (change(b"Aldan", b"Aldam"), 1, both + "its content was changed: the signature does not fit\n"),
                (put((record + "&" + signed(content(record), "forger")).encode()), 1,
                 both + "its signer is of another root: unable to get local issuer certificate\n"),
                (change(b"factoryCert=M", b"factoryCert=?"), 1, both + "its signer certificate is damaged\n"),
                (change(b"&sign=", b"&sign=A"), 1, both + "its signature is damaged\n"),
                (put(good[:500]), 1, both + "it holds no signer certificate"),
                (change(b"&psn=", b"&pzn="), 1, both + "its record lacks psn\n"),
                (put(b""), 1, both + "it is empty\n"),
                (gone("proc/rid"), 1, both + "this phone's chip id cannot be read\n"),
                (gone("system/build.prop"), 1, "cannot be read\n"),
                (put(good[:500], stores=[primary]), 0, from_backup + "was repaired\nparameter file, primary: it holds"),
                (gone(primary + "startPara.dat"), 0, from_backup + "was missing and was made again\n"),
                (is_folder, 0, from_backup + "could not be repaired: Is a directory\n"),
                (gone(primary), 0, from_backup + "could not be repaired: No such file or directory\n"),
                (gone(BACKUP + "startPara.dat"), 0, valid + "; the backup was missing and was made again\n"),
                (put(b"x", stores=[BACKUP]), 0, valid + "; the backup differs from it\n"),
                (gone("kelofs"), 0, valid + "; the backup could not be repaired: No such file or directory\n"
                 "checked without the lock: /kelofs: cannot be opened: No such file or directory\n"),
                (lambda: (put(b"x")(), remove("kelofs")), 1,
                 "the backup store cannot be used: /kelofs: No such file or directory\nparameter file, primary: it"),
                (put(good[:500], stores=[BACKUP]), 0, valid + "; the backup differs"),
                (lambda: (put(good[:500])(), put(b"", stores=[BACKUP])()), 1,
                 "parameter file, primary: it holds no signer certificate: it is cut, or no signed file\n"
                 "parameter file, backup: it is empty\n"),
                (authorization(signed(chip_id)), 0, "authorization file: valid, from the primary\n"),
                (authorization(signed("mt01")), 1, "authorization file: another phone's, or changed: the signature "
                 f'does not fit this phone\'s chip id "{chip_id}"\n'),
                (put(b"x", name="auFile.dat"), 0, valid + "\nauthorization file: it holds no signer certificate")]:
            with self.subTest(code=code, words=words):
                make_phone()
                store(good)
                fault()
                out = self.expect(on_phone("check"), code, words)
                self.assertEqual(out.splitlines()[0], ["valid", "not valid"][code])
                self.assertEqual("  check_para_file ret =-1\n" in out, code == 1)

    def test_check_in_json_and_with_the_log(self):
        good = self.stored()
        make_phone("mediatek", "--serial", "5")
        store(good)
        verdict = json.loads(self.expect(on_phone("check", "--json"), 1))
        self.assertEqual((verdict["valid"], verdict["reason"].startswith("parameter file: ")), (False, True))
        result = on_phone("--log", "check", env={**os.environ, "KELCHK_LOG": LOG})
        self.assertNotIn("  check_para", self.expect(result, 1, err="E kelchk: check_para err\n"))
        with open(work("phone" + LOG)) as file:  # passed on, too
            self.assertIn("6 kelchk check_para err", file.read())

    def test_a_modem_that_does_not_answer_decides_nothing(self):
        good = self.stored("unisoc")
        for words, code, hang in [("valid", 0, None), ("this phone's IMEI cannot be read", 1, False)]:
            make_phone("unisoc")
            store(good, "unisoc")
            if hang is not None:
                remove("vendor/modem/imei")
            self.expect(on_phone("check"), code, words)

    def test_service(self):
        log = work("phone" + LOG)
        good = {chip: self.stored(chip) for chip in CHIP_IDS}
        away = lambda: os.rename(work("phone/kelofs"), work("phone/later"))
        back = lambda: os.rename(work("phone/later"), work("phone/kelofs"))
        no_modem = lambda: remove("vendor/modem/imei")
        hung_modem = lambda: (no_modem(), os.mkfifo(work("phone/vendor/modem/imei")))
        slow_modem = lambda: shutil.copy(work("imei"), work("phone/vendor/modem/imei"))
        with open(work("imei"), "w") as file:
            file.write("352099001761481")
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
                if os.path.exists(log):
                    os.remove(log)
                if before:
                    before()
                later = threading.Timer(0.5 if after else 0, after or (lambda: None))
                later.start()
                result = on_phone("check", "--service", "--wait", str(wait), env={**os.environ, "KELCHK_LOG": LOG},
                                  wrap=["sh", "-c", 'exec "$0" "$@" >&-'])
                later.join()
                self.assertEqual((result.returncode, result.stdout), (code, b""), result)
                with open(log) as file:
                    lines = [text for text in file if " kelphone " in text]
                self.assertEqual((len(lines), line in lines[0]), (1, True), lines)
                with open(work("phone/system/build.prop")) as file:
                    self.assertEqual(f"ro.vendor.kelchk.verdict={value}\n" in file.read(), value is not None)

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
                             ("record featureCode=F", "failed: kelo_get_para err"), ("x\x1b[2J", r'failed: unknown request "x\x1B[2J"'),
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
        report = json.loads(self.expect(on_phone("security", "--json"), 0))
        self.assertEqual((len(report), report["ro.boot.otp_ver"]), (24, r"1&ro.boot.x=\xC2\x9B"))
        self.assertNotIn("vendor process", self.expect(on_phone("security"), 0, f"{'ro.boot.efusemode':<42} hw\n"))
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
            self.expect(on_phone("authorize", "-", input=text.encode()), code, out)

    def test_wrong_usage_and_lost_output(self):
        make_phone()
        for arguments in [[], ["chek"], ["check", "x"], ["efuse", "--json"], ["security", "--service"], ["authorize"],
                          ["check", "--wait", "3601"], ["check", "--wait"], ["check", "--bogus"], ["authorize", "/none"], ["authorize", "/"],
                          ["authorize", "/dev/zero"]]:
            with self.subTest(arguments=arguments):
                self.expect(on_phone(*arguments), 2, err="kelphone: ")
        for redirection in [">/dev/full", ">&-"]:
            self.expect(on_phone("check", wrap=["sh", "-c", f'exec "$0" "$@" {redirection}']), 2, err="standard output")
        result = subprocess.run([*KELPHONE, "check"], capture_output=True)
        self.expect(result, 2, err="phone run DIR -- kelphone check")
        self.assertFalse(os.path.exists("/kelofs"))
        self.expect(subprocess.run([*KELPHONE, "version"], capture_output=True), 0, "kelphone 1.")

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
