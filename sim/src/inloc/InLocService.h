#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <inloc/ixa_inloc.h>

#include "tracker/util/Clock.h"

namespace tracker {
namespace sim {

// The InLoc service's operations, for choosing their statuses and reading back what was asked.
enum class InLocCall {
    AdapterInit,
    RegisterClient,
    EnableMembership,
    DisableMembership,
    EnableAddress,
    DisableAddress,
    Ring,
};

// One call the library made, with what it named and what the call returned.
struct InLocRequest {
    InLocCall call;
    std::vector<std::vector<uint8_t>> memberships;  // membership calls, entry by entry
    std::vector<std::string> addresses;             // address and ring calls, "AA:BB:..."
    ixa_status_t status;
};

// A distance event as the service would report it, for injecting one by hand. Absent records
// are passed as null pointers.
struct InjectedDistanceEvent {
    ixa_status_t status = IXA_STATUS_SUCCESS;
    std::optional<std::string> address;
    std::optional<std::vector<uint8_t>> membership;
    std::vector<uint8_t> advertisement;
    uint32_t reportKind = 0;
    uint8_t flags = 0;
    std::vector<uint16_t> buckets;
    uint8_t bucketIndex = IXA_INLOC_BUCKET_UNKNOWN;
    int16_t accumulatedDistance = 0;
    uint16_t sampleCount = 0;
};

// The platform's InLoc service on the simulated world's tags, behind the ixaInloc_* functions.
//
// Every call answers on the world's delivery threads, never inside the caller's call: the
// adapter callbacks in order on one key, the distance client's callbacks in order on another.
// Records handed to a callback live on the heap, sized exactly, and are freed as soon as the
// callback returns, so a library that keeps a pointer into one is caught by AddressSanitizer.
//
// As on a device: the client registers only on an initialised adapter, tracking needs a
// registered client, and an adapter that starts again (reportAdapterStatus with ENABLED) has
// lost its client and everything it tracked. While anything is tracked and the world has tags,
// every tracked tag within range is reported once per event period (default 1 s of clock time):
// a measured distance (in centimetres, accumulated over four samples) or, for a tag that asks
// for range buckets, its bucket among the bounds 100, 300 and 1000 cm. A tag is tracked if its
// address is, or its membership is. A ring request answers 0 for a tag within range and
// IXA_STATUS_NOT_FOUND otherwise.
//
// Thread-safety: every member may be called from any thread. m_mutex guards the state; no
// callback into the library runs while it is held. The service calls the World, never the
// other way round while the World holds its own lock.
class InLocService {
  public:
    // The process-wide service (never destroyed).
    static InLocService& instance();

    // Back to a fresh service: nothing registered, tracked or failing. The world's reset calls
    // this and then clears the deliveries.
    void reset();
    // The world gained a tag: reports may have to resume.
    void tagsChanged();

    // --- faults ----------------------------------------------------------------------------
    // The next `count` calls of that operation return `status` and do nothing else.
    void failNext(InLocCall call, ixa_status_t status, int count = 1);
    // The callback answering the next call of that operation carries `status`: the adapter's
    // initialised callback, the client's registration, or every entry of a tracking or ring
    // result.
    void setNextAnswer(InLocCall call, ixa_status_t status);
    // The adapter reports a change of state; ENABLED means it started again.
    void reportAdapterStatus(ixaInloc_adapterStatus_t status);
    // Reports an event to the registered client whatever is tracked; false without a client.
    bool injectDistanceEvent(const InjectedDistanceEvent& event);
    // A ring result that no request asked for; false without a client.
    bool sendRingResult(const std::string& address, ixa_status_t status);
    void setEventPeriod(util::Clock::Duration period);

    // --- what the library asked for --------------------------------------------------------
    std::vector<InLocRequest> requests() const;
    int calls(InLocCall call) const;
    bool adapterInitialised() const;
    bool clientRegistered() const;
    std::set<std::vector<uint8_t>> trackedMemberships() const;
    std::set<std::string> trackedAddresses() const;

    // --- the platform side (the ixaInloc_* functions forward here) -------------------------
    ixa_status_t adapterInit(uint32_t version, const ixaInloc_adapterCallbacks_t* callbacks);
    ixa_status_t registerClient(const ixaInloc_distanceClientCallbacks_t* callbacks);
    ixa_status_t enableMemberships(uint32_t count,
                                   const ixaInloc_distanceConfigMembership_t* entries);
    ixa_status_t disableMemberships(uint32_t count,
                                    const ixaInloc_distanceDeconfigMembership_t* entries);
    ixa_status_t enableAddresses(uint32_t count, const ixaInloc_distanceConfigDevice_t* devices);
    ixa_status_t disableAddresses(uint32_t count, const ixaInloc_distanceDeconfigDevice_t* devices);
    ixa_status_t ring(uint32_t count, const ixaInloc_deviceAddr_t* devices);

  private:
    struct State;
    // What a per-device result reports: an address and a status.
    struct DeviceResult {
        std::string address;
        ixa_status_t status;
    };

    InLocService();
    // Counts and records the call; its status is the request's unless it was made to fail.
    ixa_status_t admitLocked(InLocRequest request);
    ixa_status_t changeMemberships(InLocCall call, std::vector<std::vector<uint8_t>> memberships,
                                   bool valid);
    // Tracking by address and ringing: per-device results.
    ixa_status_t changeAddresses(InLocCall call, std::vector<std::string> addresses, bool valid);
    ixa_status_t answerLocked(InLocCall call);
    // Runs `call` with the client's callbacks on the client's delivery line, unless the service
    // was reset or the adapter started again meanwhile.
    template <typename Call>
    void toClientLocked(Call call);
    // Runs `call` on the adapter's delivery line, unless the service was reset meanwhile.
    template <typename Call>
    void toAdapterLocked(Call call);
    void postDeviceResultsLocked(InLocCall call, std::vector<DeviceResult> results);
    void startReportingLocked();
    void report(uint64_t generation);

    mutable std::mutex m_mutex;
    std::unique_ptr<State> m_state;
};

}  // namespace sim
}  // namespace tracker
