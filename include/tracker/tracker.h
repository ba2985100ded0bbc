#pragma once

// Every public header of trackerutil.

#include "tracker/platform/DeviceLogger.h"
#include "tracker/util/Base64.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Encryption.h"
#include "tracker/util/Executor.h"
#include "tracker/util/Log.h"
#include "tracker/util/ManualClock.h"
#include "tracker/util/Mutex.h"
#include "tracker/util/StringUtils.h"
#include "tracker/util/TaskThread.h"
#include "tracker/util/ThreadAnnotations.h"
#include "tracker/util/ThreadPool.h"
#include "tracker/util/Timer.h"
#include "tracker/util/UUID.h"
#include "tracker/util/WorkerThread.h"
#include "tracker/util/time/SafeCTimeAccess.h"
#include "tracker/util/time/TimeUtils.h"
