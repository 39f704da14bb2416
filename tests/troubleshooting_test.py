#!/usr/bin/env python3
# Usage: troubleshooting_test.py PHONE ROOT [EMULATOR] KELPHONE
# Reproduces each row of docs/troubleshooting.md on a simulated phone: sets up its fault and finds its words.
import fcntl, os, re, sys, unittest

sys.dont_write_bytecode = True
import kelphone_test as kelphone
from kelphone_test import BACKUP, LOG, ROOT, STORED as GOOD, STORES, make_phone, on_phone, remove, set_property, store
from programs import LONG_COMMENT, content, encoded_certificate, issue, make_development_root, read, signed, work

PAGE = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../docs/troubleshooting.md")
ANSWERS = {"Not valid": (1, "not valid"), "Valid, with a remark": (0, "valid")}
M, U = "mediatek", "unisoc"
PRIMARY, SECOND, IMEI = STORES[M] + "startPara.dat", BACKUP + "startPara.dat", "vendor/modem/imei"


def setUpModule():
    kelphone.setUpModule()
    make_development_root("forged-root")  # of the same names
    for chip in (M, U):
        kelphone.KelphoneTest().stored(chip)


# A fault takes the chip of a provisioned phone. When it returns no text, the output to judge is that of a check.
gone = lambda *paths: lambda chip: remove(*paths)
prop = lambda value: lambda chip: set_property(value)
fifo_at = lambda path: lambda chip: (remove(path), os.mkfifo(work("phone", path)))
folder_at = lambda *paths: lambda chip: (remove(*paths), [os.mkdir(work("phone", path)) for path in paths])
no_access = lambda *paths: lambda chip: (
    [os.chmod(work("phone", path), 0) for path in paths], on_phone("check", before=["--no-override"]).out)[1]
other_phone = lambda *options: lambda chip: (make_phone(chip, *options), store(GOOD[chip], chip))
both = lambda first, second: lambda chip: (first(chip), second(chip))[1]
change = lambda old, new: lambda chip: store(GOOD[chip].replace(old, new, 1), chip)
put = lambda text, **where: lambda chip: store(text, chip, **where)
authorization = lambda chip_id: lambda chip: store(signed(chip_id), chip, "auFile.dat")


def put_signer(**options):  # the good signature with another certificate
    def fault(chip):
        issue("other", options.pop("root", ROOT), **options)
        certificate = b"factoryCert=" + encoded_certificate("other").encode()
        store(re.sub(b"factoryCert=[^&]*", certificate, GOOD[chip]), chip)
    return fault


def locked(chip):
    folder = os.open(work("phone/kelofs"), os.O_RDONLY)
    fcntl.flock(folder, fcntl.LOCK_EX)
    result = on_phone("check", "--wait", "0")
    os.close(folder)
    return result.err


def service(fault):
    def line(chip):
        fault(chip)
        on_phone("check", "--service", "--wait", "1", env={**os.environ, "KELCHK_LOG": LOG})
        return read("phone" + LOG).decode()
    return line


def session(*requests):  # the answer to the last one. A callable makes its request of the answer before
    def fault(chip):
        phone, answer = kelphone.Session(), ""
        for request in requests:
            request = request(answer[3:]) if callable(request) else request
            answer = phone.ask(request)
        phone.end()
        return f"{request.split(' ')[0]} {answer}"
    return fault


login = lambda change=str: ("challenge 8", lambda challenge: "respond " + change(signed(challenge)))
login_with = lambda old, new: session(*login(lambda response: re.sub(old, new, response)))
other_import = lambda _: "import " + signed("other")
RECORD = "record featureCode=F01A"
differs = 'this phone has changed: {} is "…", the file says "…"'.format
unread = "this phone's {} cannot be read".format
FAULTS = {
    "this phone was never provisioned": (M, gone(PRIMARY, SECOND)),
    "store cannot be used: …: No such file or directory": (M, both(put(b"x"), gone("kelofs"))),
    "store cannot be used: …: Permission denied": (M, no_access("kelofs/startPara", PRIMARY)),
    "file: Permission denied": (M, no_access(PRIMARY, SECOND)),
    "file: Is a directory": (M, folder_at(PRIMARY, SECOND)),
    "file, …: not a regular file": (M, both(put(b"x"), fifo_at(PRIMARY))),
    "file, …: missing": (M, both(put(b"x"), gone(PRIMARY))),
    "it is empty": (M, put(b"")),
    "it holds no signer certificate: it is cut, or no signed file": (M, put(b"cut")),
    "its signer certificate is damaged": (M, change(b"factoryCert=M", b"factoryCert=?")),
    "it holds no signature": (M, change(b"&sign=", b"&sing=")),
    "its signature is damaged": (M, change(b"&sign=", b"&sign=A")),
    "its signer's key cannot be used": (M, put_signer(key="ed25519", extensions=LONG_COMMENT + "c" * 300)),
    "its record is too long": (M, change(b"&featureCode=", b"&featureCode=" + b"F" * 1980)),
    "its record lacks …": (M, change(b"&phoneMac=", b"&phoneMac=&")),
    "its signer is of another root: …": (M, put_signer(root="forged-root")),
    "its signer certificate is not accepted: …": (M, put_signer(extensions=LONG_COMMENT + "\n1.2.3.4=critical,ASN1:NULL")),
    "its content was changed: the signature does not fit": (M, change(b"F01A", b"F01B")),
    'another phone\'s, or changed: the signature does not fit this phone\'s chip id "…"': (M, both(
        gone(PRIMARY, SECOND), authorization("mt01"))),
    'this phone\'s chip id "…\\x0A"': (U, both(other_phone("--rid", "AB12CD34\n"), authorization("spab12cd34"))),
    'the stored file is another phone\'s: cpuID is "…", the file says "…"': (M, other_phone("--serial", "5")),
    differs("buildType"): (M, prop("ro.debuggable=1")),
    differs("buildTime"): (M, prop("ro.system.build.version.incremental=20240101V3")),
    differs("countrySha"): (U, other_phone("--country", "0|US|1|x")),
    differs("deviceBrand"): (M, prop("ro.product.brand=Other")),
    differs("deviceModel"): (M, prop("ro.product.device=Other_M1")),
    differs("phoneMac"): (M, other_phone("--mac", "0123456789AB")),
    differs("psn"): (M, other_phone("--psn", "KX67000000000009")),
    differs("imei"): (U, other_phone("--imei", "352099001761507")),
    unread("chip id"): (M, gone("proc/rid")),
    unread("build type"): (M, prop("ro.build.type=")),
    unread("build version"): (M, prop("ro.system.build.version.incremental=1")),
    unread("country configuration"): (M, gone("vendor/nvdata/APCFG/APRDEB/ANTI_CS")),
    unread("brand"): (M, prop("ro.product.brand=")),
    unread("model"): (M, prop("ro.product.device=")),
    unread("Wi-Fi address"): (M, gone("mnt/vendor/nvdata/APCFG/APRDEB/WIFI")),
    unread("serial number"): (U, gone("dev/block/by-name/miscdata")),
    unread("IMEI") + ": the modem did not answer": (U, gone(IMEI)),
    "the … was repaired": (M, put(b"damaged", stores=[STORES[M]])),
    "the … was missing and was made again": (M, gone(SECOND)),
    "the … could not be repaired: …": (M, folder_at(PRIMARY)),
    "the backup differs from it": (M, put(b"damaged", stores=[BACKUP])),
    "the backup cannot be read: …": (M, no_access(SECOND)),
    "parameter file: valid, … authorization file: …": (M, authorization("mt01")),
    "checked without the lock: …": (M, gone("kelofs")),
    "another process uses this phone: /kelofs was locked for … seconds": (M, locked),
    "undecided; …": (U, service(gone(IMEI))),
    "no answer from this phone within … seconds": (U, service(fifo_at(IMEI))),
    "cannot set ro.vendor.kelchk.verdict": (M, service(prop("ro.vendor.kelchk.verdict=0"))),
    "authorize failed … signature err": (M, lambda _: "authorize " + on_phone(
        "authorize", "-", stdin=signed("mt01").encode()).out),
    "respond failed: getValueByKey factoryCert err": (M, login_with("=.*&", "=" + "A" * 1000 + "&")),
    "respond failed: get sub_cert err": (M, login_with("=", r"=-----BEGIN\\n")),
    "respond failed: signature_bin_len err=0": (M, login_with("$", r"\\n")),
    "respond failed: signature_bin_len err=512": (M, login_with("&sign=.*", "&sign=" + "A" * 683 + "=")),
    "respond failed: signature err": (M, session("challenge 8", lambda text: "respond " + signed(text + "\n"))),
    "record failed: kelo_get_para err": (M, session(RECORD)),
    "record failed: featureCode err": (M, session(*login(), "record x=F01A")),
    "record failed: IMEI err=": (U, session(*login(), RECORD)),
    "import failed: signature err": (M, session(*login(), RECORD, other_import)),
    "import failed: buildTime err": (M, session(*login(), other_import)),
    "import failed: … copy_file_sync err": (M, both(folder_at(SECOND), session(
        *login(), RECORD, lambda record: "import " + signed(content(record))))),
}


class TroubleshootingTest(unittest.TestCase):
    def test_every_row(self):
        with open(PAGE) as page:
            sections = page.read().split("\n## ")[1:]
        rows = {" ".join(re.findall("`(.*?)`", cell)): section.split("\n")[0] for section in sections
                for cell in re.findall(r"^\| (.*?) \|", section, re.M) if "`" in cell and " prints" not in cell}
        self.assertEqual(sorted(FAULTS), sorted(rows))
        for words, (chip, fault) in FAULTS.items():
            with self.subTest(row=words):
                make_phone(chip)
                store(GOOD[chip], chip)
                out = fault(chip)
                if not isinstance(out, str):
                    code, out, _ = on_phone("check")
                    first = out.split("\n")[0]
                    self.assertEqual((code, first), ANSWERS[rows[words]])
                    self.assertEqual("  check_para_file ret =-1\n" in out, code == 1)
                self.assertRegex(out.replace("\n", " "), re.escape(words).replace("…", ".*"))


unittest.main(argv=sys.argv[:1])
