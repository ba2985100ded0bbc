#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kData = TRACKER_TEST_DATA_DIR;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Runs tracker-sim as a user would: its own process, since a run owns the process-wide managers.
Outcome trackerSim(const std::string& arguments) {
    const std::string scratch = ::testing::TempDir() + "tracker-sim-" +
                                ::testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string command = std::string(TRACKER_SIM_PATH) + " " + arguments + " >" + scratch +
                                ".out 2>" + scratch + ".err";
    Outcome run;
    const int status = std::system(command.c_str());
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = slurp(scratch + ".out");
    run.err = slurp(scratch + ".err");
    return run;
}

// A --json run read back: every line an object with "t" and "event", the summary last.
struct JsonRun {
    std::vector<rapidjson::Document> lines;

    explicit JsonRun(const std::string& out) {
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) {
            lines.emplace_back();
            lines.back().Parse(line.c_str());
            EXPECT_FALSE(lines.back().HasParseError()) << line;
            EXPECT_TRUE(lines.back().IsObject() && lines.back().HasMember("t") &&
                        lines.back()["t"].IsInt64() && lines.back().HasMember("event"))
                << line;
        }
    }
    const rapidjson::Value& summary() const { return lines.back(); }
    uint64_t count(const char* section, const char* name, const char* field) const {
        return summary()[section][name][field].GetUint64();
    }
    // The addresses a connector received results or distances from, at or after `from` ms.
    std::set<std::string> heardBy(const std::string& connector, int64_t from = 0) const {
        std::set<std::string> addresses;
        for (const rapidjson::Document& line : lines) {
            const std::string event = line["event"].GetString();
            if ((event == "result" || event == "distance") &&
                line["connector"].GetString() == connector && line["t"].GetInt64() >= from) {
                addresses.insert(line["address"].GetString());
            }
        }
        return addresses;
    }
    std::vector<int64_t> times(const std::string& connector, const std::string& event) const {
        std::vector<int64_t> found;
        for (const rapidjson::Document& line : lines) {
            if (line.HasMember("connector") && line["connector"].GetString() == connector &&
                line["event"].GetString() == event) {
                found.push_back(line["t"].GetInt64());
            }
        }
        return found;
    }
};

using Addresses = std::set<std::string>;

TEST(TrackerSim, DefaultScenarioShowsEverySubsystemAtWork) {
    const Outcome run = trackerSim("--speed max --json");
    ASSERT_EQ(run.status, 0) << run.err;
    const JsonRun json(run.out);
    ASSERT_STREQ(json.summary()["event"].GetString(), "summary");

    // Every connector gets what its filters select and nothing else; the reload at 15 s widens
    // by-maker to the tag advertising FEAA.
    EXPECT_EQ(json.heardBy("by-uuid"), Addresses{"MAC:00:01"});
    EXPECT_EQ(json.heardBy("by-maker", 0), (Addresses{"MAC:00:02", "MAC:00:03"}));
    EXPECT_EQ(json.heardBy("by-maker", 21000), (Addresses{"MAC:00:02", "MAC:00:03"}));
    EXPECT_EQ(json.heardBy("family"), (Addresses{"MAC:00:01", "MAC:00:04"}));
    EXPECT_EQ(json.heardBy("keys"), Addresses{"MAC:00:03"});

    // The GATT session ran to its end: three notifications, then the disconnection.
    EXPECT_EQ(json.count("connectors", "by-uuid", "sessions"), 1u);
    EXPECT_EQ(json.times("by-uuid", "notification").size(), 3u);
    EXPECT_EQ(json.count("connectors", "by-uuid", "failures"), 0u);

    // Two refused starts, retried after 2 and 4 s, then scanning again.
    EXPECT_EQ(json.summary()["radio"]["scanStartsRefused"].GetUint64(), 2u);
    EXPECT_EQ(json.times("radio", "scan start refused"), (std::vector<int64_t>{15000, 17000}));
    const std::vector<int64_t> starts = json.times("radio", "scan started");
    EXPECT_NE(std::find(starts.begin(), starts.end(), 21000), starts.end());

    // The proxy died at 28 s and came back; the connectors scan again.
    EXPECT_EQ(json.summary()["radio"]["proxyDeaths"].GetUint64(), 1u);
    EXPECT_EQ(json.summary()["radio"]["proxyRecoveries"].GetUint64(), 1u);
    EXPECT_EQ(json.heardBy("by-uuid", 40000), Addresses{"MAC:00:01"});
    EXPECT_EQ(json.times("by-maker", "rescan after recovery"), std::vector<int64_t>{28000});

    // Ringing, pairing, and the InLoc duty cycle pausing and resuming tracking.
    EXPECT_EQ(json.times("keys", "rang"), std::vector<int64_t>{10000});
    EXPECT_EQ(json.times("pairing", "pair state"), std::vector<int64_t>{12000});
    EXPECT_GE(json.summary()["inloc"]["trackingResumes"].GetUint64(), 2u);
}

TEST(TrackerSim, TheSameSeedGivesTheSameBytes) {
    // The default scenario has every kind of thread at work: the script's, the platform's, the
    // managers' executors and timers.
    const Outcome first = trackerSim("--speed max --seed 5");
    const Outcome second = trackerSim("--speed max --seed 5");
    const Outcome other = trackerSim("--speed max --seed 6");
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.out, second.out);
    EXPECT_NE(first.out, other.out) << "the seed drives the RSSI noise";

    const std::string scenario = "--speed max --scenario " + kData + "/tracker-sim/small.json";
    // A tag walking out of range for three seconds is missed for those seconds only.
    const JsonRun json(trackerSim(scenario + " --json").out);
    EXPECT_EQ(json.heardBy("by-maker", 6100).size(), 1u);
    for (int64_t t : json.times("by-maker", "result")) {
        EXPECT_FALSE(t > 6000 && t < 9000) << t;
    }
}

TEST(TrackerSim, ARecordingReplaysToTheSameRouting) {
    const std::string recording = ::testing::TempDir() + "small.btsnoop";
    const Outcome recorded = trackerSim("--speed max --json --scenario " + kData +
                                        "/tracker-sim/small.json --record " + recording);
    ASSERT_EQ(recorded.status, 0) << recorded.err;
    const Outcome replayed = trackerSim("--speed max --json --scenario " + kData +
                                        "/tracker-sim/replay-only.json --replay " + recording);
    ASSERT_EQ(replayed.status, 0) << replayed.err;
    const JsonRun original(recorded.out), replay(replayed.out);

    const uint64_t heard = original.summary()["recorded"].GetUint64();
    EXPECT_GT(heard, 30u);
    const rapidjson::Value& figures = replay.summary()["replay"];
    EXPECT_STREQ(figures["format"].GetString(), "btsnoop");
    EXPECT_EQ(figures["reports"].GetUint64(), heard);
    EXPECT_EQ(figures["skipped"].GetUint64(), 0u);
    EXPECT_EQ(figures["delivered"].GetUint64(), heard);
    for (const char* connector : {"by-uuid", "by-maker"}) {
        EXPECT_EQ(replay.count("connectors", connector, "results"),
                  original.count("connectors", connector, "results"))
            << connector;
        EXPECT_EQ(replay.heardBy(connector), original.heardBy(connector)) << connector;
        EXPECT_EQ(replay.times(connector, "result"), original.times(connector, "result"));
    }
}

TEST(TrackerSim, RealCapturesReplayWithTheirExactCounts) {
    const std::string scenario = " --speed max --json --scenario " + kData +
                                 "/tracker-sim/replay-only.json --duration 30 --replay " + kData +
                                 "/captures/";
    struct Expected {
        const char* file;
        const char* format;
        uint64_t reports, delivered, routed;
        const char* connector;
    };
    // The phone saw six advertisements listing FEF3 and six scan responses carrying only its
    // service data, which no filter selects. The sniffer's 24 carry manufacturer data of FFFF.
    for (const Expected& expected :
         {Expected{"phone-extended-adv.btsnoop", "btsnoop", 12, 6, 6, "by-uuid"},
          Expected{"sniffer-ll-discovery.pcap", "pcapng", 24, 24, 24, "by-maker"}}) {
        const Outcome run = trackerSim(scenario + expected.file);
        ASSERT_EQ(run.status, 0) << run.err;
        const JsonRun json(run.out);
        const rapidjson::Value& figures = json.summary()["replay"];
        EXPECT_STREQ(figures["format"].GetString(), expected.format);
        EXPECT_EQ(figures["reports"].GetUint64(), expected.reports) << expected.file;
        EXPECT_EQ(figures["skipped"].GetUint64(), 0u);
        EXPECT_EQ(figures["delivered"].GetUint64(), expected.delivered) << expected.file;
        EXPECT_EQ(figures["routed"].GetUint64(), expected.routed) << expected.file;
        EXPECT_EQ(json.count("connectors", expected.connector, "results"), expected.routed);
    }
}

TEST(TrackerSim, BadInputEndsWithOneLineAndStatusTwo) {
    const std::string garbage = ::testing::TempDir() + "garbage.capture";
    std::ofstream(garbage) << "not a capture at all";
    const std::string badScript = ::testing::TempDir() + "bad-script.json";
    std::ofstream(badScript) << R"({"script": [{"at": 5, "do": "ring", "connector": "x"}]})";
    const std::pair<std::string, std::string> refused[] = {
        {"--frobnicate", "unknown option --frobnicate (see --help)"},
        {"--speed", "--speed needs a value"},
        {"--replay ''", "--replay needs a value"},
        {"--speed 0", "--speed: expected a whole number from 1 to 1000000, or max, not 0"},
        {"--duration 1e9", "--duration: expected whole seconds from 1 to 86400, not 1e9"},
        {"--seed -1", "--seed: expected a whole number from 0 to 4294967295, not -1"},
        {"--log-level loud", "--log-level: expected one of v, d, i, w, e, f, s, not loud"},
        {"--scenario /nonexistent.json", "/nonexistent.json: No such file or directory"},
        {"--scenario /dev/zero", "/dev/zero: not a regular file"},
        {"--scenario " + badScript, badScript + ": script[0].connector: no connector named x"},
        {"--replay /nonexistent.btsnoop", "/nonexistent.btsnoop: No such file or directory"},
        {"--replay /tmp", "/tmp: not a regular file"},
        {"--replay " + garbage, garbage},
        {"--record /nonexistent/run.btsnoop", "cannot create /nonexistent/run.btsnoop: No such"},
        {"--report /nonexistent/run.html", "/nonexistent/run.html: No such file or directory"},
    };
    for (const auto& [arguments, message] : refused) {
        const Outcome run = trackerSim("--speed max --duration 1 " + arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(run.err.rfind("tracker-sim: " + message, 0), 0u) << arguments << ": " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_TRUE(run.out.empty()) << arguments;
    }
    // A recording that cannot be written completely fails the run once it has been played.
    const Outcome full = trackerSim("--speed max --duration 5 --record /dev/full");
    EXPECT_EQ(full.status, 2);
    EXPECT_EQ(full.err, "tracker-sim: /dev/full: the recording could not be written completely\n");

    const Outcome help = trackerSim("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--replay FILE"), std::string::npos);
}

TEST(TrackerSim, TheReportIsOneSelfContainedPage) {
    const std::string page = ::testing::TempDir() + "run.html";
    const Outcome run = trackerSim("--speed max --duration 20 --report " + page);
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string html = slurp(page);
    EXPECT_NE(html.find("<h2>RSSI of each tag</h2>"), std::string::npos);
    EXPECT_NE(html.find("<path fill=\"none\""), std::string::npos);
    EXPECT_NE(html.find("<td>by-uuid</td>"), std::string::npos);
    for (const char* external : {"<script", "src=", "href=", "@import"}) {
        EXPECT_EQ(html.find(external), std::string::npos) << external;
    }

    // A run refused before it starts leaves an earlier page as it was.
    const Outcome refused =
        trackerSim("--speed max --report " + page + " --record /nonexistent/run.btsnoop");
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(slurp(page), html);
}

}  // namespace
