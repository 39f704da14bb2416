"""What the tests of the programs share: their folder, the files that openssl makes and signs, and the check of a result."""
import base64, collections, functools, os, subprocess, tempfile, unittest

WORK = tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None)  # most of the time is disk
os.chmod(WORK.name, 0o755)  # the user "system" of a phone looks into it, too
TOOLS = os.path.dirname(os.path.realpath(__file__)) + "/../tools/"
IMEI = "352099001761481"
RECORD = ("buildTime=20240429V3&buildType=user&countrySha=" + "0A" * 32 + "&cpuID=mt01&deviceBrand=Aldan&"
          f"deviceModel=MDF1KX67&featureCode=F01A&imei={IMEI}&phoneMac=000AF5000000&psn=KX67000000000000&"
          "time=240429-153012&ver=01")
LONG_COMMENT = "nsComment=" + "c" * 300  # the library accepts no short certificate
Result = collections.namedtuple("Result", "code out err")


def work(*parts):
    return os.path.join(WORK.name, *parts)


def write(name, content):
    with open(work(name), "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    return file.name


def read(name):
    with open(work(name), "rb") as file:
        return file.read()


def run(*command, stdin=b"", **options):
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    result = subprocess.run(command, input=stdin, timeout=120, **{**pipes, **options})
    return Result(result.returncode, *((text or b"").decode("latin-1") for text in (result.stdout, result.stderr)))


def openssl(*arguments, stdin=b""):
    return subprocess.run(("openssl", *arguments), input=stdin, check=True, capture_output=True).stdout


def content(record):
    return "".join(field.split("=", 1)[1] for field in record.split("&"))


def make_development_root(folder):
    subprocess.run([TOOLS + "make-development-root", work(folder)], check=True)


def issue(folder, root, *options, extensions=LONG_COMMENT, key="rsa:2048"):
    os.makedirs(work(folder), exist_ok=True)
    request = openssl("req", "-new", "-newkey", key, "-nodes", "-keyout", work(folder, "signer.key"), "-subj", "/CN=s")
    openssl("x509", "-req", "-CA", work(root, "root.pem"), "-CAkey", work(root, "root.key"), "-extfile",
            write("extensions", extensions), "-out", work(folder, "signer.pem"), *options,
            stdin=request)


def encoded_certificate(folder):
    return base64.b64encode(openssl("x509", "-in", work(folder, "signer.pem"), "-outform", "DER")).decode()


@functools.cache
def signed(message, folder="signer", digest=("-sha256",), certificate_of=None):
    sign = openssl("dgst", *digest, "-sign", work(folder, "signer.key"), stdin=message.encode())
    return f"factoryCert={encoded_certificate(certificate_of or folder)}&sign={base64.b64encode(sign).decode()}"


class ProgramTest(unittest.TestCase):
    def expect(self, result, code, out="", err=""):
        self.assertEqual(result.code, code, result)
        self.assertIn(out, result.out)
        self.assertIn(err, result.err)
        self.assertRegex(result.out + result.err, r"\A[\n -~]*\Z")  # whatever came in
