// Includes the header alone, in C++, and checks what callers rely on.
#include "kelchk.h"

static_assert(sizeof properties / sizeof *properties == 24 && sizeof g_is_authed == 4);
static_assert(noexcept(kelo_get_rand(nullptr, nullptr)) && noexcept(kelo_is_para_correct()));
