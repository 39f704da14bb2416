#!/usr/bin/env python3
# Usage: kelsign_test.py KELSIGN CLASS
# Runs one class of tests: KelsignTest, or ModuleTest with keys in SoftHSM.
import base64, glob, json, os, pty, re, resource, select, subprocess, sys, time, unittest

sys.dont_write_bytecode = True
from programs import RECORD, TOOLS, ProgramTest, content, openssl, read, run, signed, work, write

KELSIGN = sys.argv[1]
CONTENT = content(RECORD)


def kelsign(*arguments, **options):
    return run(KELSIGN, *arguments, **options)


def pair(folder="signer", name="signer"):
    return ["--key", work(folder, name + ".key"), "--cert", work(folder, name + ".pem")]


ROOT = ["--root", work("root/root.pem"), "--root-key", work("root/root.key")]
KEY = pair()[:2]
LINE = ["line", *pair(), "--feature-code", "F01A", "F02"]


def setUpModule():
    for command in [["root", work("root")], ["signer", work("signer"), *ROOT], ["root", work("other")]]:
        assert kelsign(*command) == (0, "", ""), command


class KelsignTest(ProgramTest):
    def test_signs_what_openssl_signs(self):
        for kind, text, message in [("challenge", "0AF9", "0AF9"), ("record", RECORD, CONTENT),
                                    ("chip-id", "sp\n1", "sp\n1")]:
            expected = signed(message)
            self.expect(kelsign("sign", kind, *KEY, stdin=text.encode() + b"\n"), 0, expected[-344:] + "\n")
            self.assertEqual(kelsign("sign", kind, text, "--signed-record", *pair()), (0, expected, ""))

    def test_refuses_to_sign(self):
        rows = [("challenge", "", "1 to 250"), ("challenge", "A" * 251, "1 to 250"),
                ("challenge", "0aF", "0-9 and A-F"), ("record", CONTENT, "1 fields"), ("record", "", "1 fields"),
                ("chip-id", "mt", "chip id"), ("chip-id", "0AF9", "chip id"), ("chip-id", "mtAB", "capital"),
                ("chip-id", "sp" + "1" * 255, "chip id"), ("chip-id", "mt0\0", "character 4"), ("chip-id", "mt0\x1b", "ASCII")]
        for old, new, reason in [
                ("&ver=01", "", "11 fields"), ("user", "us&er", "13 fields"), ("psn=", "ver=01&psn=", "13 fields"),
                ("imei=", "imei2=", "no imei="), ("buildTime", "buildDate", "no buildTime"), ("Aldan", "A" * 92, "Brand"),
                ("Aldan", "", "Brand"), ("mt01", "xx01", "cpuID"), ("KX67000", "KX6700", "psn"), ("0A0", "0A", "Sha"),
                ("0A0", "0a0", "countrySha"), ("-153012", "-15301", "time"), ("ver=01", "ver=02", "ver"),
                ("=user", "=users", "buildType"), ("MDF1", "MDF", "Model"), ("0429-", "1329-", "time"),
                ("Aldan", "Al\x9b31m", "deviceBrand"), ("F01A", "F\r1", "character 2"), ("20240429V3", "2\n", "buildTime"),
                ("KX6700000", "KX67\n0000", "psn"), ("000AF5", "0\x7f", "phoneMac")]:
            rows.append(("record", RECORD.replace(old, new, 1), reason))
        for key, longest in [("buildTime", "2" * 91), ("cpuID", "sp" + "\n" * 254), ("deviceModel", "MDF1" + "K" * 91),
                             ("featureCode", "F" * 127), ("imei", "\r" * 255), ("phoneMac", "\n" * 127)]:
            with_value = lambda value: re.sub(f"{key}=[^&]*", f"{key}={value}", RECORD)
            self.expect(kelsign("sign", "record", with_value(longest), *KEY), 0)
            rows.append(("record", with_value(longest + "0"), key))
        for kind, text, reason in rows:
            with self.subTest(kind=kind, text=text):
                result = kelsign("sign", kind, *KEY, stdin=text.encode("latin-1"))
                self.expect(result, 1, err=reason)
                self.assertEqual(result[1], "")

    def test_says_what_was_expected(self):
        write("ed25519", openssl("genpkey", "-algorithm", "ed25519"))
        request = openssl("req", "-new", "-key", KEY[1], "-subj", "/O=Provisioning/CN=Provisioning root", "-utf8")
        body = base64.b64decode(b"".join(request.splitlines()[1:-1]))
        pem = lambda der: request.splitlines()[0] + b"\n" + base64.encodebytes(der) + request.splitlines()[-1] + b"\n"
        forged = write("forged.csr", pem(body[:-1] + bytes([body[-1] ^ 1])))
        weak = write("weak.csr", pem(body.replace(b"\x02\x03\x01\x00\x01", b"\x02\x03\x01\x00\x02")))  # its exponent
        short = openssl("x509", "-req", "-CA", ROOT[1], "-CAkey", ROOT[3], stdin=request)
        os.mkdir(work("linked"))
        os.symlink(work("none"), work("linked/root.key"))
        signer = ["signer", work("x"), *ROOT]
        module = "pkcs11:token=T;object=o"
        for arguments, err in [
                ([], "subcommand is required"), (["sing"], "sing"), (["sign", "x"], "x"), (["si\x1bgn\n"], r"si\x1Bgn\x0A"),
                (["sign", "challenge", "A", "--key", work("no\x9bne")], r"no\xC2\x9Bne: cannot be opened: No such file"),
                (["sign", "challenge", "A", "--key", "/dev/zero"], "/dev/zero: holds more than the 65536 bytes"),
                (["sign", "challenge", "A", *KEY, "--cert", "/dev/zero"], "/dev/zero: holds more than the 65536 bytes"),
                (["sign", "challenge", "A", *KEY, "--cert", KEY[1]], "a certificate in PEM"),
                (["sign", "challenge", "A", "--key", pair()[3]], "a private key in PEM"),
                (["sign", "challenge", "A", "--key", work("ed25519")], "RSA key of 2048 bits"),
                (["sign", "challenge", "A", *KEY, *pair("root", "root")[2:]], "certificate of the given key"),
                (["sign", "challenge", "A", *KEY, "--cert", write("short", short)], "1024 to 4095"),
                (["root", work("root")], "File exists"), (["root", work("linked")], "File exists"),
                (["root", work("x"), "--days", "0"], "--days"),
                (["root", work("x"), "--name", "n" * 65], "1 to 64 characters"), (["root", "/dev/null/x"], "Not a directory"),
                ([*signer[:3], ROOT[1], "--root-key", work("other/root.key")], "certificate of the given key"),
                ([*signer, "--name", "Provisioning root"], "another name"), ([*signer, "--csr", forged], "its own key"),
                ([*signer, "--csr", write("root.csr", request)], "another name"), ([*signer, "--csr", KEY[1]], "request"),
                ([*signer, "--csr", weak], "not safe"), ([*LINE, "--journal", ""], "--journal: a value was expected"),
                ([*signer, "--csr", forged, *KEY], "excludes"), ([*LINE[:5], "--feature-code", ""], "--feature-code"),
                ([*LINE, "--chip-ids", "/dev/null"], "--allow"), ([*LINE, "--allow", "all"], "all"),
                ([*LINE, "--allow", "chip-id", "--chip-ids", "/dev/zero"], "67108864"),
                (["root", work("x"), "--key", module], "no PIN"), (["root", work("x"), "--key", "pkcs11:object=o;token="], "token or"),
                (["root", work("x"), "--key", module + "?pin-value=6789"], "other users"),
                (["root", work("x"), "--kye", "Pkcs11:PIN-value=6789"], "other users"),
                (["root", work("x"), "--key", module + ";pin-source=/dev/null"], "after"),
                (["root", work("x"), "--key", module + "?pin-source=/dev/null"], "empty"),
                (["root", work("x"), "--key", module + "?pin-source=%2Fdev%2fzero"], "/dev/zero: holds more than the 255")]:
            with self.subTest(arguments=arguments):
                result = kelsign(*arguments, start_new_session=True)
                self.expect(result, 2, err=err)
                self.assertNotIn("6789", result[2])
        with open("/dev/zero", "rb") as zero:
            result = subprocess.run([KELSIGN, "sign", "record", *KEY], stdin=zero, capture_output=True)
        self.assertEqual((result.returncode, b"16384 bytes" in result.stderr), (2, True))

    def test_output_that_is_lost_is_an_error(self):
        for arguments in [["--help"], ["--version"], ["sign", "challenge", "A", *KEY], LINE]:
            with open("/dev/full", "w") as full:
                self.expect(kelsign(*arguments, stdin=b"challenge A\n", stdout=full), 2, err="cannot be written: No space")

    def test_makes_certificates_for_keys_and_requests(self):
        self.assertEqual(subprocess.run([TOOLS + "embed-root-certificate", ROOT[1], work("embedded")]).returncode, 0)
        request = write("request", openssl("req", "-new", "-key", KEY[1], "-subj", "/CN=asked"))
        for folder, options, subject in [("by-key", KEY, "O = Provisioning, CN = Provisioning signer"),
                                         ("by-csr", ["--csr", request], "CN = asked"),
                                         ("named", ["--csr", request, "--name", "x", "--days", "1"], "CN = x")]:
            self.assertEqual(kelsign("signer", work(folder), *ROOT, *options), (0, "", ""))
            self.assertEqual(os.listdir(work(folder)), ["signer.pem"])
            self.assertIn(subject, openssl("x509", "-noout", "-subject", "-in", work(folder, "signer.pem")).decode())
            openssl("verify", "-CAfile", work("root/root.pem"), work(folder, "signer.pem"))
            self.expect(kelsign("sign", "challenge", "A", *KEY, "--cert", work(folder, "signer.pem")), 0)
        for days, code in [("86000", 0), ("86401", 1)]:
            check = ["openssl", "x509", "-noout", "-checkend", days, "-in", work("named/signer.pem")]
            self.assertEqual(subprocess.run(check, stdout=subprocess.DEVNULL).returncode, code)

    def test_folders_and_files_have_their_modes_under_every_umask(self):
        for mask in (0, 0o777):
            folder = f"masked{mask}"
            self.expect(kelsign("root", work(folder, "inner"), umask=mask), 0)
            for name, mode in [("", 0o700), ("inner", 0o700), ("inner/root.key", 0o600), ("inner/root.pem", 0o644)]:
                self.assertEqual(os.stat(work(folder, name)).st_mode & 0o777, mode, name)

    def test_full_disk_leaves_no_half_pair(self):
        for limit, path in [(1000, "root.key"), (1750, "root.pem")]:  # the key has about 1704 bytes
            limit_files = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
            result = kelsign("root", work("full"), "--name", "\U00010000" * 64, preexec_fn=limit_files,
                             restore_signals=False)
            self.expect(result, 2, err=path + ": cannot be written: File too large")
            self.assertEqual(os.listdir(work("full")), [])

    def test_line_session(self):
        list_path = write("list", b"mt01\r\nsp02\nspAA")
        chip_ids = ["--allow", "chip-id", "--chip-ids", list_path]
        encoded = RECORD.replace("mt01", r"sp\r\n2")
        rows = [("challenge 0AF9", [], signed("0AF9")), ("challenge 0AF9\r", [], signed("0AF9")),
                ("challenge", [], "1 to 250"), ("record " + RECORD, [], signed(CONTENT)),
                ("record " + encoded, [], signed(CONTENT.replace("mt01", "sp\r\n2"))),
                ("record " + RECORD.replace("F01A", "F02"), [], signed(CONTENT.replace("F01A", "F02"))),
                ("record " + RECORD.replace("F01A", "F03"), [], "featureCode"), ("record " + CONTENT, [], "1 fields"),
                ("chip-id mt01", [], "signs no chip id"), ("chip-id mt01", chip_ids[:2], signed("mt01")),
                ("chip-id mt01", chip_ids, signed("mt01")), (r"chip-id sp02\n", chip_ids, signed("sp02\n")),
                (r"chip-id sp02\n\n", chip_ids, "list"), ("chip-id sp03", chip_ids, "list"),
                ("chip-id spAA", chip_ids, "capital"), ("sign\x1b", [], r'unknown request "sign\x1B"')]
        for request, options, expected in rows:
            with self.subTest(request=request[:60], options=options):
                result = kelsign(*LINE, *options, stdin=request.encode() + b"\nchallenge A\n")
                self.assertEqual(result[0], 0, result)
                answers = result[1].splitlines()
                self.assertEqual(answers[1:], ["ok " + signed("A")])
                prefix = "ok" if expected.startswith("factoryCert") else "failed"
                self.assertRegex(answers[0], f"^{prefix}:? .*{re.escape(expected)}")

    def test_journal(self):
        write("journal", '{"time": "cut')
        requests = "challenge 0A\nrecord a\\nb\x1b\nchip-id mt01\n"
        self.expect(kelsign(*LINE, "--journal", work("journal"), stdin=requests.encode()), 0)
        unfinished, *lines = read("journal").decode().splitlines()
        self.assertEqual(unfinished, '{"time": "cut')
        self.assertEqual([list(json.loads(line).values())[1:4] for line in lines],
                         [["challenge", "0A", "signed"], ["record", "a\\x0Ab\\x1B", "refused"],
                          ["chip-id", "mt01", "refused"]])
        for line in lines:
            self.assertRegex(json.loads(line)["time"], r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d\d\dZ$")
        for place, err in [("/dev/full", "regular file"), (work(), "directory"), (work("none/journal"), "No such file")]:
            self.assertEqual(kelsign(*LINE, "--journal", place, stdin=b"challenge 0A\n")[:2], (2, ""), err)
        limit_files = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))
        result = kelsign(*LINE, "--journal", work("small"), stdin=b"challenge 0A\n" * 12, preexec_fn=limit_files,
                         restore_signals=False)
        self.assertEqual((result[0], result[1].count("ok ")), (2, read("small").count(b"\n")))

    def test_journal_is_kept_before_the_answer_and_can_be_rotated(self):
        with subprocess.Popen([KELSIGN, *LINE, "--journal", work("rotated")], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as session:
            for i in range(3):
                session.stdin.write(b"challenge 0A\n")
                session.stdin.flush()
                session.stdout.readline()
                os.rename(work("rotated"), work(f"rotated{i}"))
                self.assertEqual(read(f"rotated{i}").count(b'"signed"'), 1)
            session.stdin.close()


class ModuleTest(ProgramTest):
    MODULE = "/usr/lib/softhsm/libsofthsm2.so"

    @classmethod
    def setUpClass(cls):
        """Makes two tokens, each with a key, by the commands of the page."""
        with open(TOOLS + "../docs/signing.md", encoding="utf-8") as page:
            commands = re.search(r"^```sh\n([^`]*softhsm2-util --init-token[^`]*)^```$", page.read(), re.M)[1]
        subprocess.run(["bash", "-euc", commands], cwd=work(), check=True, capture_output=True)
        os.environ["SOFTHSM2_CONF"] = work("softhsm2.conf")
        cls.PIN = read("pin").decode()
        cls.source = "?pin-source=" + work("pin")
        cls.root, cls.signer = (f"pkcs11:token={token};object={key};type=private"
                                for token, key in [("vault", "root"), ("server", "signer")])

    def test_root_and_signer_live_in_the_module(self):
        module_root = work("module-root")
        self.assertEqual(kelsign("root", module_root, "--key", self.root + self.source), (0, "", ""))
        options = ["--root", module_root + "/root.pem", "--root-key", self.root + self.source]
        signer = [work("module-signer"), *options, "--key", self.signer + self.source]
        self.assertEqual(kelsign("signer", *signer), (0, "", ""))
        self.assertEqual(os.listdir(module_root) + os.listdir(work("module-signer")), ["root.pem", "signer.pem"])
        certificate = work("module-signer/signer.pem")
        openssl("verify", "-CAfile", module_root + "/root.pem", certificate)
        session = ["line", "--key", self.signer + self.source, "--cert", certificate, "--feature-code", "F"]
        code, out, err = kelsign(*session, stdin=b"challenge 0A\n" * 3)
        self.assertEqual((code, err, len(set(out.splitlines()))), (0, "", 1))
        signature = write("signature", base64.b64decode(out.splitlines()[0].split("&sign=")[1]))
        public = write("public", openssl("x509", "-in", certificate, "-noout", "-pubkey"))
        openssl("dgst", "-sha256", "-verify", public, "-signature", signature, stdin=b"0A")
        self.expect(kelsign("sign", "challenge", "0A", "--key", self.root + self.source, "--cert", certificate), 2,
                    err="certificate of the given key")

    def test_tries_one_pin_once_and_never_shows_it(self):
        spy = {"PKCS11SPY": self.MODULE, "PKCS11SPY_OUTPUT": work("spy")}
        spied = "module-path=" + glob.glob("/usr/lib/*/pkcs11-spy.so")[0]
        good, bad = self.PIN, "73552"
        file = lambda name, text: "?pin-source=file:" + write(name, text) + "&" + spied
        for source, pin, code, err in [
                (file("good", good), None, 0, ""), (file("crlf", good + "\r\n"), bad, 0, ""), ("?" + spied, good, 0, ""),
                ("?" + spied, good + "\n", 0, ""), (file("bad", bad), good, 2, "the PIN is wrong"),
                ("?" + spied, bad, 2, "the PIN is wrong"), ("?" + spied, bad * 60, 2, "the PIN is wrong")]:
            with self.subTest(source=source, pin=pin):
                write("spy", b"")
                environment = {**os.environ, **spy, **({"KELSIGN_PIN": pin} if pin else {})}
                result = kelsign("sign", "challenge", "A", "--key", self.signer + source, env=environment)
                self.expect(result, code, err=err)
                self.assertNotIn("7355", result[2])
                self.assertEqual(read("spy").count(b": C_Login\n"), 1)
        for key in (self.signer.replace("=signer", "=none"), self.signer.replace("=server", "=none")):
            self.expect(kelsign("sign", "challenge", "A", "--key", key + self.source), 2, err="no such private key")

    def test_asks_for_the_pin(self):
        command = [KELSIGN, "sign", "challenge", "0A", "--key", self.signer]
        child, terminal = pty.fork()
        if child == 0:
            os.execv(KELSIGN, command)
        shown = b""
        deadline = time.monotonic() + 20
        while b"PIN of" not in shown and time.monotonic() < deadline and select.select([terminal], [], [], 1)[0]:
            shown += os.read(terminal, 1000)
        time.sleep(0.2)  # the terminal's echo is off by then
        os.write(terminal, self.PIN.encode() + b"\n")
        code = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        shown += os.read(terminal, 4000)
        self.assertEqual((code, self.PIN.encode() in shown), (0, False), shown)
        self.assertRegex(shown, rb"PIN of pkcs11:token=server;object=signer;type=private: \r\n[A-Za-z0-9+/=]{344}\r\n")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], sys.argv[2]])
