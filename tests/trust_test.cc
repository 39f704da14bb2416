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

#include "kelchk.h"
#include "support/phone_test.h"
#include "support/pki.h"

namespace {

// The crypto call that fails, and which one of its calls; 0 for none.
std::string failing_call;
int failing_nth = 0;
int forced_verdict = -1;  // of a chain verification that "fails"
std::map<std::string, int> calls;

bool fails(const std::string& name) { return ++calls[name] == failing_nth && name == failing_call; }

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

constexpr time_t kBeforeRoot = 86400;
constexpr char kChallenge[] = "0AFF3C";

Lines decoded(size_t len) { return {"3 EVP_DecodeBase64 f_cert_len=" + std::to_string(len)}; }
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
  struct Row { std::function<void()> prepare; unsigned len; int result; std::string challenge; Lines log; };
  const Row rows[] = {
      {gives("\x12\x3f\xa0\xbc"), 5, 0, "123FA", {}}, {gives("\x0a\xff"), 8, 0, "0AFF0000", {}},
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
  len = 250;
  ASSERT_EQ(kelo_get_rand(out, &len), 0);
  EXPECT_EQ(kelo_verify_rand(record.c_str(), len_of_record), -1) << "answers the earlier challenge";
  EXPECT_EQ(g_is_authed, 1) << "a failure takes no login back";

  std::memset(g_rand_buf, 'A', sizeof g_rand_buf);
  EXPECT_EQ(answer(signed_record(default_signer(), std::string(256, 'A'))), 0) << "the text ends with its buffer";
}

TEST_F(TrustTest, RefusesAnotherLengthThanTheText) {
  const std::string record = signed_record(default_signer(), kChallenge);
  const auto len = static_cast<unsigned>(record.size());
  const Guarded unending(record + "#");
  const char *text = record.c_str(), *no_end = unending.data();
  for (const auto& [in, in_len] : {std::pair{text, len - 1}, {text, len + 1}, {text, UINT_MAX}, {no_end, len},
                                   {no_end, 0U}, {nullptr, 0U}, {nullptr, 4U}}) {
    EXPECT_EQ(kelo_verify_rand(in, in_len), -1);
    EXPECT_THAT(take_log(), ElementsAre("6 in_len != strlen(in)"));
  }
  EXPECT_EQ(g_is_authed, 0);
}

// ---- The record ----

TEST_F(TrustTest, ReadsTheTwoFieldsWithinTheirLimits) {
  const Signer shortest = make_signer({.name = "S", .extensions = {}, .comment_len = 27});
  EXPECT_EQ(shortest.certificate_text().size(), 1024U) << shortest.der.size();
  const Signer& signer = default_signer(), longest = make_signer({.comment_len = 2215});
  EXPECT_EQ(longest.certificate_text().size(), 4092U) << longest.der.size();
  const std::string cert = signer.certificate_text(), signature = sign(signer.key.get(), kChallenge);
  const std::string sig = base64(signature), all = "factoryCert=" + cert + "&sign=" + sig;
  const auto with_cert = [&](const std::string& text) { return "factoryCert=" + text + "&sign=" + sig; };
  const auto with_sign = [&](const std::string& text) { return "factoryCert=" + cert + "&sign=" + text; };
  const auto text_of = [](size_t len) { return std::string(len, 'A'); };
  const size_t der_len = signer.der.size();
  const Lines no_cert = {"6 getValueByKey factoryCert err"}, bad_cert = {"6 get sub_cert err"};
  const Lines no_sign = decoded(der_len) + Lines{"6 getValueByKey sign err"};
  const auto accepted = [](size_t len) { return decoded(len) + kChainHolds + kSignatureHolds; };
  const auto sign_len = [&](const char* len) { return decoded(der_len) + Lines{"6 signature_bin_len err="s + len}; };
  const std::pair<std::string, Lines> rows[] = {
      {"sign=" + sig + "&ver=1&factoryCert=" + cert + "&", accepted(der_len)},
      {"design=9&mysign=8&factoryCert=" + text_of(4096) + "&" + all, accepted(der_len)},
      {signed_record(shortest, kChallenge), accepted(shortest.der.size())},
      {signed_record(longest, kChallenge), accepted(longest.der.size())}, {"", no_cert}, {"x" + all, no_cert},
      {with_cert(shortest.certificate_text().substr(0, 1023)), no_cert}, {with_cert(text_of(4096)), no_cert},
      {with_cert(text_of(1024)), decoded(768) + bad_cert}, {with_cert(text_of(4095)), decoded(0) + bad_cert},
      {with_cert(cert.substr(0, 64) + "\n" + cert.substr(65)), decoded(0) + bad_cert},
      {with_cert(cert.substr(0, cert.size() - 4)), decoded((cert.size() - 4) / 4 * 3) + bad_cert},
      {with_cert(cert).substr(0, 12 + cert.size()), no_sign}, {with_sign(""), no_sign},
      {with_sign(text_of(2048)), no_sign}, {with_sign(text_of(2047)), sign_len("0")},
      {with_sign("*" + sig.substr(1)), sign_len("0")}, {with_sign(base64(signature.substr(1))), sign_len("255")},
      {with_sign(base64(signature + "#")), sign_len("257")}, {with_sign(text_of(1364)), sign_len("1023")},
      {with_sign(text_of(1368)), sign_len("0")},
  };
  for (const auto& [record, log] : rows) {
    const bool is_accepted = log.back() == kSignatureHolds.back();
    EXPECT_EQ(answer(record), is_accepted ? 0 : -1);
    EXPECT_EQ(take_log(), log) << record.substr(0, 200);
    EXPECT_EQ(take_log_file(), Lines());
    EXPECT_TRUE(log == no_cert || ERR_peek_error() == 0);
    ERR_clear_error();
  }
  EXPECT_EQ(answer(all), 0);
  EXPECT_EQ(g_factory_pem, cert);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(g_factor_der), der_len), default_signer().der);
}

TEST_F(TrustTest, RefusesSignaturesOverSomethingElseOrByAnotherKey) {
  const Signer& signer = default_signer();
  EVP_PKEY* const key = signer.key.get();
  const Signer big = make_signer({.key = "rsa3072"}), curve = make_signer({.key = "ec"});
  std::string damaged = sign(key, kChallenge);
  damaged[255] = static_cast<char>(damaged[255] ^ 1);
  const std::pair<const Signer&, std::string> rows[] = {
      {signer, sign(key, std::string("randomNumber=") + kChallenge)}, {signer, sign(key, kChallenge, EVP_sha512())},
      {signer, sign(key, {kChallenge, sizeof kChallenge})}, {signer, sign(root().key.get(), kChallenge)},
      {signer, damaged}, {big, sign(key, kChallenge)}, {curve, sign(key, kChallenge)}};
  for (const auto& [by, signature] : rows) {
    EXPECT_EQ(answer("factoryCert=" + by.certificate_text() + "&sign=" + base64(signature)), -1);
    EXPECT_EQ(take_log(), decoded(by.der.size()) + kChainHolds + kSignatureFails);
    EXPECT_EQ(take_log_file(), Lines{"EVP_DigestVerifyFinal  ret=0"});
    EXPECT_EQ(ERR_peek_error(), 0U);
  }
  EXPECT_EQ(answer(signed_record(big, kChallenge)), -1);
  EXPECT_EQ(take_log().back(), "6 signature_bin_len err=384");
}

// ---- The chain ----

const std::map<int, std::string> kTexts = {{0, "ok"},
                                           {7, "certificate signature failure"}, {9, "certificate is not yet valid"},
                                           {10, "certificate has expired"}, {18, "self signed certificate"},
                                           {20, "unable to get local issuer certificate"},
                                           {34, "unhandled critical extension"}};

// The crypto library's code for a bad signature depends on what the bits give.
uint32_t code_in(const Lines& log) {
  uint32_t code = 0;
  for (const std::string& line : log) std::sscanf(line.c_str(), "6 sub certificate err =%u", &code);
  return code;
}

void expect_outcome(const Signer& signer, const std::vector<int>& errors) {
  const bool is_waived = errors.size() == 1 && (errors[0] == 9 || errors[0] == 10);
  const bool accepted = is_waived || errors[0] == 0;
  EXPECT_EQ(answer(signed_record(signer, kChallenge)), accepted ? 0 : -1);
  const Lines log = take_log();
  const uint32_t code = code_in(log);
  EXPECT_EQ(ERR_GET_LIB(code), errors.back() == 7 ? ERR_LIB_RSA : 0) << "tells this failure's code alone";
  EXPECT_EQ(ERR_peek_error(), 0U);

  Lines expected = decoded(signer.der.size()), expected_file;
  for (const int error : errors) {
    expected.push_back("4 kelo_X509_verify_cert ret = " + kTexts.at(error));
    if (error != 0) expected_file = expected_file + Lines{"kelo_X509_verify_cert  ret=0", kTexts.at(error)};
  }
  if (is_waived) {
    expected_file.push_back("ingore the error of X509_V_ERR_CERT_NOT_YET_VALID || X509_V_ERR_CERT_HAS_EXPIRED");
    expected_file.push_back(kTexts.at(errors[0]));
  }
  EXPECT_EQ(log, expected + (accepted ? Lines{kChainHolds[1]} + kSignatureHolds : chain_report(code)));
  EXPECT_EQ(take_log_file(), expected_file);
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
  auto with_critical = usual;
  with_critical.emplace_back(NID_description, "critical,DER:0500");

  struct Row { const char* what; SignerOptions options; int error; size_t damaged_from_end = 0; };
  const Row rows[] = {
      {"issued by the root", {}, 0}, {"with another digest", {.digest = EVP_sha512()}, 0},
      {"may issue itself", between, 0}, {"without extensions", {.extensions = {}}, 0},
      {"valid beyond 2038", {.not_after = "491231235959Z"}, 0},
      {"valid beyond 2050", {.not_after = "20790101000000Z"}, 0}, {"not yet valid", {.not_before = "390601000000Z"}, 9},
      {"expired", {.not_before = "230101000000Z", .not_after = "230601000000Z"}, 10},
      {"self-signed", {.key = "other", .self_signed = true, .extensions = {}}, 18},
      {"another root's", {.issuer = &another_root}, 20}, {"the forged root itself", with_root_name, 18},
      {"a forged root's", {.issuer = &forged_root}, 20},
      {"a forged root's, which does not name its key", {.issuer = &forged_root, .extensions = without_authority}, 7},
      {"an intermediate's", {.issuer = &intermediate}, 20}, {"damaged signature", {}, 7, 1},
      {"damaged content", {}, 7, 300},
      {"damaged and expired", {.not_before = "230101000000Z", .not_after = "230601000000Z"}, 7, 1},
      {"unknown critical extension", {.extensions = with_critical}, 34}};
  std::vector<time_t> clocks = {0, kBeforeRoot};
  if constexpr (sizeof(time_t) > 4) clocks.push_back(0x9000'0000);  // 2046, after the root's end
  for (const Row& row : rows) {
    Signer signer = make_signer(row.options);
    if (row.damaged_from_end != 0) signer.der[signer.der.size() - row.damaged_from_end] ^= 1;
    for (const time_t clock : clocks) {
      SCOPED_TRACE(row.what + (" at " + std::to_string(clock)));
      set_clock(clock);
      // Beyond the root's validity that is found first, unless the chain was not even built.
      const int validity = clock == 0 ? 0 : clock == kBeforeRoot ? 9 : 10;
      if (validity == 0 || row.error > 10) expect_outcome(signer, {row.error});
      else expect_outcome(signer, row.error == 7 ? std::vector{validity, 7} : std::vector{validity});
    }
  }
}

// ---- A crypto library that fails ----

TEST_F(TrustTest, RefusesABadSignatureThatTheWaivingRunHides) {
  Signer forged = make_signer();
  forged.der.back() ^= 1;
  set_clock(kBeforeRoot);
  failing_call = "X509_verify_cert";
  failing_nth = 2;
  forced_verdict = 1;
  calls.clear();
  expect_outcome(forged, {9, 7});
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
  for (const time_t clock : {time_t{0}, kBeforeRoot}) {
    set_clock(clock);
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
  for (const auto& [code, text] : kTexts) EXPECT_EQ(X509_verify_cert_error_string(code), text);
  // All 68, each on a line of its own.
  std::string all;
  for (int code = 0; code < 68; code++) all.append(X509_verify_cert_error_string(code)).append("\n");
  EXPECT_EQ(sha256(all), "FE4C736CFD7B8C79BECFDD592D317D1A5B3C864363569E3D02997999B91396F6") << all;
}

}  // namespace
