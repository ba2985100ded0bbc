#include "Simulation.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <thread>

#include "HtmlReport.h"
#include "ScriptPlayer.h"
#include "Summary.h"
#include "VirtualTime.h"
#include "bluetooth/World.h"
#include "inloc/InLocService.h"
#include "replay/BtsnoopWriter.h"
#include "replay/CaptureReader.h"
#include "scenario/Scenario.h"

namespace tracker {
namespace trackersim {

namespace {

using std::chrono::milliseconds;

// Watches the simulated platform between steps and tells the timeline what the library asked
// of it: scan starts and stops, the proxy's deaths and recoveries, InLoc tracking paused and
// resumed. Runs on the thread that moves the time, while the process is at rest.
class PlatformWatch {
  public:
    PlatformWatch(sim::World& world, Timeline& timeline, RunFigures& figures)
        : m_world(world), m_timeline(timeline), m_figures(figures) {}

    void look() {
        // Deaths and recoveries may fall in one step: the count tells of every death, and a
        // proxy ready again has recovered from all of them.
        const int deaths = m_world.proxyDeaths();
        for (; m_deaths < deaths; ++m_deaths) {
            ++m_figures.proxyDeaths;
            ++m_unrecovered;
            report("radio", "proxy died", {}, true);
        }
        if (m_unrecovered > 0 && m_world.proxyReady()) {
            m_figures.proxyRecoveries += static_cast<uint64_t>(m_unrecovered);
            m_unrecovered = 0;
            report("radio", "proxy initialised again", {});
        }

        const std::vector<sim::ScanRequest> requests = m_world.scanRequests();
        for (; m_seenRequests < requests.size(); ++m_seenRequests) {
            const sim::ScanRequest& request = requests[m_seenRequests];
            if (!request.start) {
                ++m_figures.scanStops;
                report("radio", "scan stopped", {});
                continue;
            }
            ++m_figures.scanStarts;
            m_figures.scanStartsRefused += request.accepted ? 0 : 1;
            report("radio", request.accepted ? "scan started" : "scan start refused",
                   std::to_string(request.filters.size()) + " filters", !request.accepted);
        }
        const std::vector<sim::InLocRequest> calls = sim::InLocService::instance().requests();
        for (; m_seenInLocCalls < calls.size(); ++m_seenInLocCalls) {
            lookAt(calls[m_seenInLocCalls]);
        }
    }

  private:
    void lookAt(const sim::InLocRequest& request) {
        using sim::InLocCall;
        const bool enable =
            request.call == InLocCall::EnableMembership || request.call == InLocCall::EnableAddress;
        const bool disable = request.call == InLocCall::DisableMembership ||
                             request.call == InLocCall::DisableAddress;
        if (!enable && !disable) {
            return;
        }
        const bool byMembership = request.call == InLocCall::EnableMembership ||
                                  request.call == InLocCall::DisableMembership;
        const std::size_t count =
            byMembership ? request.memberships.size() : request.addresses.size();
        if (byMembership && disable) {
            ++m_figures.trackingPauses;
            m_stoppedByMembership = true;
        } else if (byMembership && m_stoppedByMembership) {
            ++m_figures.trackingResumes;
            m_stoppedByMembership = false;
        }
        report("inloc", enable ? "tracking on" : "tracking off",
               std::to_string(count) + (byMembership ? " membership" : " address") +
                   (count == 1 ? "" : "es"),
               request.status != IXA_STATUS_SUCCESS);
    }

    void report(const char* who, const char* what, std::string detail, bool failure = false) {
        TimelineEvent event;
        event.connector = who;
        event.event = what;
        event.detail = std::move(detail);
        event.failure = failure;
        m_timeline.add(std::move(event));
    }

    sim::World& m_world;
    Timeline& m_timeline;
    RunFigures& m_figures;
    std::size_t m_seenRequests = 0;
    int m_deaths = 0;
    int m_unrecovered = 0;
    std::size_t m_seenInLocCalls = 0;
    bool m_stoppedByMembership = false;
};

// Keeps every advertisement the radio delivers in a btsnoop file. The radio calls it on its
// delivery threads; m_mutex serialises the writer.
class Recorder {
  public:
    explicit Recorder(const VirtualTime& time) : m_time(time) {}

    bool open(const std::string& path, std::string* error) {
        std::lock_guard<std::mutex> lock(m_mutex);
        // The library's scan starts as the run does.
        m_open = m_writer.open(path, error) && m_writer.writeScanEnable(m_time.now(), error);
        return m_open;
    }
    void record(const android::bluetooth::le::ScanResult& result) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_writer.write(m_time.now(), result.getDevice().getAddress(),
                           result.getScanRecord().getBytes(), result.getRssi())) {
            ++m_count;
        }
    }
    // The advertisements recorded; nullopt if the file could not be written completely.
    std::optional<uint64_t> close() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_open && !m_writer.close()) {
            return std::nullopt;
        }
        return m_count;
    }

  private:
    const VirtualTime& m_time;
    std::mutex m_mutex;
    sim::BtsnoopWriter m_writer;
    bool m_open = false;
    uint64_t m_count = 0;
};

// What the platform's and the managers' threads may still reach when the run ends: the clock,
// the recorder behind the radio's tap, the timeline the connectors report to and the script
// thread. It lives as long as the process, which ends with the run.
struct RunState {
    RunState(sim::World& world, std::ostream& out, Timeline::Format format,
             std::vector<ConnectorSetup> connectors)
        : time(world),
          recorder(time),
          timeline(out, format, [this] { return static_cast<int64_t>(time.now().count()); }),
          player(std::move(connectors), timeline, world) {}

    VirtualTime time;
    Recorder recorder;
    Timeline timeline;
    ScriptPlayer player;
};

}  // namespace

Simulation::Simulation(RunDescription description, RunOptions options, std::ostream& out)
    : m_description(std::move(description)), m_options(std::move(options)), m_out(out) {}

int Simulation::run(std::string* error) {
    sim::World& world = sim::World::instance();
    static RunState* const state =
        new RunState(world, m_out, m_options.format, m_description.connectors);
    // This thread's reports (the platform watch, the world's steps) come in program order.
    const Timeline::RunThread driver;
    VirtualTime& time = state->time;
    Recorder* const recorder = &state->recorder;
    Timeline& timeline = state->timeline;
    ScriptPlayer* const player = &state->player;
    world.reset();
    world.seedNoise(m_options.seed);

    rapidjson::Document document;
    if (!sim::parseJson(m_description.json, &document, error) ||
        !sim::loadScenario(document, world, error, kRunFields)) {
        *error = "scenario: " + *error;
        return 2;
    }
    RunFigures figures;
    figures.seed = m_options.seed;
    figures.duration = m_options.duration.value_or(m_description.duration);

    const std::string capturePath =
        m_options.replay.empty() ? m_description.replay : m_options.replay;
    sim::CaptureContents capture;
    if (!capturePath.empty()) {
        if (!sim::readCaptureFile(capturePath, &capture, error)) {
            return 2;
        }
        figures.replay =
            ReplayFigures{capturePath, capture.format, capture.reports, capture.skipped};
    }
    if (!m_options.report.empty()) {
        std::string probe;
        if (!canWriteHtmlReport(m_options.report, &probe)) {
            *error = probe;
            return 2;
        }
    }
    if (!m_options.record.empty()) {
        if (!recorder->open(m_options.record, error)) {
            return 2;
        }
        world.setRadioTap([recorder](const android::bluetooth::le::ScanResult& result) {
            recorder->record(result);
        });
    }

    PlatformWatch watch(world, timeline, figures);
    player->setUp();

    // A result is counted as routed from the capture when its address is the capture's and no
    // virtual tag's.
    std::set<std::string> replayed;
    for (const sim::CapturedAdvertisement& advertisement : capture.advertisements) {
        replayed.insert(advertisement.address);
    }
    if (document.HasMember("tags") && document["tags"].IsArray()) {
        for (const rapidjson::Value& tag : document["tags"].GetArray()) {
            std::string address = tag["address"].GetString();
            std::transform(address.begin(), address.end(), address.begin(), ::toupper);
            replayed.erase(address);
        }
    }
    // Played in time order, whatever order the file kept.
    std::stable_sort(capture.advertisements.begin(), capture.advertisements.end(),
                     [](const sim::CapturedAdvertisement& a, const sim::CapturedAdvertisement& b) {
                         return a.offset < b.offset;
                     });
    // The capture plays from the moment the library's scan first runs, at its recorded pace.
    std::optional<milliseconds> replayStart;
    std::size_t nextAdvertisement = 0;
    std::size_t nextStep = 0;
    const auto realStart = std::chrono::steady_clock::now();
    for (;;) {
        const milliseconds now = time.now();
        bool posted = false;
        for (; nextStep < m_description.script.size() && m_description.script[nextStep].at <= now;
             ++nextStep) {
            player->play(m_description.script[nextStep]);
            posted = true;
        }
        for (; replayStart && nextAdvertisement < capture.advertisements.size();
             ++nextAdvertisement) {
            const sim::CapturedAdvertisement& advertisement =
                capture.advertisements[nextAdvertisement];
            if (*replayStart + std::chrono::ceil<milliseconds>(advertisement.offset) > now) {
                break;
            }
            figures.replay->delivered += world.injectAdvertisement(
                advertisement.address, advertisement.data, advertisement.rssi);
            posted = true;
        }
        if (posted || now.count() == 0) {
            time.settle();
        }
        watch.look();
        timeline.flush();
        if (!capture.advertisements.empty() && !replayStart && world.scanning()) {
            replayStart = now;
            continue;  // its first advertisements may be due at once
        }
        if (now >= figures.duration) {
            break;
        }
        // Nothing can happen before a thread wakes, the script's next step or the capture's
        // next advertisement: the time jumps there.
        milliseconds next = std::min(figures.duration, time.nextWake().value_or(figures.duration));
        if (nextStep < m_description.script.size()) {
            next = std::min(next, m_description.script[nextStep].at);
        }
        if (replayStart && nextAdvertisement < capture.advertisements.size()) {
            next = std::min(next,
                            *replayStart + std::chrono::ceil<milliseconds>(
                                               capture.advertisements[nextAdvertisement].offset));
        }
        next = std::max(next, now + milliseconds(1));
        if (m_options.speed > 0) {
            std::this_thread::sleep_until(
                realStart + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                next / m_options.speed));
        }
        time.step(next - now);
    }

    const std::vector<TimelineEvent> events = timeline.events();
    if (figures.replay) {
        figures.replay->routed = static_cast<uint64_t>(
            std::count_if(events.begin(), events.end(), [&](const TimelineEvent& event) {
                return event.event == "result" && replayed.count(event.device) > 0;
            }));
    }
    world.setRadioTap(nullptr);
    const std::optional<uint64_t> recorded = recorder->close();
    if (!recorded) {
        *error = m_options.record + ": the recording could not be written completely";
        return 2;
    }
    figures.advertisementsRecorded = *recorded;
    writeSummary(m_out, m_options.format, time.now().count(), timeline.summaries(), figures);
    if (!m_options.report.empty() &&
        !writeHtmlReport(m_options.report, events, timeline.summaries(), figures, error)) {
        return 2;
    }
    return 0;
}

}  // namespace trackersim
}  // namespace tracker
