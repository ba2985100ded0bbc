#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "log/LogCapture.h"
#include "platform/Settings.h"
#include "tracker/platform/AccountInfo.h"
#include "tracker/platform/Architecture.h"
#include "tracker/power/WakeLockManager.h"

namespace tracker {
namespace util {
namespace {

using sim::LogCapture;

constexpr const char* kOsVersion = "ro.build.version.kelpos";
constexpr const char* kRelease = "ro.build.version.release";

class PlatformGlue : public ::testing::Test {
  protected:
    // The settings these cases read must not come from the environment that runs them. Nothing
    // is restored: every case is its own process.
    void SetUp() override {
        std::vector<std::string> names;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string variable = *entry;
            const std::string name = variable.substr(0, variable.find('='));
            if (name == "TRACKER_SIM_SETTINGS" ||
                name.rfind("TRACKER_SIM_RO_BUILD_VERSION_", 0) == 0 ||
                name.rfind("TRACKER_SIM_ACCOUNT_", 0) == 0) {
                names.push_back(name);
            }
        }
        for (const std::string& name : names) {
            unsetenv(name.c_str());
        }
    }
    void TearDown() override { sim::clearSettings(); }
};

TEST_F(PlatformGlue, OsVersionPrefersTheDeviceOsProperty) {
    LogCapture capture;
    sim::setSetting(kOsVersion, "7.6.1");
    sim::setSetting(kRelease, "9");
    EXPECT_EQ(Architecture::getOSVersion(), "7.6.1");

    sim::setSetting(kOsVersion, "");
    EXPECT_EQ(Architecture::getOSVersion(), "9");
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{"D TrackerD-Architecture: getOSVersion: version=7.6.1",
                                        "D TrackerD-Architecture: getOSVersion: version=9"}));

    capture.clear();
    sim::clearSettings();
    EXPECT_EQ(Architecture::getOSVersion(), "");
    EXPECT_TRUE(capture.texts().empty()) << "nothing is logged without a version";
}

TEST_F(PlatformGlue, PropertiesComeFromTheEnvironmentOrASettingsFile) {
    const std::string path = ::testing::TempDir() + "platform-glue-settings";
    {
        std::ofstream file(path);
        file << "# the simulated device\n"
             << kRelease << "=11\n"
             << "account.customer=C-42\n";
    }
    setenv("TRACKER_SIM_SETTINGS", path.c_str(), 1);
    EXPECT_EQ(Architecture::getOSVersion(), "11");
    EXPECT_EQ(AccountInfo::getCustomerId(), "C-42");

    setenv("TRACKER_SIM_RO_BUILD_VERSION_KELPOS", "8.0", 1);
    EXPECT_EQ(Architecture::getOSVersion(), "8.0");
    unsetenv("TRACKER_SIM_RO_BUILD_VERSION_KELPOS");
    unsetenv("TRACKER_SIM_SETTINGS");
    std::remove(path.c_str());

    // A value longer than the platform's limit is cut to 91 characters.
    sim::setSetting(kOsVersion, std::string(200, 'v'));
    EXPECT_EQ(Architecture::getOSVersion(), std::string(91, 'v'));
}

TEST_F(PlatformGlue, AccountIdentifiersAreEmptyWithoutAnAccount) {
    LogCapture capture;
    EXPECT_EQ(AccountInfo::getMarketplaceId(), "");
    EXPECT_EQ(AccountInfo::getCustomerId(), "");
    sim::setSetting("account.marketplace", "ATVPDKIKX0DER");
    sim::setSetting("account.customer", "A1B2C3");
    EXPECT_EQ(AccountInfo::getMarketplaceId(), "ATVPDKIKX0DER");
    EXPECT_EQ(AccountInfo::getCustomerId(), "A1B2C3");
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{
                                   "D TrackerD-PresenceNetworkInfo: getMarketplaceId",
                                   "D TrackerD-PresenceNetworkInfo: getCustomerId",
                                   "D TrackerD-PresenceNetworkInfo: getMarketplaceId",
                                   "D TrackerD-PresenceNetworkInfo: getCustomerId",
                               }));
}

TEST_F(PlatformGlue, InitializeStartsTheBinderThreadPoolAndWakeLocksOnlyLog) {
    LogCapture capture;
    const int before = sim::binderThreadPoolStarts();
    EXPECT_TRUE(Architecture::initialize());
    EXPECT_EQ(sim::binderThreadPoolStarts(), before + 1);
    Architecture::shutdown();

    power::WakeLockManager wakeLock("beacon", true);
    wakeLock.releaseWakeLock();
    wakeLock.acquireWakeLock(std::chrono::milliseconds(500));
    wakeLock.acquireWakeLock(std::chrono::milliseconds(500));
    wakeLock.releaseWakeLock();
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{"D TrackerD-Architecture: initialize",
                                        "D TrackerD-Architecture: shutdown",
                                        "D TrackerD-WakeLockManager: WakeLockManager",
                                        "D TrackerD-WakeLockManager: releaseWakeLock",
                                        "D TrackerD-WakeLockManager: acquireWakeLock",
                                        "D TrackerD-WakeLockManager: acquireWakeLock",
                                        "D TrackerD-WakeLockManager: releaseWakeLock"}));
}

}  // namespace
}  // namespace util
}  // namespace tracker
