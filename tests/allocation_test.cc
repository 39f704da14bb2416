// Who allocates while the library works. Sanitizers bring allocators of their own: their builds leave this out.
#include <dlfcn.h>

#include "kelchk.h"
#include "tests/support/pki.h"

extern "C" void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t), *__libc_realloc(void*, size_t);

namespace {

bool is_counting = false;
int by_library = 0, by_others = 0;

bool is_in_library(const void* code) {
  Dl_info info = {};
  return ::dladdr(code, &info) != 0 && std::string_view(info.dli_fname).ends_with("/libkelchk.so");
}

void count(const void* caller) {
  if (is_counting) ++(is_in_library(caller) ? by_library : by_others);
}

}  // namespace

// The program's own symbols take precedence over the C library's.
#define COUNTED(call) (count(__builtin_return_address(0)), __libc_##call)
extern "C" void* malloc(size_t size) noexcept {
  return COUNTED(malloc(size));
}
extern "C" void* calloc(size_t number, size_t size) noexcept {
  return COUNTED(calloc(number, size));
}
extern "C" void* realloc(void* memory, size_t size) noexcept {
  return COUNTED(realloc(memory, size));
}

namespace {

using namespace test;

using Library = PhoneTest;

TEST_F(Library, AllocatesNothingItself) {
  ASSERT_TRUE(is_in_library(::dlsym(RTLD_DEFAULT, "kelo_get_para"))) << "its calls would count as others'";
  is_counting = true;
  for (const auto& [chip, id] : {std::pair(Chip::kMediaTek, "mt0123456789abcdef0123456789000000"),
                                 std::pair(Chip::kUnisoc, "spab12cd3400000000")}) {
    make_phone(chip);
    char out[KELCHK_RECORD_MAX];
    unsigned len = 16;
    EXPECT_EQ(kelo_get_rand(out, &len), 0);
    const std::string login = signed_record(default_signer(), g_rand_buf);
    EXPECT_EQ(kelo_verify_rand(login.c_str(), static_cast<unsigned>(login.size())), 0);
    EXPECT_EQ(kelo_get_para("mac=1&IMEI=352099001761481", 1, out, &len), 0);
    const std::string record = signed_record(default_signer(), signed_content(g_para_buf));
    EXPECT_EQ(kelo_import_para_sign(record.c_str(), 1), 0);
    EXPECT_EQ(kelo_is_para_correct(), 0);
    const std::string authorization = signed_record(default_signer(), id);
    EXPECT_EQ(kelo_import_aufile(authorization.c_str(), static_cast<unsigned>(authorization.size())), 0);
    write_file(std::string(PARA_FILE_PATH) + KELCHK_AUTHORIZATION_FILE, login);
    EXPECT_EQ(kelo_is_para_correct(), 0) << "repairs the damaged copy";
    EXPECT_EQ(kelo_bsp_sec_ctrl_get(out, sizeof out, &len), 0);
    EXPECT_EQ(is_device_efused(), 1);
  }
  is_counting = false;
  EXPECT_EQ(by_library, 0);
  EXPECT_GT(by_others, 0) << "nothing was counted";
}

}  // namespace
