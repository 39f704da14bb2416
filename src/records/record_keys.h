// The keys of the device parameter record. Free of dependencies, so that the programs use this one list too.
#pragma once

namespace kelchk {

inline constexpr const char* kBuildTimeKey = "buildTime";
inline constexpr const char* kBuildTypeKey = "buildType";
inline constexpr const char* kCountryShaKey = "countrySha";
inline constexpr const char* kCpuIdKey = "cpuID";
inline constexpr const char* kDeviceBrandKey = "deviceBrand";
inline constexpr const char* kDeviceModelKey = "deviceModel";
inline constexpr const char* kFeatureCodeKey = "featureCode";
inline constexpr const char* kImeiKey = "imei";
inline constexpr const char* kPhoneMacKey = "phoneMac";
inline constexpr const char* kPsnKey = "psn";
inline constexpr const char* kTimeKey = "time";
inline constexpr const char* kVersionKey = "ver";

// In the order of the record and of its canonical content.
inline constexpr const char* kRecordKeys[12] = {kBuildTimeKey,   kBuildTypeKey,   kCountryShaKey,  kCpuIdKey,
                                                kDeviceBrandKey, kDeviceModelKey, kFeatureCodeKey, kImeiKey,
                                                kPhoneMacKey,    kPsnKey,         kTimeKey,        kVersionKey};

}  // namespace kelchk
