// The header alone in C++.
#include "kelchk.h"

static_assert(sizeof properties / sizeof *properties == 24 && sizeof g_is_authed == 4);
static_assert(noexcept(kelo_get_rand(nullptr, nullptr)) && noexcept(kelo_is_para_correct()));
