// The keys of the device parameter record, in the order of the record and of its canonical content. Free of every
// dependency, so that the phone, the factory host and the signing server use this one list.
#pragma once

namespace kelchk {

inline constexpr const char* kRecordKeys[12] = {"buildTime",   "buildType",   "countrySha",  "cpuID",
                                                "deviceBrand", "deviceModel", "featureCode", "imei",
                                                "phoneMac",    "psn",         "time",        "ver"};

}  // namespace kelchk
