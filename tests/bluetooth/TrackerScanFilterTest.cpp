#include "tracker/bluetooth/TrackerScanFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "tracker/bluetooth/BluetoothManagerScanFilter.h"

namespace tracker {
namespace util {
namespace bluetooth {
namespace {

using Bytes = std::vector<uint8_t>;

TrackerScanFilter uuidFilter(TrackerScanFilterType type, Bytes uuid, Bytes mask = {}) {
    TrackerScanFilter filter;
    filter.type = type;
    filter.uuidFilter = {std::move(uuid), std::move(mask)};
    return filter;
}

TrackerScanFilter manuFilter(Bytes data, Bytes mask = {}) {
    TrackerScanFilter filter;
    filter.type = TYPE_MANU_DATA;
    filter.manuDataFilter = {std::move(data), std::move(mask)};
    return filter;
}

TrackerScanFilter addressFilter(Bytes address, uint64_t value64 = 0,
                                std::vector<uint16_t> words = {}) {
    TrackerScanFilter filter;
    filter.type = TYPE_ADDRESS;
    filter.addressFilter.bytesA = std::move(address);
    filter.addressFilter.words16 = std::move(words);
    filter.addressFilter.value64 = value64;
    return filter;
}

bool equivalent(const TrackerScanFilter& a, const TrackerScanFilter& b) {
    return !(a < b) && !(b < a);
}

TEST(TrackerScanFilter, TypesOrderFirstWhateverTheContents) {
    const TrackerScanFilter uuid = uuidFilter(TYPE_UUID, Bytes(16, 0xFF));
    const TrackerScanFilter manu = manuFilter({0x00});
    const TrackerScanFilter membership = uuidFilter(TYPE_MEMBERSHIP, {0x00});
    const TrackerScanFilter address = addressFilter({0x00});
    EXPECT_TRUE(uuid < manu);
    EXPECT_TRUE(manu < membership);
    EXPECT_TRUE(membership < address);
    EXPECT_FALSE(address < uuid);

    // Membership filters compare like UUID filters but never equal one with the same bytes.
    EXPECT_FALSE(equivalent(uuidFilter(TYPE_UUID, {1, 2}), uuidFilter(TYPE_MEMBERSHIP, {1, 2})));
    EXPECT_TRUE(uuidFilter(TYPE_MEMBERSHIP, {1, 2}) < uuidFilter(TYPE_MEMBERSHIP, {1, 3}));
}

TEST(TrackerScanFilter, BytesCompareUnsignedWithPrefixesFirstThenMasks) {
    EXPECT_TRUE(uuidFilter(TYPE_UUID, {0x7F}) < uuidFilter(TYPE_UUID, {0x80}));
    EXPECT_TRUE(uuidFilter(TYPE_UUID, {0x01, 0x02}) < uuidFilter(TYPE_UUID, {0x01, 0x02, 0x00}));
    // Equal UUIDs order by their masks; an empty mask first.
    EXPECT_TRUE(uuidFilter(TYPE_UUID, {1}, {}) < uuidFilter(TYPE_UUID, {1}, {0x00}));
    EXPECT_TRUE(uuidFilter(TYPE_UUID, {1}, {0xF0}) < uuidFilter(TYPE_UUID, {1}, {0xFF, 0x00}));
    EXPECT_TRUE(manuFilter({0x01, 0x71}, {}) < manuFilter({0x01, 0x71}, {0xFF}));
    EXPECT_TRUE(manuFilter({0x01, 0x71, 0xFF}) < manuFilter({0x01, 0x72}));

    // Unselected sub-filters never take part.
    TrackerScanFilter a = uuidFilter(TYPE_UUID, {1});
    TrackerScanFilter b = uuidFilter(TYPE_UUID, {1});
    b.manuDataFilter.data = {9, 9};
    b.addressFilter.bytesA = {9};
    EXPECT_TRUE(equivalent(a, b));
}

TEST(TrackerScanFilter, AddressFiltersIgnoreValue64SoSetsDropSuchTwins) {
    EXPECT_TRUE(addressFilter({1, 2}) < addressFilter({1, 3}));
    EXPECT_TRUE(addressFilter({1}, 0, {1}) < addressFilter({1}, 0, {2}));
    TrackerScanFilter laterBytes = addressFilter({1});
    laterBytes.addressFilter.bytesD = {1};
    EXPECT_TRUE(addressFilter({1}) < laterBytes);

    const std::set<TrackerScanFilter> merged = {addressFilter({1}, 5), addressFilter({1}, 6),
                                                uuidFilter(TYPE_MEMBERSHIP, {7}),
                                                uuidFilter(TYPE_MEMBERSHIP, {7})};
    EXPECT_EQ(merged.size(), 2u);

    // What was added and removed between two builds of a filter list.
    const std::set<TrackerScanFilter> before = {addressFilter({1}), addressFilter({2})};
    const std::set<TrackerScanFilter> after = {addressFilter({2}, 99), addressFilter({3})};
    std::vector<TrackerScanFilter> added;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added[0].addressFilter.bytesA, Bytes{3});
}

TEST(BluetoothManagerScanFilter, KeepsEveryFilterInOrderDuplicatesIncluded) {
    BluetoothManagerScanFilter holder;
    EXPECT_EQ(holder.getFilterListCount(), 0);
    EXPECT_TRUE(holder.getScanFilters().empty());
    EXPECT_TRUE(holder.addScanFilters({uuidFilter(TYPE_UUID, {1}), uuidFilter(TYPE_UUID, {1})}));
    EXPECT_TRUE(holder.addScanFilters({manuFilter({0x01, 0x71})}));
    EXPECT_TRUE(holder.addScanFilters({}));
    EXPECT_EQ(holder.getFilterListCount(), 3);
    const std::vector<TrackerScanFilter> filters = holder.getScanFilters();
    EXPECT_EQ(filters[0].uuidFilter.uuid, Bytes{1});
    EXPECT_EQ(filters[1].uuidFilter.uuid, Bytes{1});
    EXPECT_EQ(filters[2].type, TYPE_MANU_DATA);
}

}  // namespace
}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
