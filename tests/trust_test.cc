// The challenge, and which answers to it log in.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "kelchk.h"
#include "tests/support/forgeries.h"
#include "tests/support/golden.h"
#include "tests/support/pki.h"

namespace {

// Fault injection: the call of this crypto function that fails, counted from 1; 0 for none.
std::string failing_function;
int failing_call = 0;
int result_of_failing_verify_cert = -1;
std::map<std::string, int> calls;

bool fails(const std::string& function) {
  return ++calls[function] == failing_call && function == failing_function;
}

}  // namespace

// The program's own symbols take precedence over the crypto library's.
#define CAN_FAIL(result, failure, name, parameters, arguments)                             \
  extern "C" result name parameters {                                                      \
    static const auto next = reinterpret_cast<decltype(&name)>(::dlsym(RTLD_NEXT, #name)); \
    return fails(#name) ? failure : next arguments;                                        \
  }
CAN_FAIL(BIO*, nullptr, BIO_new_mem_buf, (const void* buf, int len), (buf, len))
CAN_FAIL(X509*, nullptr, PEM_read_bio_X509, (BIO * bio, X509** x, pem_password_cb* cb, void* arg), (bio, x, cb, arg))
CAN_FAIL(X509_STORE*, nullptr, X509_STORE_new, (), ())
CAN_FAIL(int, 0, X509_STORE_add_cert, (X509_STORE * store, X509* certificate), (store, certificate))
CAN_FAIL(X509_STORE_CTX*, nullptr, X509_STORE_CTX_new, (), ())
CAN_FAIL(int, 0, X509_STORE_CTX_init, (X509_STORE_CTX * ctx, X509_STORE* store, X509* x, STACK_OF(X509) * chain),
         (ctx, store, x, chain))
CAN_FAIL(int, result_of_failing_verify_cert, X509_verify_cert, (X509_STORE_CTX * context), (context))
CAN_FAIL(int, 0, X509_verify, (X509 * certificate, EVP_PKEY* key), (certificate, key))
CAN_FAIL(EVP_PKEY*, nullptr, X509_get_pubkey, (X509 * certificate), (certificate))
CAN_FAIL(EVP_MD_CTX*, nullptr, EVP_MD_CTX_create, (), ())
CAN_FAIL(int, 0, EVP_DigestVerifyInit, (EVP_MD_CTX * ctx, EVP_PKEY_CTX** p, const EVP_MD* md, ENGINE* e, EVP_PKEY* key),
         (ctx, p, md, e, key))
CAN_FAIL(int, 0, EVP_DigestVerifyUpdate, (EVP_MD_CTX * ctx, const void* data, size_t len), (ctx, data, len))
CAN_FAIL(int, 0, EVP_DigestVerifyFinal, (EVP_MD_CTX * ctx, const uint8_t* sig, size_t len), (ctx, sig, len))

namespace {

using namespace test;
using namespace std::string_literals;
using testing::ElementsAre;

constexpr int64_t kBeforeRoot = 86400, kAfterRoot = 0x9000'0000;
constexpr char kChallenge[] = "0AFF3C";
constexpr char kAnswerKey[] = "randomNumber=";
constexpr size_t kAnswerKeyLen = sizeof kAnswerKey - 1;

class TrustTest : public PhoneTest {
  void SetUp() override {
    PhoneTest::SetUp();
    std::strcpy(g_rand_buf, kChallenge);
    failing_call = 0;
    result_of_failing_verify_cert = -1;
  }
};
using Challenge = TrustTest;
using Login = TrustTest;
using SignedMessage = TrustTest;
using CertificateChain = TrustTest;

// Passes |record| with unreadable memory right after it and with somebody else's error in the crypto library's queue.
int log_in(const std::string& record) {
  const Guarded in(record + '\0');
  ERR_put_error(ERR_LIB_USER, 0, 77, __FILE__, __LINE__);
  std::memset(g_factory_pem, 'x', sizeof g_factory_pem);
  std::memset(g_factor_der, 'x', sizeof g_factor_der);
  const int result = kelo_verify_rand(in.data(), static_cast<unsigned>(record.size()));
  EXPECT_EQ(g_is_authed, result == 0 ? 1 : 0);
  g_is_authed = 0;
  return result;
}

// ---- The challenge ----

TEST_F(Challenge, IsRandomAndAsLongAsRequested) {
  for (const int requested : {0, 1, 2, 5, KELCHK_CHALLENGE_MAX - 1, KELCHK_CHALLENGE_MAX}) {
    const auto len = static_cast<unsigned>(requested);
    const Guarded out(std::string(kAnswerKeyLen + len + 1, '#'));
    unsigned out_len = len;
    EXPECT_EQ(kelo_get_rand(out.data(), &out_len), 0);
    EXPECT_EQ(out_len, kAnswerKeyLen + len);
    const std::string challenge = g_rand_buf;
    EXPECT_EQ(out.view(), kAnswerKey + challenge + '\0');
    EXPECT_EQ(challenge.find_first_not_of("0123456789ABCDEF"), challenge.npos) << challenge;
    EXPECT_TRUE(len < 200 || challenge.find(challenge.substr(0, 20), 1) == challenge.npos) << "is random";
  }
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST_F(Challenge, HoldsTheDeviceBytesOrReportsTheFailedStep) {
  const std::string device = "/dev/urandom";
  const auto gives = [=](const std::string& bytes) { return [=] { write_file(device, bytes); }; };
  struct Row {
    const char* name;
    std::function<void()> prepare;
    unsigned len;
    std::string challenge;
    Lines log = {};
  };
  // clang-format off
  for (const Row& row : {
      Row{.name = "odd length", .prepare = gives("\x12\x3f\xa0\xbc"), .len = 5, .challenge = "123FA"},
      Row{.name = "short read", .prepare = gives("\x0a\xff"), .len = 8, .challenge = "0AFF0000"},
      Row{.name = "unreadable", .prepare = [&] { put_folder(device); }, .len = 4, .challenge = "",
          .log = {"6 kelo_get_rand read /dev/urandom error=21"}},
      Row{.name = "missing", .prepare = [&] { test::remove(device); }, .len = 4, .challenge = kChallenge,
          .log = {"6 kelo_get_rand open /dev/urandom error=2"}}}) {
    // clang-format on
    SCOPED_TRACE(row.name);
    make_phone(Chip::kUnisoc);
    row.prepare();
    std::strcpy(g_rand_buf, kChallenge);
    const bool is_issued = row.log.empty();
    char out[KELCHK_CHALLENGE_ANSWER_CAP] = "##############################";
    unsigned len = row.len;
    EXPECT_EQ(kelo_get_rand(out, &len), is_issued ? 0 : -1);
    EXPECT_EQ(g_rand_buf, row.challenge);
    EXPECT_EQ(out, kAnswerKey + (is_issued ? row.challenge : ""));
    EXPECT_EQ(len, is_issued ? kAnswerKeyLen + row.len : row.len);
    EXPECT_EQ(take_log(), row.log);
  }
}

TEST_F(Challenge, RejectsInvalidArguments) {
  char out[] = "###";
  unsigned lengths[] = {KELCHK_CHALLENGE_MAX + 1, UINT_MAX, 4};
  for (unsigned& len : lengths) EXPECT_EQ(kelo_get_rand(len == 4 ? nullptr : out, &len), -1);
  EXPECT_EQ(kelo_get_rand(out, nullptr), -1);
  EXPECT_THAT(lengths, ElementsAre(KELCHK_CHALLENGE_MAX + 1, UINT_MAX, 4));
  EXPECT_EQ(take_log(), Lines(4, "6 kelo_get_rand input error"));
  EXPECT_STREQ(out, "###");
  EXPECT_STREQ(g_rand_buf, kChallenge);
}

// ---- The login ----

TEST_F(Login, LastsAndCanBeRepeatedUntilTheNextChallenge) {
  g_rand_buf[0] = '\0';
  EXPECT_EQ(log_in(signed_record(default_signer(), "")), 0) << "before the first challenge it is the empty text";

  char out[KELCHK_CHALLENGE_ANSWER_CAP];
  unsigned len = KELCHK_CHALLENGE_MAX;
  ASSERT_EQ(kelo_get_rand(out, &len), 0);
  const std::string record = signed_record(default_signer(), out + kAnswerKeyLen);
  const auto record_len = static_cast<unsigned>(record.size());
  EXPECT_EQ(kelo_verify_rand(record.c_str(), record_len), 0);
  EXPECT_EQ(kelo_verify_rand(record.c_str(), record_len), 0) << "the challenge is not used up";
  EXPECT_EQ(kelo_verify_rand("", 0), -1);
  EXPECT_EQ(g_is_authed, 1) << "a failure does not end the login";

  std::memset(g_rand_buf, 'A', sizeof g_rand_buf);
  EXPECT_EQ(log_in(signed_record(default_signer(), std::string(sizeof g_rand_buf, 'A'))), 0) << "unterminated";
}

TEST_F(Login, RejectsALengthThatDiffersFromTheText) {
  const std::string record = signed_record(default_signer(), kChallenge);
  const auto len = static_cast<unsigned>(record.size());
  const Guarded unterminated(record + "#");
  const char *text = record.c_str(), *no_end = unterminated.data();
  for (const auto& [in, in_len] : {std::pair{text, len - 1},
                                   {text, len + 1},
                                   {text, UINT_MAX},
                                   {no_end, len},
                                   {no_end, 0U},
                                   {nullptr, 0U},
                                   {nullptr, 4U}}) {
    EXPECT_EQ(kelo_verify_rand(in, in_len), -1);
    EXPECT_THAT(take_log(), ElementsAre("6 in_len != strlen(in)"));
  }
  EXPECT_EQ(g_is_authed, 0);
}

// ---- The outcome of a login ----

struct Outcome {
  std::optional<size_t> certificate_len = {};  // of the decoded certificate; none when it is not decoded
  std::vector<int> chain_errors = {};          // of each run of the chain verification
  std::string rejection = "";                  // the message; none when the record is accepted
};
constexpr char kChainRejected[] = "sub certificate err =";

// Logs in with |record| and compares the result and both logs.
void expect_outcome(const std::string& record, const Outcome& outcome) {
  const auto& [certificate_len, errors, rejection] = outcome;
  EXPECT_EQ(log_in(record), rejection.empty() ? 0 : -1);
  EXPECT_EQ(certificate_len && ERR_peek_error() != 0, false) << "an error stays in the crypto library's queue";
  ERR_clear_error();
  const Lines found = take_log();

  Lines log, file;
  if (certificate_len) log.push_back("3 EVP_DecodeBase64 f_cert_len=" + std::to_string(*certificate_len));
  for (const int error : errors) {
    const char* const text = X509_verify_cert_error_string(error);
    log.push_back("4 kelo_X509_verify_cert ret = "s + text);
    if (error != X509_V_OK) file = file + Lines{"kelo_X509_verify_cert  ret=0", text};
  }
  if (rejection == kChainRejected) {
    uint32_t code = 0;  // for a bad signature it depends on the signature's bits
    if (found.size() > 1) std::sscanf(found.rbegin()[1].c_str(), "6 sub certificate err =%u", &code);
    const int library = errors.back() == X509_V_ERR_CERT_SIGNATURE_FAILURE ? ERR_LIB_RSA : 0;
    EXPECT_EQ(ERR_GET_LIB(code), library) << "the code is not that of this failure";
    char text[120];
    ERR_error_string_n(code, text, sizeof text);
    for (const std::string& shown : {std::to_string(code), std::string(text)}) {
      log.push_back("6 "s + kChainRejected + shown + " \n");
    }
  } else if (errors.empty()) {
    log.push_back("6 " + rejection);
  } else {
    if (errors[0] != X509_V_OK) {
      file.push_back("ingore the error of X509_V_ERR_CERT_NOT_YET_VALID || X509_V_ERR_CERT_HAS_EXPIRED");
      file.push_back(X509_verify_cert_error_string(errors[0]));
    }
    if (!rejection.empty()) file.push_back(rejection);
    log = log + Lines{kChainHolds[1]} +
          (rejection.empty() ? kSignatureHolds : Lines{"6 " + rejection, "6 signature err \n"});
  }
  EXPECT_EQ(found, log);
  EXPECT_EQ(take_log_file(), file);
}

// Runs |body| with the right clock, with one before the root's validity and with one after it, where time_t can hold
// that. |column| is the clock's in the table of signers, |error| that of a valid chain.
void at_each_clock(const std::function<void(size_t column, int error)>& body) {
  struct Clock {
    int64_t now;
    size_t column;
    int error;
  };
  for (const Clock& clock : {Clock{.now = 0, .column = 1, .error = X509_V_OK},
                             Clock{.now = kBeforeRoot, .column = 2, .error = X509_V_ERR_CERT_NOT_YET_VALID},
                             Clock{.now = kAfterRoot, .column = 3, .error = X509_V_ERR_CERT_HAS_EXPIRED}}) {
    if (static_cast<time_t>(clock.now) != clock.now) continue;
    SCOPED_TRACE("clock " + std::to_string(clock.now));
    set_clock(static_cast<time_t>(clock.now));
    body(clock.column, clock.error);
  }
}

// ---- The record ----

TEST_F(SignedMessage, ReadsBothFieldsWithinTheirLimits) {
  const Signer &signer = default_signer(), longest = make_signer({.comment_len = 2215});
  const Signer shortest = make_signer({.key = "other", .name = "S", .extensions = {}, .comment_len = 27});
  const std::string cert = signer.certificate_text(), sig = base64(sign(signer.key.get(), kChallenge));
  const std::string other_cert = shortest.certificate_text(), two_lines = cert.substr(0, 64) + "\n" + cert.substr(65);
  const std::string spare_bit = sig.substr(0, 341) + static_cast<char>(sig[341] + 1) + "==";
  constexpr size_t kMin = KELCHK_CERTIFICATE_TEXT_MIN, kMax = KELCHK_CERTIFICATE_TEXT_MAX;
  ASSERT_EQ(other_cert.size(), kMin);
  ASSERT_EQ(longest.certificate_text().size(), kMax - 3) << "the longest base64";
  const auto a = [](size_t count) { return std::string(count, 'A'); };
  const auto record = [](const std::string& certificate, const std::string& signature) {
    return "factoryCert=" + certificate + "&sign=" + signature;
  };
  const std::string usual = record(cert, sig), other = signed_record(shortest, kChallenge);
  std::string logs;
  struct Row {
    const char* name;
    std::string record;
    int result = -1;
  };
  // clang-format off
  for (const Row& row : {
      Row{.name = "any order", .record = "sign=" + sig + "&ver=1&factoryCert=" + cert + "&", .result = 0},
      Row{.name = "similar keys", .record = "design=9&mysign=8&signs=7&" + usual, .result = 0},
      Row{.name = "first certificate counts", .record = "factoryCert=" + cert + "&" + other},
      Row{.name = "first signature counts", .record = usual + "&sign=x", .result = 0},
      Row{.name = "another signature first", .record = record(cert, "x&sign=" + sig)},
      Row{.name = "first that fits counts", .record = "factoryCert=" + a(kMax + 1) + "&" + usual, .result = 0},
      Row{.name = "shortest certificate", .record = other, .result = 0},
      Row{.name = "longest certificate", .record = signed_record(longest, kChallenge), .result = 0},
      Row{.name = "certificate too short by 1", .record = record(other_cert.substr(1), sig)},
      Row{.name = "long enough, but no certificate", .record = record(a(kMin), sig)},
      Row{.name = "as long as it may be, but no base64", .record = record(a(kMax), sig)},
      Row{.name = "certificate too long by 1", .record = record(a(kMax + 1), sig)},
      Row{.name = "empty record", .record = ""},
      Row{.name = "longer key", .record = "x" + usual},
      Row{.name = "key inside a value", .record = "x=" + usual},
      Row{.name = "certificate in two lines", .record = record(two_lines, sig)},
      Row{.name = "certificate cut", .record = record(cert.substr(0, cert.size() - 4), sig)},
      Row{.name = "no signature", .record = "factoryCert=" + cert},
      Row{.name = "empty signature", .record = record(cert, "")},
      Row{.name = "signature too long by 1", .record = record(cert, a(2048))},
      Row{.name = "signature as long as it may be, but no base64", .record = record(cert, a(2047))},
      Row{.name = "signature of 1026 bytes", .record = record(cert, a(1368))},
      Row{.name = "signature of 1023 bytes", .record = record(cert, a(1364))},
      Row{.name = "signature that is no base64", .record = record(cert, "*" + sig.substr(1))},
      Row{.name = "signature with a spare bit", .record = record(cert, spare_bit), .result = 0},
      Row{.name = "usual form", .record = usual, .result = 0}}) {
    // clang-format on
    EXPECT_EQ(log_in(row.record), row.result) << row.name;
    logs += take_transcript(row.name);
  }
  expect_golden("login_records.log", logs);
  const auto padded = [](std::string text) { return text.resize(sizeof g_factory_pem), text; };
  EXPECT_EQ(std::string(g_factory_pem, sizeof g_factory_pem), padded(cert));
  EXPECT_EQ(std::string(g_factor_der, g_factor_der + sizeof g_factor_der), padded(signer.der));
}

TEST_F(SignedMessage, AcceptsOnlyTheSignersSignatureOverTheChallenge) {
  char out[KELCHK_RECORD_MAX];
  unsigned len = 64;
  ASSERT_EQ(kelo_get_rand(out, &len), 0);
  const std::string earlier = g_rand_buf;
  ASSERT_EQ(kelo_get_rand(out, &(len = 64)), 0);
  const std::string challenge = g_rand_buf;
  g_is_authed = 1;
  ASSERT_EQ(kelo_get_para("mac=FC01", 8, out, &len), 0);
  g_is_authed = 0;
  take_log();
  const Signer& signer = default_signer();
  EVP_PKEY* const key = signer.key.get();
  const Signer weak = make_signer({.key = "rsa1024"}), big = make_signer({.key = "rsa4096"});
  const Signer curve = make_signer({.key = "ec"});
  const std::string right = sign(key, challenge), zeros(KELCHK_SIGNATURE_LEN, '\0');
  const std::string of_weak = sign(weak.key.get(), challenge), of_big = sign(big.key.get(), challenge);
  std::string changed = right, of_curve;
  changed.back() ^= 1;
  while (of_curve.size() != 71) of_curve = sign(curve.key.get(), challenge);  // 71 bytes is its most frequent length
  struct Forgery {
    const Signer& signer;
    std::string signature;
  };
  const std::map<std::string, Forgery> forgeries = {
      {"as it should be", {signer, right}},
      {"last byte changed", {signer, changed}},
      {"one byte more", {signer, right + '\0'}},
      {"one byte less", {signer, right.substr(0, KELCHK_SIGNATURE_LEN - 1)}},
      {"over the whole answer", {signer, sign(key, kAnswerKey + challenge)}},
      {"over the challenge and its terminator", {signer, sign(key, challenge + '\0')}},
      {"over the chip id", {signer, sign(key, "mt0123456789abcdef0123456789000000")}},
      {"over the record", {signer, sign(key, signed_content(g_para_buf))}},
      {"over an earlier challenge", {signer, sign(key, earlier)}},
      {"over nothing", {signer, sign(key, "")}},
      {"by the root, with another's certificate", {signer, sign(root().key.get(), challenge)}},
      {"with SHA-1", {signer, sign(key, challenge, EVP_sha1())}},
      {"with SHA-512", {signer, sign(key, challenge, EVP_sha512())}},
      {"with PSS padding", {signer, sign(key, challenge, EVP_sha256(), true)}},
      {"by an RSA-1024 key", {weak, of_weak}},
      {"by an RSA-4096 key", {big, of_big}},
      {"by an ECDSA key", {curve, of_curve}},
      {"by an RSA-1024 key, filled up to 256 bytes", {weak, zeros.substr(of_weak.size()) + of_weak}},
      {"by an RSA-4096 key, cut to 256 bytes", {big, of_big.substr(0, KELCHK_SIGNATURE_LEN)}},
      {"by an ECDSA key, filled up to 256 bytes", {curve, of_curve + zeros.substr(of_curve.size())}}};
  judge_forgeries("Signatures", forgeries, [&](const Forgery& forgery, const Lines& row) {
    const std::string &verdict = row[1], &rejection = row[2];
    EXPECT_EQ(verdict, rejection.empty() ? "accepted" : "refused");
    const bool is_verified = rejection.empty() || rejection.starts_with("EVP_DigestVerifyFinal");
    const std::string record =
        "factoryCert=" + forgery.signer.certificate_text() + "&sign=" + base64(forgery.signature);
    at_each_clock([&](size_t, int error) {
      const std::vector<int> errors(is_verified ? 1 : 0, error);
      expect_outcome(record,
                     {.certificate_len = forgery.signer.der.size(), .chain_errors = errors, .rejection = rejection});
    });
  });
}

// ---- The chain ----

TEST_F(CertificateChain, AcceptsOnlySignersIssuedByTheRootAtAnyClock) {
  const SignerOptions other_ca = {.key = "other", .self_signed = true, .name = "Root", .extensions = kCaExtensions};
  SignerOptions with_root_name = other_ca, ca_of_root = other_ca;
  with_root_name.has_root_name = true;
  ca_of_root.self_signed = false;
  const Signer another_root = make_signer(other_ca), forged_root = make_signer(with_root_name);
  const Signer intermediate = make_signer(ca_of_root);
  const auto usual = SignerOptions().extensions;
  SignerOptions without_authority = {.issuer = &forged_root};
  without_authority.extensions.pop_back();
  auto with_critical = usual, for_servers = usual;
  with_critical.emplace_back(NID_description, "critical,DER:0500");
  for_servers[1].second = "critical,keyEncipherment";
  for_servers.emplace_back(NID_ext_key_usage, "critical,serverAuth");
  for_servers.emplace_back(NID_crl_distribution_points, "URI:http://localhost/revoked");
  const SignerOptions expired = {.not_before = "230101000000Z", .not_after = "230601000000Z"};
  using Change = std::function<void(Signer&)>;
  const Change use_root = [](Signer& signer) { signer = {bssl::UpRef(root().key), nullptr, root().der}; };
  const Change add_byte = [](Signer& signer) { signer.der += "x"; };
  const Change add_issuer = [&](Signer& signer) { signer.der += intermediate.der; };
  const Change flip_in_signature = [](Signer& signer) { signer.der.back() ^= 1; };
  const Change flip_in_content = [](Signer& signer) { signer.der[signer.der.size() - 300] ^= 1; };

  struct Forgery {
    SignerOptions options = {};
    Change change = [](Signer&) {};
  };
  // clang-format off
  const std::map<std::string, Forgery> forgeries = {
      {"issued by the root", {}},
      {"expired", {.options = expired}},
      {"not yet valid", {.options = {.not_before = "390601000000Z"}}},
      {"valid beyond 2038", {.options = {.not_after = "491231235959Z"}}},
      {"valid beyond 2050", {.options = {.not_after = "20790101000000Z"}}},
      {"a CA", {.options = ca_of_root}},
      {"without extensions", {.options = {.extensions = {}}}},
      {"the root itself", {.change = use_root}},
      {"for another purpose, with a list of the revoked", {.options = {.extensions = for_servers}}},
      {"signed with SHA-512", {.options = {.digest = EVP_sha512()}}},
      {"signed with SHA-1", {.options = {.digest = EVP_sha1()}}},
      {"signed with MD5", {.options = {.digest = EVP_md5()}}},
      {"bytes after it", {.change = add_byte}},
      {"self-signed", {.options = {.key = "other", .self_signed = true, .extensions = {}}}},
      {"another root", {.options = other_ca}},
      {"another root's", {.options = {.issuer = &another_root}}},
      {"a root with the root's name", {.options = with_root_name}},
      {"issued under the root's name", {.options = {.issuer = &forged_root}}},
      {"issued under the root's name, without its key's id", {.options = without_authority}},
      {"an intermediate's", {.options = {.issuer = &intermediate}}},
      {"an intermediate's, which follows it", {.options = {.issuer = &intermediate}, .change = add_issuer}},
      {"a bit of its signature flipped", {.change = flip_in_signature}},
      {"a bit of its signature flipped, expired", {.options = expired, .change = flip_in_signature}},
      {"a bit of its content flipped", {.change = flip_in_content}},
      {"unknown critical extension", {.options = {.extensions = with_critical}}}};
  // clang-format on
  judge_forgeries("Signers", forgeries, [](const Forgery& forgery, const Lines& row) {
    Signer signer = make_signer(forgery.options);
    forgery.change(signer);
    at_each_clock([&](size_t column, int) {
      const std::string& verdict = row[column];  // "refused (9, 7)" names the error of each run
      std::istringstream numbers(verdict.substr(verdict.find('(') + 1));
      const std::string rejection = verdict.starts_with("accepted") ? "" : kChainRejected;
      Outcome outcome = {.certificate_len = signer.der.size(), .rejection = rejection};
      for (int error; numbers >> error; numbers.ignore()) outcome.chain_errors.push_back(error);
      ASSERT_FALSE(outcome.chain_errors.empty()) << verdict;
      expect_outcome(signed_record(signer, kChallenge), outcome);
    });
  });
}

TEST_F(CertificateChain, RejectsABadSignatureThatTheWaivingRunHides) {
  Signer forged = make_signer();
  forged.der.back() ^= 1;
  set_clock(kBeforeRoot);
  failing_function = "X509_verify_cert";
  failing_call = 2;
  result_of_failing_verify_cert = 1;
  calls.clear();
  const std::vector<int> errors = {X509_V_ERR_CERT_NOT_YET_VALID, X509_V_ERR_CERT_SIGNATURE_FAILURE};
  expect_outcome(signed_record(forged, kChallenge), {forged.der.size(), errors, kChainRejected});
  EXPECT_EQ(calls["X509_verify_cert"], 2) << "the chain is verified in full at a wrong clock too";
}

// ---- A crypto library that fails ----

// Makes each call fail, in the plain run and in the one that waives validity. The crypto library makes some of these
// calls itself too: the last of each is the library's own, whose messages are compared.
TEST_F(SignedMessage, IsRejectedWhenACryptoCallFails) {
  const std::string record = signed_record(default_signer(), kChallenge);
  std::string logs;
  for (const int64_t clock : {int64_t{0}, kBeforeRoot}) {
    set_clock(static_cast<time_t>(clock));
    calls.clear();
    ASSERT_EQ(log_in(record), 0);
    const auto in_clean_run = calls;
    EXPECT_EQ(in_clean_run.size(), 13U) << "each function that can fail is called";
    for (const auto& [function, count] : in_clean_run) {
      failing_function = function;
      for (failing_call = 1; failing_call <= count; failing_call++) {
        SCOPED_TRACE(function + " " + std::to_string(failing_call) + " of " + std::to_string(count));
        calls.clear();
        take_log();
        take_log_file();
        EXPECT_EQ(log_in(record), -1);
        EXPECT_EQ(ERR_peek_error(), 0U);
      }
      failing_call = 0;
      logs += take_transcript(function + (clock == 0 ? "" : ", clock before the root"));
    }
  }
  expect_golden("failing_crypto_calls.log", logs);
}

TEST(CertificateErrorText, IsConstantForEveryCode) {
  for (const int code : {-1, INT_MIN, INT_MAX, 1, 55, 61, 68, 256}) {
    EXPECT_STREQ(X509_verify_cert_error_string(code), "unknown certificate verification error");
  }
  for (const Lines& row : forgeries("Errors")) EXPECT_EQ(X509_verify_cert_error_string(std::stoi(row[0])), row[1]);
  std::string all;  // one line for each code
  for (int code = 0; code < 68; code++) all.append(X509_verify_cert_error_string(code)).append("\n");
  EXPECT_EQ(sha256(all), "FE4C736CFD7B8C79BECFDD592D317D1A5B3C864363569E3D02997999B91396F6") << all;
}

}  // namespace
