#!/usr/bin/env python3
# Usage: kelctl_test.py PHONE ROOT [EMULATOR] KELCTL
# kelctl on simulated phones, which PHONE makes and runs. ROOT is the folder of the root that its library trusts.
import base64
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

PHONE, ROOT, *KELCTL = sys.argv[1:]
NATIVE = len(KELCTL) == 1
WORK = tempfile.TemporaryDirectory()
TOOLS = os.path.dirname(os.path.realpath(__file__)) + "/../tools/"
TRUE_ROOT = ["--root", ROOT + "/root.pem", "--root-key", ROOT + "/root.key"]
CHIP_IDS = {"mediatek": "mt0123456789abcdef0123456789000000", "unisoc": "spab12cd3400000000"}
STORES = {"mediatek": "mnt/vendor/persist/startPara", "unisoc": "mnt/vendor/productinfo/startPara"}
RECORD = ("buildTime=20240429V3&buildType=user&countrySha=" + "0A" * 32 + "&cpuID=mt01&deviceBrand=Aldan&"
          "deviceModel=MDF1KX67&featureCode=F01A&imei=352099001761481&phoneMac=000AF5000000&psn=KX67000000000000&"
          "time=240429-153012&ver=01")
CONTENT = ("20240429V3user" + "0A" * 32 + "mt01AldanMDF1KX67F01A352099001761481000AF5000000KX67000000000000"
           "240429-15301201")


def work(*parts):
    return os.path.join(WORK.name, *parts)


def write(name, content):
    with open(work(name), "wb") as file:
        file.write(content)
    return file.name


def run(*command, stdin=b""):
    result = subprocess.run(command, input=stdin, capture_output=True, timeout=120)
    return result.returncode, result.stdout.decode(), result.stderr.decode()


def kelctl(*arguments, stdin=b""):
    return run(*KELCTL, *arguments, stdin=stdin)


def inside(chip, *arguments, stdin=b""):
    binds = [word for folder in (WORK.name, os.path.dirname(KELCTL[-1])) for word in ("--bind", folder)]
    return run(PHONE, "run", *binds, work(chip), "--", *KELCTL, *arguments, stdin=stdin)


def on_phone(chip, *arguments, stdin=b""):
    return kelctl("--phone", work(chip), *arguments, stdin=stdin) if NATIVE else inside(chip, *arguments, stdin=stdin)


def make_phones():
    for chip in CHIP_IDS:
        vendor_libraries = os.path.dirname(KELCTL[-1]) + "/simulator/vendor"
        subprocess.run([PHONE, "make", work(chip), "--chip", chip, "--vendor-libraries", vendor_libraries], check=True)


def openssl(*arguments, stdin=b""):
    return subprocess.run(("openssl",) + arguments, input=stdin, check=True, capture_output=True).stdout


def signature(message, signer="signer"):
    return openssl("dgst", "-sha256", "-sign", work(signer, "signer.key"), stdin=message.encode())


def certificate(signer="signer"):
    return base64.b64encode(openssl("x509", "-in", work(signer, "signer.pem"), "-outform", "DER")).decode()


def signed(message, signer="signer", cert=None, sign=None):
    sign = signature(message, signer) if sign is None else sign
    return f"factoryCert={cert or certificate(signer)}&sign={base64.b64encode(sign).decode()}"


def pair(signer="signer"):
    return ["--key", work(signer, "signer.key"), "--cert", work(signer, "signer.pem")]


KEY = pair()[:2]


def issue(folder, *options):
    """A signer of the true root made by openssl alone, whose certificate is as short as can be unless |options| say."""
    os.mkdir(work(folder))
    _, key, _, path = pair(folder)
    request = openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-subj", "/CN=x")
    openssl("x509", "-req", "-CA", TRUE_ROOT[1], "-CAkey", TRUE_ROOT[3], "-out", path, *options, stdin=request)


def setUpModule():
    subprocess.run([TOOLS + "make-development-root", work("forged-root")], check=True)  # of the same names
    forged_root = ["--root", work("forged-root/root.pem"), "--root-key", work("forged-root/root.key")]
    for step in [("signer", "signer", *TRUE_ROOT), ("signer", "forger", *forged_root), ("root", "root")]:
        assert kelctl(step[0], work(step[1]), *step[2:])[0] == 0, step
    issue("short")
    write("extensions", b"nsComment=" + b"c" * 300)
    issue("expired", "-days", "-1", "-extfile", work("extensions"))


class KelctlTest(unittest.TestCase):
    def setUp(self):
        make_phones()

    def expect(self, result, code, out="", err=""):
        self.assertEqual(result[0], code, result)
        self.assertIn(out, result[1])
        self.assertIn(err, result[2])

    def test_signs_what_openssl_signs(self):
        for kind, text, message in [("challenge", "0AF9", "0AF9"), ("record", RECORD, CONTENT),
                                    ("chip-id", "sp\n1", "sp\n1")]:
            expected = base64.b64encode(signature(message)).decode()
            self.expect(kelctl("sign", kind, text, *KEY), 0, expected + "\n")
            self.expect(kelctl("sign", kind, *KEY, stdin=text.encode() + b"\n"), 0, expected + "\n")
            result = kelctl("sign", kind, text, "--signed-record", *pair())
            self.assertEqual(result[:2], (0, signed(message)))

    def test_refuses_to_sign(self):
        rows = [("challenge", "", "0 characters"), ("challenge", "A" * 251, "251 characters"),
                ("challenge", "0aF", "character 2"), ("record", CONTENT, "1 fields"), ("record", "", "1 fields"),
                ("chip-id", "mt", "chip id"), ("chip-id", "0AF9", "chip id"), ("chip-id", "mtAB", "capital"),
                ("chip-id", "sp" + "1" * 255, "chip id"), ("chip-id", "mt0\0", "NUL")]
        for change in [
                ("&ver=01", "", "11 fields"), ("user", "us&er", "13 fields"), ("psn=", "ver=01&psn=", "13 fields"),
                ("imei=", "imei2=", "not imei"), ("buildTime", "buildDate", "field 1"), ("Aldan", "A" * 92, "Brand"),
                ("Aldan", "", "Brand"), ("mt01", "xx01", "cpuID"), ("KX67000", "KX6700", "psn"), ("0A0", "0A", "Sha"),
                ("0A0", "0a0", "countrySha"), ("-153012", "-15301", "time"), ("ver=01", "ver=02", "ver"),
                ("=user", "=users", "buildType"), ("MDF1", "MDF", "Model"), ("0429-", "1329-", "time")]:
            rows.append(("record", RECORD.replace(change[0], change[1], 1), change[2]))
        for key, longest in [("buildTime", "2" * 91), ("cpuID", "sp" + "\n" * 254), ("deviceModel", "MDF1" + "K" * 91),
                             ("featureCode", "F" * 127), ("imei", "3" * 255), ("phoneMac", "0" * 127)]:
            with_value = lambda value: re.sub(f"{key}=[^&]*", f"{key}={value}", RECORD)
            self.expect(kelctl("sign", "record", with_value(longest), *KEY), 0)
            rows.append(("record", with_value(longest + "0"), key))
        for kind, text, reason in rows:
            with self.subTest(kind=kind, text=text):
                result = kelctl("sign", kind, *KEY, stdin=text.encode())
                self.expect(result, 1, err=reason)
                self.assertEqual(result[1], "")

    def test_says_what_was_expected(self):
        ed25519 = openssl("genpkey", "-algorithm", "ed25519")
        for content, name in [(b"", "empty"), (b"x" * 4097, "long"), (ed25519, "ed25519")]:
            write(name, content)
        by_line = ["provision", *pair(), "--feature-code", "F", "--line-command"]
        for arguments, err in [(["check"], "--phone DIR"), ([], "Usage"), (["chek"], "chek"), (["sign", "x"], "x"),
                               (["explain", work("none")], work("none")), (["explain", WORK.name], "directory"),
                               (["sign", "challenge", "A", "--key", work("ed25519")], "RSA key of 2048 bits"),
                               (["sign", "challenge", "A", *KEY, "--cert", work("forger/signer.pem")], "forger"),
                               (["sign", "challenge", "A", *pair("short")], "1024 to 4095"),
                               (["authorize", work("empty")], "1 to 4096"), (["authorize", work("long")], "1 to 4096"),
                               (["provision", *pair(), "--feature-code", "a&b"], "--feature-code"),
                               ([*by_line, "true"], "ended"), ([*by_line, r"printf 'ok \\x\n'"], "backslash"),
                               (["--log", *by_line, "cat"], "--log"),
                               (["root", work("forged-root")], "not overwritten"),
                               (["signer", work("x"), *TRUE_ROOT[:3], work("forged-root/root.key")], "root.pem")]:
            with self.subTest(arguments=arguments):
                self.expect(kelctl(*arguments), 2, err=err)
        self.assertFalse(os.path.exists("/kelofs"))

    def test_makes_a_root_that_a_build_takes(self):
        self.assertEqual(run(TOOLS + "embed-root-certificate", work("root/root.pem"), work("embedded"))[0], 0)
        for key in ["root/root.key", "signer/signer.key"]:
            self.assertEqual(os.stat(work(key)).st_mode & 0o777, 0o600)

    def test_provisions(self):
        blind = f"openssl dgst -sha256 -sign {work('signer/signer.key')} | openssl base64"
        careful = f"printf %s \"${{KELCTL_RECORD:-$(cat)}}\" | {KELCTL[0]} sign $KELCTL_KIND {' '.join(KEY)}"
        feature = ["--feature-code", "F01A"]
        by_command = ["--cert", work("signer/signer.pem"), *feature, "--signer-command"]
        for chip, options in [("mediatek", feature), ("unisoc", [*feature, "--imei", "352099001761481"])]:
            self.expect(inside(chip, "check"), 1, "not valid", "open path error =/" + STORES[chip])
            self.expect(inside(chip, "provision", *pair("forger"), *options), 1, "the login", "signature failure")
            self.expect(inside(chip, "provision", *pair(), *options), 0, "provisioned")
            self.expect(inside(chip, "check"), 0, "valid")
        if not NATIVE:
            return
        for way, code in [(blind, 0), (careful, 0), (blind + "; exit 3", 1), ("echo bm8=", 1), ("/", 2)]:
            self.expect(on_phone("mediatek", "provision", *by_command, way), code)
        line = f"{KELCTL[0]} --phone {work('unisoc')} line"
        self.expect(kelctl("provision", *by_command, careful, "--line-command", line), 1, "its record", "--imei")

    def test_line_mode_survives_every_line(self):
        lines = ["challenge 4\r", "challenge 251", "challenge", "record featureCode=F", "respond " + signed("other"),
                 "", "respond \\x", "respond a\0b", "x" * 16385, "x" * 16384 + "\r", "import x", "challenge 0",
                 "respond " + signed(""), "record featureCode=a\\\\b", "import " + signed("other")]
        result = on_phone("mediatek", "line", stdin="\n".join(lines).encode())
        answers = ["ok ", "failed: challenge takes", "ok ", "failed: kelo_get_para err", "failed: signature err",
                   "failed: unknown", r"failed: a backslash stands only in \\n", "failed: a NUL", "failed: a line",
                   "failed: unknown", "failed: in == NULL", "ok", "ok", "ok buildTime=", "failed: signature err"]
        self.assertEqual(len(result[1].splitlines()), len(answers), result)
        for line, answer, expected in zip(lines, result[1].splitlines(), answers):
            self.assertTrue(answer.startswith(expected), (line, answer))
        self.assertIn("&featureCode=a\\\\b&", result[1])

    def test_one_shot_commands(self):
        report = json.loads(on_phone("mediatek", "security", "--json")[1])
        self.assertEqual((len(report), report["ro.boot.efusemode"]), (24, "hw"))
        self.expect(on_phone("mediatek", "security"), 0, f"{'ro.boot.efusemode':<42} hw\n")
        self.expect(on_phone("mediatek", "efuse"), 0, "efused")
        subprocess.run([PHONE, "set", work("mediatek"), "ro.boot.efusemode=sw"], check=True)
        self.expect(on_phone("mediatek", "--log", "efuse"), 1, "not efused", "I kelchk: chip=mt6768\n")
        os.remove(work("unisoc/vendor/lib/libefuse.so"))
        self.expect(on_phone("unisoc", "efuse"), 0, "efused", "dlopen /vendor/lib64/libefuse.so")
        reasons = "  rid=spab12cd3400000000\n  signature err\n"
        for text, code, err in [(signed(CHIP_IDS["unisoc"]), 0, ""), (signed("other"), 1, reasons)]:
            result = on_phone("unisoc", "authorize", "-", stdin=text.encode())
            self.assertEqual((result[0], result[2]), (code, err))
        write("unisoc/sys/kelonix/hwinfo/chip_uid", b"12\n")
        self.expect(on_phone("unisoc", "authorize", "-", stdin=signed("sp12").encode()), 1, err="rid=sp12\\n\n")

    def test_explains_as_the_library_judges(self):
        chip_id, bad = CHIP_IDS["mediatek"], "factoryCert=" + "A" * 1024
        good = signed(chip_id)
        cut = lambda text, count: text.replace(certificate(), certificate()[:count])
        for text, code in [
                (good, 0), (good + "&", 0), (good + "\n", 1), (good + "\0\n", 0), (good + "&x=" + "y" * 4096, 0),
                ("x=" + "y" * 2500 + "&" + good, 1), ("", 1), ("sign=&" + good, 1), (bad + "&" + good, 1),
                (cut(good, 1023), 1), (cut(good, 1024), 1), (signed(chip_id, "forger"), 1),
                (signed(chip_id, "short"), 1), (signed(chip_id, "expired"), 0), (signed("mt02"), 1),
                (good + "&sign=x", 0), (signed(chip_id, sign=signature(chip_id)[:255]), 1),
                (signed(chip_id, sign=signature(chip_id) + b"x"), 1), (signed(chip_id, cert=certificate("forger")), 1)]:
            self.agree("auFile.dat", text, code, ["--chip-id", chip_id])
        self.expect(inside("mediatek", "provision", *pair(), "--feature-code", "F"), 0)
        parts = json.loads(inside("mediatek", "explain", "--json", "/" + STORES["mediatek"] + "/startPara.dat")[1])
        text = "&".join(f"{field['key']}={field['value']}" for field in parts["fields"][:12])
        for old, new, code in [("ver=", "x=1&ver=01&psn=1&ver=", 0), ("&time=", "&tyme=", 1), ("psn=", "psn=&psn=", 1),
                               ("Aldan", "A" * 1024, 1), ("352099001761481", "3" * 1024, 0)]:
            content = signed(parts["content"].replace(old, new))
            self.agree("startPara.dat", text.replace(old, new) + "&" + content, code, [])
        self.expect(kelctl("explain", "--message", "x", "-", stdin=f"{RECORD}&{signed('x')}".encode()), 3, CONTENT)
        self.expect(kelctl("explain", "-", stdin=good.encode()), 3, "undecided")
        self.expect(kelctl("explain", "-", stdin=RECORD.encode()), 0, CONTENT)
        self.expect(kelctl("explain", "-", stdin=RECORD.replace("=01", "=02").encode()), 1, "ver must be 01")

    def agree(self, name, text, code, options):
        with self.subTest(name=name, text=text[-60:]):
            make_phones()
            os.mkdir(work("mediatek", STORES["mediatek"]))
            path = write("mediatek/" + STORES["mediatek"] + "/" + name, text.encode())
            verdict = "verdict: " + ["holds", "does not hold"][code]
            self.expect(kelctl("explain", *TRUE_ROOT[:2], *options, path), code, verdict)
            self.expect(on_phone("mediatek", "check"), code)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
