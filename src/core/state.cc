// The state that outlives a call. The sizes are part of the interface.
#include "kelchk.h"

constinit char g_rand_buf[256] = {};
constinit int g_is_authed = 0;
constinit char g_factory_pem[4096] = {};
constinit unsigned char g_factor_der[4096] = {};
constinit char g_para_buf[4096] = {};
constinit char g_log_buf[2048] = {};
constinit char PARA_FILE_PATH[256] = {};
constinit char g_sprd_imei[65] = {};
