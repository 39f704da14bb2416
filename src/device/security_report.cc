// The security state report.
#include "core/log.h"
#include "core/text.h"
#include "device/property.h"
#include "kelchk.h"

constinit const char* const properties[24] = {
    "ro.boot.blow_disbrom",
    "ro.boot.otp_ver",
    "ro.boot.sec_img_ver",
    "ro.boot.anti_rollback_status",
    "ro.boot.avb_img_ver",
    "ro.boot.vbmeta.device_state",
    "ro.boot.sec_da_ver",
    "ro.bootimage.build.date",
    "ro.odm.build.date",
    "ro.product.build.date",
    "ro.system.build.date",
    "ro.system_ext.build.date",
    "ro.vendor.build.date",
    "ro.vendor_dlkm.build.date",
    "partition.odm_dlkm.verified.root_digest",
    "partition.product.verified.root_digest",
    "partition.system.verified.root_digest",
    "partition.system_ext.verified.root_digest",
    "partition.vendor.verified.root_digest",
    "partition.vendor_dlkm.verified.root_digest",
    "ro.vendor.kelo.anti.crack.p7.support",
    "ro.product.first_api_level",
    "ro.boot.efusemode",
    "ro.boot.vbmeta.digest",
};

using namespace kelchk;

int kelo_bsp_sec_ctrl_get(char* out, unsigned int capacity, unsigned int* out_len) noexcept {
  if (capacity == 0 || out == nullptr || out_len == nullptr) return log_failure("kelo_bsp_sec_ctrl_get input err \n");
  TextWriter report(out, capacity);
  for (const char* const name : properties) {
    const Property property(name);
    if (property.absent()) log_error("get %s err", name);
    report.append({name, "=", property.value, "&"});
  }
  *out_len = static_cast<unsigned>(report.length());
  return 0;
}
