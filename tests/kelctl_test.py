#!/usr/bin/env python3
# Usage: kelctl_test.py KELCTL LIBRARY ROOT PHONE
# kelctl between stand-ins for a phone and a signer, with the programs beside it on phones that PHONE makes and runs, and
# over files. ROOT is the folder of the root that LIBRARY trusts.
import json, os, re, shlex, shutil, signal, subprocess, sys, tempfile, time, unittest

sys.dont_write_bytecode = True
from programs import (IMEI, RECORD, ProgramTest, content, issue, make_development_root, openssl, read, run, signed, work,
                      write)

KELCTL, LIBRARY, ROOT, PHONE = sys.argv[1:]
BESIDE = os.path.dirname(os.path.realpath(KELCTL))
CHIP_ID = "mt0123456789abcdef0123456789000000"  # of a phone that PHONE makes
CHALLENGE = "0123456789ABCDEF" * 4


def kelctl(*arguments, **options):
    return run(KELCTL, *arguments, **options)


def setUpModule():
    make_development_root("forged-root")  # of the same names
    issue("signer", ROOT)
    issue("forger", "forged-root")
    issue("expired", ROOT, "-days", "-1")
    issue("short", ROOT, extensions="")


def stand_in(log, answers):
    """The command of a phone or signer that writes each request to |log| and gives the answer to its verb."""
    cases = "".join(f"{verb}*) printf '%s\\n' {shlex.quote(answer)};; " for verb, answer in answers.items())
    return f"""while IFS= read -r line; do printf '%s\\n' "$line" >> {work(log)}; case $line in {cases} esac; done"""


class KelctlTest(ProgramTest):
    def provision(self, *options, phone=None, signer=None, journal="journal", **streams):
        """Runs one pass between stand-ins; |phone| and |signer| are answers that differ, or whole commands."""
        for name in ["phone.log", "signer.log", "journal"]:
            write(name, "")
        answers = [{"challenge": "ok " + CHALLENGE, "respond": "ok\r", "record": "ok " + RECORD, "import": "ok"},
                   {"challenge": "ok " + signed(CHALLENGE), "record": "ok " + signed(content(RECORD))}]
        commands = []
        for name, answer, other in zip(["phone", "signer"], answers, [phone, signer]):
            command = other if isinstance(other, str) else stand_in(name + ".log", {**answer, **(other or {})})
            commands += [f"--{name}-command", command]
        return kelctl("provision", *commands, "--feature-code", "F01A", "--journal", work(journal), *options, **streams)

    def test_provisions(self):
        self.expect(self.provision("--imei", IMEI), 0, "  deviceModel  MDF1KX67\n")
        requests = read("phone.log").decode().splitlines()
        self.assertEqual([requests[0], requests[2]], ["challenge 64", f"record featureCode=F01A&IMEI={IMEI}"])
        self.assertEqual([requests[1], requests[3]], ["respond " + signed(CHALLENGE),
                                                      "import " + signed(content(RECORD))])
        self.assertEqual(read("signer.log").decode(), f"challenge {CHALLENGE}\nrecord {RECORD}\n")
        entry = json.loads(read("journal"))
        self.assertEqual([entry[key] for key in ["record", "outcome", "step", "reasons"]],
                         [RECORD, "provisioned", "", []])
        self.assertLess(entry["start"], entry["end"])
        modem = lambda text: text.replace(IMEI, f"\r\n{IMEI}\r\nOK")
        record = "ok " + modem(RECORD).replace("\r", "\\r").replace("\n", "\\n")
        signature = {"record": "ok " + signed(modem(content(RECORD)))}
        self.expect(self.provision("--imei", IMEI, phone={"record": record}, signer=signature), 0, rf"\x0D\x0A{IMEI}")

    def test_stops_at_the_first_fault(self):
        def record(old, new):
            return {"record": "ok " + RECORD.replace(old, new)}

        def signs(*signer):
            return {"challenge": "ok " + signed(CHALLENGE, *signer)}

        foreign = "the signature does not belong to the certificate"
        # phone, signer, exit code, step, reason, requests that the signer saw
        rows = [
            ({"challenge": "ok mt0123456789abcdef0123456789000000"}, {}, 1, "challenge signature", "not one of 0-9 and A-F", 0),
            ({"challenge": "ok AB"}, {}, 1, "challenge signature", "2 characters, not 64", 0),
            ({"challenge": "failed: a; b"}, {}, 1, "challenge", "b", 0),
            ({"challenge": "ok \\x"}, {}, 4, "challenge", "backslash", 0),
            ({"challenge": "\x1b]0;x\x07\x9b31m"}, {}, 4, "challenge", "an answer begins with", 0),
            ({"respond": "failed: \u202esignature err"}, {}, 1, "login", "signature err", 1),
            ({"record": "failed: IMEI err=5"}, {}, 1, "record", "A Unisoc phone needs --imei.", 1),
            (record(IMEI, "352099001761482"), {}, 1, "record", "352099001761482", 1),
            (record("F01A", "F01B"), {}, 1, "record", "F01B", 1),
            (record("Aldan", "\x1b[2J"), {}, 1, "record signature", "deviceBrand", 1),
            (record("Aldan", "A&psn=x"), {}, 1, "record signature", "13 fields", 1),
            ({"import": "failed: psn err"}, {}, 1, "import", "psn err", 2),
            ({}, {"challenge": "failed: not allowed"}, 1, "challenge signature", "not allowed", 1),
            ({}, {"record": "ok x"}, 4, "record signature", "factoryCert is missing", 2),
            ({}, signs("forger", ("-sha256",), "signer"), 4, "challenge signature", foreign, 1),
            ({}, signs("signer", ("-sha1",)), 4, "challenge signature", foreign, 1),
            ({}, signs("signer", ("-sha256", "-sigopt", "rsa_padding_mode:pss")), 4, "challenge signature", foreign, 1),
            ({}, signs("short"), 4, "challenge signature", "1024 to 4095", 1),
            ({}, {"challenge": "ok x=1&" + signed(CHALLENGE)}, 4, "challenge signature", "holds more than", 1),
            ("echo failed", {}, 4, "challenge", "begins with", 0),
            ("printf '\\033]0;x\\007provisioned' >&2", {}, 4, "challenge", "it ended before it answered", 0),
            ("while printf x; do sleep 0.3; done", {}, 4, "challenge", "no answer within 1 seconds", 0),
            ("head -c 16385 /dev/zero", {}, 4, "challenge", "it ended before it answered", 0),
            ("cat > /dev/null", {}, 4, "challenge", "no answer within 1 seconds", 0),
            ({}, "cat > /dev/null", 4, "challenge signature", "no answer within 1 seconds", 0),
            ("head -c 16386 /dev/zero; read a", {}, 4, "challenge", "longer than the 16384 bytes", 0),
            ({}, "cat /dev/zero", 4, "challenge signature", "longer than the 16384 bytes", 0),
            ({}, "yes", 4, "challenge signature", "begins with", 0),
        ]
        for phone, signer, code, step, reason, seen in rows:
            with self.subTest(phone=phone, signer=signer):
                options = ["--timeout", "1"] if "within 1" in reason else [] if "--imei" in reason else ["--imei", IMEI]
                result = self.provision(*options, phone=phone, signer=signer)
                shown = r"the phone: \x1B]0;x\x07provisioned" if ">&2" in phone else step
                self.expect(result, code, "not provisioned\n" if code == 1 else "session failed\n", shown)
                entry = json.loads(read("journal"))
                self.assertEqual(entry["step"], step)
                self.assertIn(reason, entry["reasons"][-1])
                self.assertEqual(len(read("signer.log").splitlines()), seen)

    def on_phone(self, name, *command):
        return run(PHONE, "run", work(name), "--", BESIDE + "/kelphone", *command)

    def make_phone(self, name, chip):
        subprocess.run([PHONE, "make", work(name), "--chip", chip, "--vendor-libraries", BESIDE + "/simulator/vendor"],
                       check=True)

    def test_provisions_simulated_phones(self):
        path = {**os.environ, "PATH": os.path.dirname(PHONE) + ":" + os.environ["PATH"]}
        for chip, store, imei in [("mediatek", "persist", []), ("unisoc", "productinfo", ["--imei", IMEI])]:
            self.make_phone(chip, chip)
            provision = ["provision", "--phone", work(chip), "--cert", work("signer", "signer.pem"), "--key",
                         work("signer", "signer.key"), "--feature-code", "F01A"]
            if imei:
                self.expect(kelctl(*provision, env=path), 1, "", "A Unisoc phone needs --imei.")
            self.expect(kelctl(*provision, *imei, env=path), 0, "provisioned")
            self.expect(self.on_phone(chip, "check"), 0)
            stored = work(chip, f"mnt/vendor/{store}/startPara/startPara.dat")
            self.expect(kelctl("explain", "--root", ROOT + "/root.pem", stored), 0, "verdict: holds")

    def test_says_in_json_what_the_journal_says(self):
        result = self.provision("--json", phone={"respond": "failed: \u202e\\; b"})
        self.expect(result, 1, '"reasons": ["\\\\xE2\\\\x80\\\\xAE\\\\\\\\", "b"]')
        self.assertEqual(result.out, read("journal").decode())

    def test_ends_the_sessions_however_it_ends(self):
        def start(pids, timeout):
            command = f"trap '' HUP INT TERM; sleep 1000 & echo $! $$ > {pids}; wait; wait"
            # A test in the background of a shell inherits an ignored SIGINT.
            return subprocess.Popen([KELCTL, "provision", "--phone-command", command, "--signer-command", "cat",
                                     "--feature-code", "F", "--timeout", timeout],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))

        ends = {"SIGINT": "60", "SIGTERM": "60", "SIGKILL": "60", "timeout": "3"}
        processes = {name: start(work(name), timeout) for name, timeout in ends.items()}
        for name, process in processes.items():
            self.wait_until(lambda: os.path.exists(work(name)) and read(name).count(b" ") == 1)
            if name != "timeout":
                process.send_signal(signal.Signals[name])
        for name, process in processes.items():
            process.wait(timeout=30)
            self.wait_until(lambda: not any(self.is_running(pid.decode()) for pid in read(name).split()))

    @staticmethod
    def is_running(pid):
        try:
            return read(f"/proc/{pid}/stat").rpartition(b") ")[2][:1] != b"Z"
        except FileNotFoundError:
            return False

    def wait_until(self, holds):
        deadline = time.monotonic() + 10
        while not holds():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.02)

    def test_says_what_cannot_be_used(self):
        phone, signer = ["--phone-command", "cat"], ["--signer-command", "cat"]
        feature, key = ["--feature-code", "F"], ["--key", "k"]
        for arguments, err in [
                ([], "a command"), (["che\x1bk"], "che\\x1Bk"), (["provision", "--phone", "", *signer, *feature], "--phone"),
                (["provision", *phone, *feature, "--key", "", "--cert", ROOT + "/root.pem"], "--key"),
                (["provision", "--phone-command", "", *signer, *feature], "--phone-command"), (["provision", *phone, *signer], "--feature-code"),
                (["provision", *phone, *signer, "--feature-code", "a&b"], 'without \\"&\\"'.replace("\\", "")),
                (["provision", *phone, *signer, "--feature-code", "\x1b[2J"], "printable"),
                (["provision", *phone, *signer, *feature, "--imei", "12"], "15 digits"),
                (["provision", *phone, *signer, *feature, "--timeout", "0"], "--timeout"),
                (["provision", *phone, *feature, *key], "--cert"), (["provision", *signer, *feature], "--phone"),
                (["provision", *phone, *signer, *feature, *key, "--cert", ROOT + "/root.pem"], "option"), (["explain"], "FILE"),
                (["provision", "--phone", BESIDE, *signer, *feature], "kelchk-simulated-phone: cannot be read"),
                (["provision", *phone, *feature, *key, "--cert", ROOT + "/root.pem"], "k: cannot be read"),
                (["explain", work("none\x1b")], "none\\x1B: cannot be opened"), (["explain", work()], "directory"),
                (["explain", "/dev/zero"], "16777216 bytes"), (["explain", "--root", "/dev/zero", "x"], "1048576 bytes"),
                (["explain", "--root", work("extensions"), "x"], "one certificate in PEM was expected")]:
            with self.subTest(arguments=arguments):
                self.expect(kelctl(*arguments), 2, err=err)
        self.expect(self.provision(journal="none/journal"), 2, "provisioned\n", "none/journal")
        with open("/dev/full", "w") as full:
            for arguments in [["--help"], ["explain", ROOT + "/root.pem"], ["explain", "--json", ROOT + "/root.pem"]]:
                self.assertEqual(kelctl(*arguments, stdout=full).code, 2)
            self.assertEqual(self.provision(stdout=full).code, 2)
            self.assertIn("standard output: cannot be written", json.loads(read("journal"))["reasons"][0])
            self.assertEqual(self.provision("--json", stdout=full).code, 2)
            self.assertEqual(json.loads(read("journal"))["outcome"], "provisioned")

    def test_judges_as_the_library_does(self):
        chip_id, root = CHIP_ID, ["--root", ROOT + "/root.pem"]
        good, bad = signed(chip_id), "factoryCert=" + "A" * 1024
        parts = dict(field.split("=", 1) for field in good.split("&"))
        whole = RECORD + "&" + signed(content(RECORD))

        def resigned(old, new, signed_as=None):
            return RECORD.replace(old, new) + "&" + signed(signed_as or content(RECORD).replace(old, new))

        by_id, by_root = [*root, "--chip-id", chip_id], root
        rows = [  # text, options, exit code, words
            (good, by_id, 0, "holds signature   the signature belongs to the certificate and these 34 characters"),
            (good + "&", by_id, 0, ""), (good + "\0\n", by_id, 0, ""), (good + "&x=" + "y" * 4096, by_id, 0, "longer"),
            (good + "\n", by_id, 1, "sign ends in a line break"), ("", by_id, 1, "no record, certificate or library"),
            ("x=" + "y" * 2500 + "&" + good, by_id, 1, "length"), ("sign=&" + good, by_id, 1, "sign appears 2 times"),
            (bad + "&" + good, by_id, 1, "not a certificate in DER"), (good, root, 3, "--message or --chip-id"),
            (good, by_id[2:], 3, "name the root"), (good, [*root, "--message", "mt02"], 1, "does not belong"),
            (f"factoryCert={parts['factoryCert'][:1023]}&sign={parts['sign']}", by_id, 1, "has 1023 characters"),
            (good[:600], by_id, 1, "the file is cut: it ends in factoryCert, after 588"),
            (good[:-100], by_id, 1, "the file is cut: it ends in sign, after 244"),
            (signed(chip_id, "forger"), by_id, 1, "did not issue the certificate: "),
            (signed(chip_id, "expired"), by_id, 0, "a phone does not mind: certificate has expired"),
            (signed(chip_id, "short"), by_id, 1, "1024 to 4095"),
            (signed(chip_id, "signer", ("-sha1",)), by_id, 1, "does not belong"),
            (whole, by_root, 0, "it has its twelve values"), (whole[:200], by_root, 1, "the file is cut: it ends in"),
            (whole[:400], by_root, 1, "the file is cut: it ends in factoryCert"),
            (resigned("Aldan", "A" * 1024), by_root, 1, "deviceBrand is too long to be compared"),
            (resigned(IMEI, "3" * 1024), by_root, 0, "warns policy      a signer would not sign this record: imei"),
            (resigned("&ver=", "&psn=1&ver=", content(RECORD)), by_root, 0, "psn appears 2 times"),
            (resigned("&time=", "&tyme=", "x"), by_root, 1, "time is missing"),
            (RECORD, [], 0, "canonical content, 157 characters\n  " + content(RECORD)),
            (RECORD.replace("=01", "=02"), [], 1, "ver must be 01"), (RECORD[:100], [], 1, "the file is cut"),
        ]
        self.make_phone("judge", "mediatek")
        stored = work("judge", "mnt/vendor/persist/startPara")
        os.mkdir(stored)
        for text, options, code, words in rows:
            with self.subTest(text=text[-60:], options=options):
                result = kelctl("explain", *options, "-", stdin=text.encode())
                self.expect(result, code, words)
                self.expect(result, code, "verdict: " + ["holds", "does not hold", "", "undecided"][code])
                if options == by_id:
                    shutil.rmtree(work("judge", "kelofs/startPara"), ignore_errors=True)
                    write(stored + "/auFile.dat", text)
                    self.assertEqual(self.on_phone("judge", "check").code, code)

    def test_explains_certificates_and_the_library(self):
        root, forged = ROOT + "/root.pem", work("forged-root/root.pem")
        bundle = write("bundle", read("signer/signer.pem") + read("forger/signer.pem") + b"trailing bytes")
        library = read(LIBRARY)
        fingerprint = openssl("x509", "-in", root, "-noout", "-fingerprint", "-sha256").decode().split("=")[1]
        for content, options, code, words in [
                (read(root), [], 0, "holds root        it is self-signed"),
                (read(root), ["--root", forged], 1, "it is not the root given"),
                (read("signer/signer.pem"), ["--root", root], 0, "the root issued the certificate"),
                (read("short/signer.pem"), ["--root", root], 1, "1024 to 4095"), (read("signer/signer.pem"), [], 3, ""),
                (read(bundle), ["--root", root], 1, "fails chain       certificate 2: "),
                (read(root)[:500], [], 1, "the file is cut"),
                (re.sub(b"MII", b"---", read(root), 1), [], 1, "it cannot be read"),
                (library, [], 0, fingerprint), (library, ["--root", root], 0, "it is the root given"),
                (library, ["--root", forged], 1, "it is not the root given"),
                (library[:len(library) // 2], [], 1, "the file is cut"), (library[:5], [], 1, "the file is cut"),
                (library.replace(b"BEGIN CERT", b"BEGIN cert"), [], 1, "it embeds 0 certificates"),
                (library + read(root), [], 1, "it embeds 2 certificates")]:
            with self.subTest(content=content[-40:], options=options):
                self.expect(kelctl("explain", *options, "-", stdin=content), code, words)

    def test_sums_up_several_files(self):
        record, signer = write("record", RECORD), write("authorization", signed("mt01"))
        self.expect(kelctl("explain", record, signer), 3, f"files\n  holds          {record}: device parameter record")
        self.expect(kelctl("explain", record, "/dev/zero", signer), 2, "  unreadable     /dev/zero\n")
        objects = [json.loads(line) for line in kelctl("explain", "--json", record, signer)[1].splitlines()]
        self.assertEqual([file["verdict"] for file in objects], ["holds", "undecided"])
        self.assertEqual(objects[0]["fields"][4], {"key": "deviceBrand", "value": "Aldan"})
        self.assertEqual(objects[1]["certificates"][0]["key"], "RSA of 2048 bits")

    def test_shows_every_byte_as_itself(self):
        os.mkdir(work("names"))
        root = work("names", "\x1b[31m\u202e\xe9")
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", os.devnull, "-out", root, "-utf8",
                "-subj", "/CN=\x1b]0;x\x07 verdict: holds\u202e")
        self.expect(kelctl("explain", root), 0, r'CN="\x1B]0;x\x07 verdict: holds\xE2\x80\xAE"')
        shown = set()
        values = ["\x1b", "\\x1B", "\\\\x1B", "\n", "\\n", "\\x0A", "\x9b", "\xc2\x9b", "\ufffd", '"', "\x7f"]
        for value in values:
            record = RECORD.replace("Aldan", value).encode("latin-1" if ord(value[0]) < 256 else "utf-8")
            for options in [], ["--json"]:
                result = kelctl("explain", *options, "-", stdin=record)
                self.expect(result, 1 if not value.isprintable() or not value.isascii() else 0)
                shown.add(result.out)
        self.assertEqual(len(shown), 2 * len(values))

    def test_starts_the_programs_beside_it(self):
        with tempfile.TemporaryDirectory() as folder:  # one that may hold programs
            shutil.copy(KELCTL, folder)
            for name in ["phone", "kelphone", "kelsign"]:
                program = write(f"{folder}/{name}", f"#!/bin/sh\necho {name} $* > {folder}/{name}.started\nsleep 1000\n")
                os.chmod(program, 0o755)
            write(".kelchk-simulated-phone", "")
            result = run(folder + "/kelctl", "provision", "--phone", work(), "--key", "pkcs11:x", "--cert",
                         ROOT + "/root.pem", "--feature-code", "F", "--timeout", "1")
            self.assertEqual(result.code, 4, result)
            for name, command in [("phone", f"phone run {work()} -- {folder}/kelphone line\n"),
                                  ("kelsign", f"kelsign line --key pkcs11:x --cert {ROOT}/root.pem --feature-code F\n")]:
                self.assertEqual(read(f"{folder}/{name}.started").decode(), command)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
