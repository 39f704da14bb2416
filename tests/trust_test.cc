// The challenge, and which answers to it are accepted.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>

#include "kelchk.h"
#include "tests/support/forgeries.h"
#include "tests/support/phone_test.h"
#include "tests/support/pki.h"

namespace {

// The crypto call that fails, and which one of its calls; 0 for none.
std::string failing_call;
int failing_nth = 0;
int forced_verdict = -1;  // of a chain verification that "fails"
std::map<std::string, int> calls;

bool fails(const std::string& name) {
  return ++calls[name] == failing_nth && name == failing_call;
}

}  // namespace

// These come before the crypto library's: the program's own symbols are looked up first.
#define FAILABLE(result, failure, name, parameters, arguments)                             \
  extern "C" result name parameters {                                                      \
    static const auto next = reinterpret_cast<decltype(&name)>(::dlsym(RTLD_NEXT, #name)); \
    return fails(#name) ? failure : next arguments;                                        \
  }
FAILABLE(BIO*, nullptr, BIO_new_mem_buf, (const void* buf, int len), (buf, len))
FAILABLE(X509*, nullptr, PEM_read_bio_X509, (BIO * bio, X509** x, pem_password_cb* cb, void* arg), (bio, x, cb, arg))
FAILABLE(X509_STORE*, nullptr, X509_STORE_new, (), ())
FAILABLE(int, 0, X509_STORE_add_cert, (X509_STORE * store, X509* certificate), (store, certificate))
FAILABLE(X509_STORE_CTX*, nullptr, X509_STORE_CTX_new, (), ())
FAILABLE(int, 0, X509_STORE_CTX_init, (X509_STORE_CTX * ctx, X509_STORE* store, X509* x, STACK_OF(X509) * chain),
         (ctx, store, x, chain))
FAILABLE(int, forced_verdict, X509_verify_cert, (X509_STORE_CTX * context), (context))
FAILABLE(int, 0, X509_verify, (X509 * certificate, EVP_PKEY* key), (certificate, key))
FAILABLE(EVP_PKEY*, nullptr, X509_get_pubkey, (X509 * certificate), (certificate))
FAILABLE(EVP_MD_CTX*, nullptr, EVP_MD_CTX_create, (), ())
FAILABLE(int, 0, EVP_DigestVerifyInit, (EVP_MD_CTX * ctx, EVP_PKEY_CTX** p, const EVP_MD* md, ENGINE* e, EVP_PKEY* key),
         (ctx, p, md, e, key))
FAILABLE(int, 0, EVP_DigestVerifyUpdate, (EVP_MD_CTX * ctx, const void* data, size_t len), (ctx, data, len))
FAILABLE(int, 0, EVP_DigestVerifyFinal, (EVP_MD_CTX * ctx, const uint8_t* sig, size_t len), (ctx, sig, len))

namespace {

using namespace test;
using namespace std::string_literals;
using testing::ElementsAre;

constexpr int64_t kBeforeRoot = 86400, kAfterRoot = 0x9000'0000;
constexpr size_t kNotLookedAt = SIZE_MAX;
constexpr char kChallenge[] = "0AFF3C";

Lines decoded(size_t len) {
  return {"3 EVP_DecodeBase64 f_cert_len=" + std::to_string(len)};
}
const Lines kSignatureFails = {"6 EVP_DigestVerifyFinal  ret=0", "6 signature err \n"};

Lines chain_report(uint32_t code) {
  char text[120];
  ERR_error_string_n(code, text, sizeof text);
  const std::string line = "6 sub certificate err =";
  return {line + std::to_string(code) + " \n", line + text + " \n"};
}

class TrustTest : public PhoneTest {
  void SetUp() override {
    PhoneTest::SetUp();
    std::strcpy(g_rand_buf, kChallenge);
    failing_nth = 0;
    forced_verdict = -1;
  }
};

// Hands |record| in, where not one byte behind it can be read and while the error queue holds an error of others.
int answer(const std::string& record) {
  const Guarded in(record + '\0');
  ERR_put_error(ERR_LIB_USER, 0, 77, __FILE__, __LINE__);
  const int result = kelo_verify_rand(in.data(), static_cast<unsigned>(record.size()));
  EXPECT_EQ(g_is_authed, result == 0);
  g_is_authed = 0;
  return result;
}

// ---- The challenge ----

TEST_F(TrustTest, IssuesChallengesOfEveryLength) {
  for (const unsigned len : {0U, 1U, 2U, 5U, 249U, 250U}) {
    const Guarded out(std::string(13 + len + 1, '#'));
    unsigned out_len = len;
    EXPECT_EQ(kelo_get_rand(out.data(), &out_len), 0);
    EXPECT_EQ(out_len, 13 + len);
    const std::string challenge = g_rand_buf;
    EXPECT_EQ(out.view(), "randomNumber=" + challenge + '\0');
    EXPECT_EQ(challenge.find_first_not_of("0123456789ABCDEF"), challenge.npos) << challenge;
    EXPECT_TRUE(len < 200 || challenge.find(challenge.substr(0, 20), 1) == challenge.npos) << "is random";
  }
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST_F(TrustTest, EncodesWhatTheDeviceGivesAndTellsWhenItDoesNot) {
  const std::string device = "/dev/urandom";
  const auto gives = [=](const std::string& bytes) { return [=] { write_file(device, bytes); }; };
  struct Row {
    std::function<void()> prepare;
    unsigned len;
    int result;
    std::string challenge;
    Lines log;
  };
  const Row rows[] = {
      {gives("\x12\x3f\xa0\xbc"), 5, 0, "123FA", {}},
      {gives("\x0a\xff"), 8, 0, "0AFF0000", {}},
      {[=] { put_folder(device); }, 4, -1, "", {"6 kelo_get_rand read /dev/urandom error=21"}},
      {[=] { test::remove(device); }, 4, -1, kChallenge, {"6 kelo_get_rand open /dev/urandom error=2"}}};
  for (const auto& [prepare, asked, result, challenge, log] : rows) {
    make_phone(Chip::kUnisoc);
    prepare();
    std::strcpy(g_rand_buf, kChallenge);
    char out[264] = "##############################";
    unsigned len = asked;
    EXPECT_EQ(kelo_get_rand(out, &len), result);
    EXPECT_EQ(g_rand_buf, challenge);
    EXPECT_EQ(out, "randomNumber=" + (result == 0 ? challenge : ""));
    EXPECT_EQ(len, result == 0 ? asked + 13 : asked);
    EXPECT_EQ(take_log(), log);
  }
}

TEST_F(TrustTest, RefusesBadChallengeArguments) {
  char out[4] = "###";
  unsigned lengths[] = {251U, UINT_MAX, 4U};
  for (unsigned& len : lengths) EXPECT_EQ(kelo_get_rand(len == 4 ? nullptr : out, &len), -1);
  EXPECT_EQ(kelo_get_rand(out, nullptr), -1);
  EXPECT_THAT(lengths, ElementsAre(251U, UINT_MAX, 4U));
  EXPECT_EQ(take_log(), Lines(4, "6 kelo_get_rand input error"));
  EXPECT_STREQ(out, "###");
  EXPECT_STREQ(g_rand_buf, kChallenge);
}

TEST_F(TrustTest, LogsInUntilTheProcessEnds) {
  g_rand_buf[0] = '\0';
  EXPECT_EQ(answer(signed_record(default_signer(), "")), 0) << "no challenge yet: the empty text";

  char out[264];
  unsigned len = 250;
  ASSERT_EQ(kelo_get_rand(out, &len), 0);
  const std::string record = signed_record(default_signer(), out + 13);
  const auto len_of_record = static_cast<unsigned>(record.size());
  EXPECT_EQ(kelo_verify_rand(record.c_str(), len_of_record), 0);
  EXPECT_EQ(kelo_verify_rand(record.c_str(), len_of_record), 0) << "the challenge is not used up";
  EXPECT_EQ(kelo_verify_rand("", 0), -1);
  EXPECT_EQ(g_is_authed, 1) << "a failure takes no login back";

  std::memset(g_rand_buf, 'A', sizeof g_rand_buf);
  EXPECT_EQ(answer(signed_record(default_signer(), std::string(256, 'A'))), 0) << "the text ends with its buffer";
}

TEST_F(TrustTest, RefusesAnotherLengthThanTheText) {
  const std::string record = signed_record(default_signer(), kChallenge);
  const auto len = static_cast<unsigned>(record.size());
  const Guarded unending(record + "#");
  const char *text = record.c_str(), *no_end = unending.data();
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

struct Logs {
  Lines log, file;
};

// What a chain verification logs that ends with |errors|, the one of the second run behind the one of the first.
Logs chain_logs(const std::vector<int>& errors, bool holds) {
  Logs logs;
  for (const int error : errors) {
    logs.log.push_back("4 kelo_X509_verify_cert ret = "s + X509_verify_cert_error_string(error));
    if (error != 0) logs.file = logs.file + Lines{"kelo_X509_verify_cert  ret=0", X509_verify_cert_error_string(error)};
  }
  if (holds) logs.log.push_back(kChainHolds[1]);
  if (holds && errors[0] != 0) {
    logs.file.push_back("ingore the error of X509_V_ERR_CERT_NOT_YET_VALID || X509_V_ERR_CERT_HAS_EXPIRED");
    logs.file.push_back(X509_verify_cert_error_string(errors[0]));
  }
  return logs;
}

// Has |body| run with a right clock, one before the root's start and one after its end, which not every phone can show:
// told are the clock's column in the table of signers and the error that it gives a chain that holds.
void at_each_clock(const std::function<void(size_t column, int error)>& body) {
  struct Clock {
    int64_t time;
    size_t column;
    int error;
  };
  for (const auto& [time, column, error] : {Clock{0, 1, 0}, {kBeforeRoot, 2, 9}, {kAfterRoot, 3, 10}}) {
    if (static_cast<time_t>(time) != time) continue;
    SCOPED_TRACE("clock " + std::to_string(time));
    set_clock(static_cast<time_t>(time));
    body(column, error);
  }
}

// Has |record|, whose certificate decodes to |decoded_len| bytes or is not looked at, judged so at any clock.
void expect_record(const std::string& record, size_t decoded_len, const std::string& verdict, const std::string& told) {
  const bool holds = verdict == "accepted", is_wrong = told.starts_with("EVP_DigestVerifyFinal");
  const bool is_looked_at = decoded_len != kNotLookedAt;
  at_each_clock([&](size_t, int error) {
    EXPECT_EQ(answer(record), holds - 1);
    auto [log, file] = holds || is_wrong ? chain_logs({error}, true) : Logs();
    log = (is_looked_at ? decoded(decoded_len) : Lines()) + log + (holds ? kSignatureHolds : Lines{"6 " + told});
    if (is_wrong) log.push_back("6 signature err \n"), file.push_back(told);
    EXPECT_EQ(take_log(), log);
    EXPECT_EQ(take_log_file(), file);
    EXPECT_TRUE(!is_looked_at || ERR_peek_error() == 0);
    ERR_clear_error();
  });
}

// ---- The record ----

TEST_F(TrustTest, ReadsTheTwoFieldsWithinTheirLimits) {
  const Signer &signer = default_signer(), longest = make_signer({.comment_len = 2215});
  const Signer shortest = make_signer({.key = "other", .name = "S", .extensions = {}, .comment_len = 27});
  const std::string cert = signer.certificate_text(), sig = base64(sign(signer.key.get(), kChallenge));
  const std::map<std::string, std::string> pieces = {
      {"certificate", cert},
      {"certificate in two lines", cert.substr(0, 64) + "\n" + cert.substr(65)},
      {"certificate without its end", cert.substr(0, cert.size() - 4)},
      {"signature", sig},
      {"shortest", signed_record(shortest, kChallenge)},
      {"longest", signed_record(longest, kChallenge)},
      {"shortest certificate", shortest.certificate_text()},
      {"signature begun anew", "*" + sig.substr(1)},
      {"too short", shortest.certificate_text().substr(0, 1023)},
      {"signature with a spare bit", sig.substr(0, 341) + static_cast<char>(sig[341] + 1) + "=="}};
  for (const Lines& row : forgeries("Texts")) {
    SCOPED_TRACE(row[0]);
    const size_t len = row[1] == "-" ? kNotLookedAt : row[1] == "own" ? signer.der.size() : std::stoul(row[1]);
    expect_record(expand(row[0], [&](const std::string& name) { return pieces.at(name); }), len, row[2], row[3]);
  }
  EXPECT_EQ(answer("factoryCert=" + cert + "&sign=" + sig), 0);
  EXPECT_EQ(g_factory_pem, cert);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(g_factor_der), signer.der.size()), signer.der);
}

TEST_F(TrustTest, AcceptsTheSignaturesOfSignersAlone) {
  char out[264];
  unsigned len = 64;
  ASSERT_EQ(kelo_get_rand(out, &len), 0);
  const std::string earlier = g_rand_buf;
  ASSERT_EQ(kelo_get_rand(out, &(len = 64)), 0);
  const std::string challenge = g_rand_buf;
  char told[4096];
  g_is_authed = 1;
  ASSERT_EQ(kelo_get_para("mac=FC01", 8, told, &len), 0);
  g_is_authed = 0;
  take_log();
  const Signer& signer = default_signer();
  EVP_PKEY* const key = signer.key.get();
  const Signer weak = make_signer({.key = "rsa1024"}), big = make_signer({.key = "rsa4096"});
  const Signer curve = make_signer({.key = "ec"});
  const std::string right = sign(key, challenge), zeros(256, '\0');
  const std::string of_weak = sign(weak.key.get(), challenge), of_big = sign(big.key.get(), challenge);
  std::string changed = right, of_curve;
  changed[255] = static_cast<char>(changed[255] ^ 1);
  while (of_curve.size() != 71) of_curve = sign(curve.key.get(), challenge);  // 71 bytes is its commonest length
  struct Made {
    const Signer& by;
    std::string signature;
  };
  const std::map<std::string, Made> made = {
      {"as it should be", {signer, right}},
      {"last byte changed", {signer, changed}},
      {"one byte more", {signer, right + '\0'}},
      {"one byte less", {signer, right.substr(0, 255)}},
      {"over the whole answer", {signer, sign(key, "randomNumber=" + challenge)}},
      {"over the challenge and its terminator", {signer, sign(key, challenge + '\0')}},
      {"over the chip id", {signer, sign(key, "mt0123456789abcdef0123456789000000")}},
      {"over the record", {signer, sign(key, signed_content(g_para_buf))}},
      {"over an earlier challenge", {signer, sign(key, earlier)}},
      {"over nothing", {signer, sign(key, "")}},
      {"by the root, beside another's certificate", {signer, sign(root().key.get(), challenge)}},
      {"with SHA-1", {signer, sign(key, challenge, EVP_sha1())}},
      {"with SHA-512", {signer, sign(key, challenge, EVP_sha512())}},
      {"with PSS padding", {signer, sign(key, challenge, EVP_sha256(), true)}},
      {"by an RSA-1024 key", {weak, of_weak}},
      {"by an RSA-4096 key", {big, of_big}},
      {"by an ECDSA key", {curve, of_curve}},
      {"by an RSA-1024 key, filled up to 256 bytes", {weak, zeros.substr(128) + of_weak}},
      {"by an RSA-4096 key, cut to 256 bytes", {big, of_big.substr(0, 256)}},
      {"by an ECDSA key, filled up to 256 bytes", {curve, of_curve + zeros.substr(71)}}};
  judge_forgeries("Signatures", made, [&](const Made& forged, const Lines& row) {
    const std::string record = "factoryCert=" + forged.by.certificate_text() + "&sign=" + base64(forged.signature);
    expect_record(record, forged.by.der.size(), row[1], row[2]);
  });
}

// ---- The chain ----

// The crypto library's code for a bad signature depends on what the bits give.
uint32_t code_in(const Lines& log) {
  uint32_t code = 0;
  for (const std::string& line : log) std::sscanf(line.c_str(), "6 sub certificate err =%u", &code);
  return code;
}

// Has |signer|'s answer judged as |outcome| says: "refused (9, 7)" names the error of each run of the verification.
void expect_outcome(const Signer& signer, const std::string& outcome) {
  const bool holds = outcome.starts_with("accepted");
  std::vector<int> errors;
  std::istringstream numbers(outcome.substr(outcome.find('(') + 1));
  for (int error; numbers >> error; numbers.ignore()) errors.push_back(error);
  ASSERT_FALSE(errors.empty()) << outcome;

  EXPECT_EQ(answer(signed_record(signer, kChallenge)), holds - 1);
  const auto [log, file] = chain_logs(errors, holds);
  const Lines found = take_log();
  const uint32_t code = code_in(found);
  EXPECT_EQ(ERR_GET_LIB(code), errors.back() == 7 ? ERR_LIB_RSA : 0) << "tells this failure's code alone";
  EXPECT_EQ(ERR_peek_error(), 0U);
  EXPECT_EQ(found, decoded(signer.der.size()) + log + (holds ? kSignatureHolds : chain_report(code)));
  EXPECT_EQ(take_log_file(), file);
}

TEST_F(TrustTest, AcceptsTheRootsSignersAloneWhateverTheClockSays) {
  const SignerOptions other_ca = {.key = "other", .self_signed = true, .name = "Root", .extensions = kCaExtensions};
  SignerOptions with_root_name = other_ca, between = other_ca;
  with_root_name.has_root_name = true;
  between.self_signed = false;
  const Signer another_root = make_signer(other_ca), forged_root = make_signer(with_root_name);
  const Signer intermediate = make_signer(between);
  const auto usual = SignerOptions().extensions;
  const std::vector without_authority(usual.begin(), usual.end() - 1);
  auto with_critical = usual, for_servers = usual;
  with_critical.emplace_back(NID_description, "critical,DER:0500");
  for_servers[1].second = "critical,keyEncipherment";
  for_servers.emplace_back(NID_ext_key_usage, "critical,serverAuth");
  for_servers.emplace_back(NID_crl_distribution_points, "URI:http://localhost/revoked");
  const SignerOptions expired = {.not_before = "230101000000Z", .not_after = "230601000000Z"};
  const auto damage = [](Signer& signer) { signer.der.back() ^= 1; };

  struct Made {
    SignerOptions options;
    std::function<void(Signer&)> change = [](Signer&) {};
  };
  const std::map<std::string, Made> made = {
      {"issued by the root", {}},
      {"expired", {expired}},
      {"not yet valid", {{.not_before = "390601000000Z"}}},
      {"valid beyond 2038", {{.not_after = "491231235959Z"}}},
      {"a CA", {between}},
      {"valid beyond 2050", {{.not_after = "20790101000000Z"}}},
      {"without extensions", {{.extensions = {}}}},
      {"the root itself",
       {{},
        [](Signer& signer) {
          signer = {bssl::UpRef(root().key), nullptr, root().der};
        }}},
      {"for another purpose, with a list of the revoked", {{.extensions = for_servers}}},
      {"signed with SHA-512", {{.digest = EVP_sha512()}}},
      {"signed with SHA-1", {{.digest = EVP_sha1()}}},
      {"signed with MD5", {{.digest = EVP_md5()}}},
      {"another root", {other_ca}},
      {"bytes behind it", {{}, [](Signer& signer) { signer.der += "x"; }}},
      {"self-signed", {{.key = "other", .self_signed = true, .extensions = {}}}},
      {"another root's", {{.issuer = &another_root}}},
      {"a root with the root's name", {with_root_name}},
      {"issued under the root's name", {{.issuer = &forged_root}}},
      {"issued under the root's name, without its key's id",
       {{.issuer = &forged_root, .extensions = without_authority}}},
      {"an intermediate's", {{.issuer = &intermediate}}},
      {"an intermediate's, which stands behind it",
       {{.issuer = &intermediate}, [&](Signer& signer) { signer.der += intermediate.der; }}},
      {"a bit of its signature flipped", {{}, damage}},
      {"a bit of its signature flipped, expired", {expired, damage}},
      {"a bit of its content flipped", {{}, [](Signer& signer) { signer.der[signer.der.size() - 300] ^= 1; }}},
      {"unknown critical extension", {{.extensions = with_critical}}}};
  judge_forgeries("Signers", made, [](const Made& forged, const Lines& row) {
    Signer signer = make_signer(forged.options);
    forged.change(signer);
    at_each_clock([&](size_t column, int) { expect_outcome(signer, row[column]); });
  });
}

// ---- The chain ----

// ---- A crypto library that fails ----

TEST_F(TrustTest, RefusesABadSignatureThatTheWaivingRunHides) {
  Signer forged = make_signer();
  forged.der.back() ^= 1;
  set_clock(kBeforeRoot);
  failing_call = "X509_verify_cert";
  failing_nth = 2;
  forced_verdict = 1;
  calls.clear();
  expect_outcome(forged, "refused (9, 7)");
  EXPECT_EQ(calls["X509_verify_cert"], 2) << "a wrong clock must not end the look at the chain";
}

// Whichever of their calls fails, in the plain run or in the one that waives validity: nothing is accepted and nothing
// left behind. Of a call that the crypto library makes inside too, the last one is the library's own.
TEST_F(TrustTest, NeverAcceptsWhenACryptoStepFails) {
  const std::string record = signed_record(default_signer(), kChallenge);
  const Lines begin = decoded(default_signer().der.size()), chain = begin + kChainHolds, unknown = chain_report(0);
  const auto key_step = [&](const std::string& line) { return chain + Lines{"6 " + line, "6 signature err \n"}; };
  const std::map<std::string, std::pair<Lines, Lines>> logs = {
      {"BIO_new_mem_buf", {begin + Lines{"6 get ca_cert err"}, {}}},
      {"PEM_read_bio_X509", {begin + Lines{"6 get ca_cert err"}, {}}},
      {"X509_STORE_new", {begin + unknown, {"X509_STORE_add_cert failed"}}},
      {"X509_STORE_add_cert", {begin + unknown, {"X509_STORE_add_cert failed"}}},
      {"X509_STORE_CTX_new", {begin + unknown, {"X509_STORE_CTX_init failed"}}},
      {"X509_STORE_CTX_init", {begin + unknown, {"X509_STORE_CTX_init failed"}}},
      {"X509_verify_cert", {begin + Lines{kChainHolds[0]} + unknown, {}}},
      {"EVP_MD_CTX_create", {key_step("md_ctx == NULL err "), {}}},
      {"X509_get_pubkey", {key_step("public_key == NULL err"), {}}},
      {"EVP_DigestVerifyInit", {key_step("EVP_DigestVerifyInit  err=0"), {}}},
      {"EVP_DigestVerifyUpdate", {key_step("EVP_DigestVerifyUpdate  err=0"), {"EVP_DigestVerifyUpdate  ret=0"}}},
      {"EVP_DigestVerifyFinal", {chain + kSignatureFails, {"EVP_DigestVerifyFinal  ret=0"}}}};
  for (const int64_t clock : {int64_t{0}, kBeforeRoot}) {
    set_clock(static_cast<time_t>(clock));
    calls.clear();
    ASSERT_EQ(answer(record), 0);
    const auto in_clean_run = calls;
    EXPECT_EQ(in_clean_run.size(), 13U) << "each call that can fail is made";
    for (const auto& [call, count] : in_clean_run) {
      for (failing_nth = 1; failing_nth <= count; failing_nth++) {
        failing_call = call;
        calls.clear();
        take_log();
        take_log_file();
        EXPECT_EQ(answer(record), -1) << call << " " << failing_nth << " of " << count;
        EXPECT_EQ(ERR_peek_error(), 0U);
      }
      failing_nth = 0;
      if (clock != 0 || !logs.contains(call)) continue;
      EXPECT_EQ(take_log(), logs.at(call).first) << call;
      EXPECT_EQ(take_log_file(), logs.at(call).second) << call;
    }
  }
}

TEST(CertificateErrors, HaveTheirTexts) {
  for (const int code : {-1, INT_MIN, INT_MAX, 1, 55, 61, 68, 256}) {
    EXPECT_STREQ(X509_verify_cert_error_string(code), "unknown certificate verification error");
  }
  for (const Lines& row : forgeries("Errors")) EXPECT_EQ(X509_verify_cert_error_string(std::stoi(row[0])), row[1]);
  // All 68, each on a line of its own.
  std::string all;
  for (int code = 0; code < 68; code++) all.append(X509_verify_cert_error_string(code)).append("\n");
  EXPECT_EQ(sha256(all), "FE4C736CFD7B8C79BECFDD592D317D1A5B3C864363569E3D02997999B91396F6") << all;
}

}  // namespace
