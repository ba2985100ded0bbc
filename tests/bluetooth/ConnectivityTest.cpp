#include <gtest/gtest.h>

#include "bluetooth/ManagerFixture.h"
#include "tracker/bluetooth/RemoteDeviceImpl.h"

namespace tracker {
namespace testing {
namespace {

using namespace sim::testtags;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using sim::ProxyCall;
using sim::TagSpec;
using util::bluetooth::IConnectivityEventCallback;
using util::bluetooth::IRemoteDevice;
using util::bluetooth::RemoteDeviceImpl;
using Events = std::vector<std::string>;

// Records pairing events as "<address> <state> <ringable>".
class PairingListener : public IConnectivityEventCallback {
  public:
    void onPairStateChanged(std::shared_ptr<IRemoteDevice> device, int state) override {
        log.add(device->getAddress() + " " + std::to_string(state) +
                (device->isRingableDevice() ? " ringable" : ""));
    }
    EventLog log;
};

class Connectivity : public ManagerTest {
  protected:
    void SetUp() override {
        ManagerTest::SetUp();
        TagSpec paired = tagAt(kEddystone, kEddystoneAd);
        paired.pairing = RemoteDeviceAdapter{"", "G0001", 12, {3, 14}, ""};
        world().addTag(paired);
        world().addTag(tagAt(kCompany, kCompanyAd));
    }
};

TEST_F(Connectivity, ARegistrationRelaysPairingEventsUntilDeregistered) {
    auto listener = std::make_shared<PairingListener>();
    ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
    EXPECT_TRUE(logged('I', "registerConnectivityCallback: success"));
    ASSERT_TRUE(world().setPairState(kCompany, 12));
    settle();
    ASSERT_TRUE(listener->log.waitForCount(1));
    EXPECT_NE(listener->log.threads()[0], std::this_thread::get_id()) << "a platform thread";
    EXPECT_TRUE(m_log.contains("D TrackerD-ConnectivityEventCallbackImpl: onPairStateChanged"));

    // Registered twice: two adapters with the platform, the later one kept for deregistration,
    // and each event heard twice. Deregistration removes the later one only.
    ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
    EXPECT_EQ(world().calls(ProxyCall::RegisterConnectivity), 2);
    ASSERT_TRUE(world().setPairState(kEddystone, 10));
    settle();
    ASSERT_TRUE(listener->log.waitForCount(3));
    ASSERT_TRUE(manager()->deregisterConnectivityCallback(listener));
    EXPECT_TRUE(logged('I', "deregisterConnectivityCallback: success"));
    ASSERT_TRUE(world().setPairState(kEddystone, 12));
    settle();
    ASSERT_TRUE(listener->log.waitForCount(4));
    EXPECT_EQ(listener->log.events(),
              (Events{std::string(kCompany) + " 12", std::string(kEddystone) + " 10 ringable",
                      std::string(kEddystone) + " 10 ringable",
                      std::string(kEddystone) + " 12 ringable"}));

    // The map no longer knows it; a stranger is not known either.
    EXPECT_FALSE(manager()->deregisterConnectivityCallback(listener));
    EXPECT_FALSE(manager()->deregisterConnectivityCallback(std::make_shared<PairingListener>()));
    EXPECT_EQ(count('E', "deregisterConnectivityCallback: unable to find callback"), 2u);
    EXPECT_FALSE(manager()->registerConnectivityCallback(nullptr));
}

TEST_F(Connectivity, APlatformRefusalKeepsOrDropsTheRegistrationAsItShould) {
    auto listener = std::make_shared<PairingListener>();
    world().failNext(ProxyCall::RegisterConnectivity);
    EXPECT_FALSE(manager()->registerConnectivityCallback(listener));
    EXPECT_FALSE(logged('I', "registerConnectivityCallback: success"));
    EXPECT_FALSE(manager()->deregisterConnectivityCallback(listener)) << "nothing was kept";

    ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
    world().failNext(ProxyCall::DeregisterConnectivity);
    EXPECT_FALSE(manager()->deregisterConnectivityCallback(listener));
    EXPECT_TRUE(manager()->deregisterConnectivityCallback(listener)) << "kept for a retry";
}

TEST_F(Connectivity, PairedDevicesAreAppendedInThePlatformsOrder) {
    ASSERT_TRUE(world().setPairState(kCompany, 12));
    std::vector<std::shared_ptr<IRemoteDevice>> devices{
        RemoteDeviceImpl::create(RemoteDeviceAdapter{"11:22:33:44:55:66", "", 12, {}, ""})};
    ASSERT_TRUE(manager()->getPairedRemoteDevices(devices));
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[0]->getAddress(), "11:22:33:44:55:66") << "earlier elements stay in front";
    EXPECT_EQ(devices[1]->toString(),
              "{mAddress=C0:FF:EE:00:00:01,mDSN=G0001,mPairedState=12,mCategory=[3,14],"
              "mInputDescriptor=}");
    EXPECT_EQ(devices[2]->toString(),
              "{mAddress=C0:FF:EE:00:00:02,mDSN=,mPairedState=12,mCategory=[],"
              "mInputDescriptor=}");
    EXPECT_EQ(devices[1]->getDSN(), "G0001");
    EXPECT_EQ(devices[1]->getCategory(), (std::vector<int>{3, 14}));

    world().failNext(ProxyCall::GetPairedDevices);
    EXPECT_FALSE(manager()->getPairedRemoteDevices(devices));
    EXPECT_TRUE(logged('E', "getPairedRemoteDevices: Unable to get RemoteDevice list"));
    EXPECT_EQ(devices.size(), 3u);
}

TEST(RemoteDevice, RingsWithCategoryFourteenAnywhere) {
    const auto device = [](std::vector<int> categories) {
        return RemoteDeviceImpl::create(RemoteDeviceAdapter{"A", "D", 1, categories, "kbd"});
    };
    EXPECT_TRUE(device({1, 14, 3})->isRingableDevice());
    EXPECT_TRUE(device({14})->isRingableDevice());
    EXPECT_FALSE(device({})->isRingableDevice());
    EXPECT_FALSE(device({1, 3})->isRingableDevice());
    EXPECT_EQ(device({-1, 14})->toString(),
              "{mAddress=A,mDSN=D,mPairedState=1,mCategory=[-1,14],mInputDescriptor=kbd}");
}

}  // namespace
}  // namespace testing
}  // namespace tracker
