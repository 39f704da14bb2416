#include "kelphone/platform.h"

namespace kelphone {

Platform platform() {
  return Platform::kPhone;
}

}  // namespace kelphone
