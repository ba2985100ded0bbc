#pragma once

#include <utils/StrongPointer.h>

namespace android {

// Host stand-in for the process's binder state. Thread-safe.
class ProcessState {
  public:
    // The process-wide state.
    static sp<ProcessState> self();
    // Starts the binder thread pool; later calls are ignored, as on a device.
    void startThreadPool();
};

}  // namespace android
