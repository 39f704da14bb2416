// Where this process runs.
#pragma once

namespace kelphone {

enum class Platform { kPhone, kSimulatedPhone, kOther };

// On anything but a phone the library would use the machine's own folders.
Platform platform();

}  // namespace kelphone
