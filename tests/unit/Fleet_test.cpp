#include "cli/Fleet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <sstream>

#include "platform/Exception.h"
#include "platform/hax/SshTransport.h"
#include "support/Golden.h"
#include "support/ScriptedView.h"
#include "support/StubTransport.h"
#include "support/TestSupport.h"

using vessa::target::Storage;

namespace {

TEST(Fleet, EveryHostAnswersOrFailsByNameWithoutStoppingTheOthers) {
    vessa::hax::clearHostCache();
    // 127.0.0.9 cannot be reached; 127.0.0.8 answers the agent, but its launcher cannot be run.
    vessa::hax::setTransport(
        std::make_shared<vessa::test::StubTransport>([](const std::string& address, const std::string&) {
            if (address == "127.0.0.9") {
                throw vessa::Exception("cannot reach 127.0.0.9: Connection refused");
            }
            return std::string("/opt/vltt");
        }));
    vessa::test::ScopedView view(std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/plain-disks/root");
    vessa::cli::FleetOptions options;
    options.parallel = 2;
    std::vector<std::string> done;
    options.done = [&done](vessa::cli::FleetAnswer& a) { done.push_back(a.name); };
    auto answers = vessa::cli::queryFleet({"localhost", "127.0.0.9", "127.0.0.1", "127.0.0.8"}, options);
    ASSERT_EQ(answers.size(), 3u);  // 127.0.0.1 is localhost again
    EXPECT_EQ(done.size(), 3u);
    EXPECT_EQ(answers[0].name, "localhost");
    EXPECT_EQ(answers[0].status, vessa::cli::HostStatus::Ok);
    EXPECT_EQ(answers[0].message, "");
    EXPECT_EQ(answers[0].host->storage().size(), 2u);
    EXPECT_EQ(answers[1].status, vessa::cli::HostStatus::Unreachable);
    EXPECT_EQ(answers[1].message, "cannot reach 127.0.0.9: Connection refused");  // no C++ type name
    EXPECT_EQ(answers[2].status, vessa::cli::HostStatus::Error);
    EXPECT_EQ(answers[2].message, "the launcher pelo could not be run");

    std::ostringstream err;
    EXPECT_EQ(vessa::cli::reportFailures(err, answers), 2);

    auto document = [](vessa::cli::JsonWriter& j, vessa::cli::FleetAnswer& a) {
        j.beginObject();
        j.key("host");
        j.value(a.name);
        vessa::cli::writeHostStatus(j, a);
        j.endObject();
    };
    auto written = [&document](std::vector<vessa::cli::FleetAnswer>& a) {
        std::ostringstream out;
        vessa::cli::JsonWriter json(out);
        vessa::cli::writeFleetJson(json, a, document);
        json.flush();
        return out.str();
    };
    // A fleet's document lists its hosts; a single host's is that host's own.
    answers.resize(2);
    const std::string fleet = written(answers);
    answers.resize(1);
    vessa::test::expectGolden(std::string(VESSA_SOURCE_DIR) + "/tests/data/cli/fleet-documents.json",
                              fleet + "\n" + written(answers) + "\n");
    vessa::hax::setTransport(nullptr);
    vessa::hax::clearHostCache();
}

// Over SSH a host costs one ssh call and no shared connection: its description, then the listing tool
// in the install directory that the description names; a refused connection and a failing tool keep
// their statuses. The remote side is a local shell with stand-ins for the host's tools.
TEST(Fleet, OverSshEachHostIsOneSessionWithoutAMaster) {
    vessa::test::TempDir dir;
    dir.write("bin/vessa.shed.env",
              "#!/bin/sh\nprintf 'vltt.version=9.1\\nvltt.installdir=" + dir.path() + "'\n");
    dir.write("bin/korvo",
              "#!/bin/sh\n[ \"$4\" = fail ] && exit 3\npwd >ran; echo \"$@\" >>ran\n"
              "printf '136\\n/dev/a~a~~~~~P~0~1~0~4096\\n/dev/b~b~~~~~p~0~1~0~4096\\n'\n");
    ::chmod((dir.path() + "/bin/vessa.shed.env").c_str(), 0755);
    ::chmod((dir.path() + "/bin/korvo").c_str(), 0755);
    std::vector<std::list<std::string>> calls;
    vessa::hax::SshTransport::Options ssh;
    ssh.shareConnections = false;
    vessa::hax::setTransport(std::make_shared<vessa::hax::SshTransport>(
        ssh, [&](const std::string&, const std::list<std::string>& args,
                 const vessa::sal::exec::RunStreams& streams, const vessa::sal::exec::RunLimits& limits) {
            calls.push_back(args);
            if (*std::prev(args.end(), 2) == "127.0.0.6") {
                const std::string refused = "ssh: connect to host 127.0.0.6 port 22: Connection refused\n";
                streams.error(refused.data(), refused.size());
                return vessa::sal::exec::RunResult{vessa::sal::exec::RunResult::Exited, 255};
            }
            vessa::sal::exec::RunStreams local = streams;
            local.env.vars.erase("VESSA_VLTT_INSTALL_DIR");
            local.env.vars["PATH"] = dir.path() + "/bin:" + local.env.vars["PATH"];
            return vessa::sal::exec::runBounded("/bin/sh", {"-c", args.back()}, local, limits);
        }));
    vessa::cli::FleetOptions options;
    options.parallel = 1;  // the runner records on one thread
    options.options = {"--in-use"};
    auto answers = vessa::cli::queryFleet({"127.0.0.5", "127.0.0.6"}, options);
    options.options = {"fail"};
    answers.push_back(std::move(vessa::cli::queryFleet({"127.0.0.4"}, options)[0]));
    vessa::hax::setTransport(nullptr);
    ASSERT_EQ(calls.size(), 3u);
    for (const auto& call : calls) {
        EXPECT_THAT(call, testing::Contains("ControlMaster=no"));
        EXPECT_THAT(call, testing::Not(testing::Contains("ControlPersist=60")));
    }
    EXPECT_EQ(answers[0].message, "");
    EXPECT_EQ(answers[0].host->toolsVersion(), "9.1");
    EXPECT_EQ(answers[0].host->storage().size(), 2u);
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/korvo_tests/ran"),
              dir.path() + "/korvo_tests\n-zt -zh -p --in-use\n");
    EXPECT_EQ(answers[1].status, vessa::cli::HostStatus::Unreachable);
    EXPECT_EQ(answers[1].message,
              "cannot run vessa.shed.env and korvo on 127.0.0.6: ssh: connect to host 127.0.0.6 port 22: "
              "Connection refused");
    EXPECT_EQ(answers[2].status, vessa::cli::HostStatus::Error);
    EXPECT_EQ(answers[2].message, "korvo did not run to its end on 127.0.0.4 (exit status 3)");
}

// The one line that names a failed host stays one line, whatever the name or the reason hold.
TEST(Fleet, FailureLinesStayOneLine) {
    std::vector<vessa::cli::FleetAnswer> answers;
    answers.push_back(vessa::cli::FleetAnswer{"evil\nvessa-storage: fake\x1b[2J", nullptr,
                                              vessa::cli::HostStatus::Error, "cannot reach\r\nx"});
    std::ostringstream err;
    EXPECT_EQ(vessa::cli::reportFailures(err, answers), 1);
    EXPECT_EQ(err.str(), "vessa-storage: evil?vessa-storage: fake?[2J: cannot reach??x\n");
}

}  // namespace

// The summary counts each status, the retry list names every host that did not answer. (Which status
// each failure gives, and what a hosts file names, are the records of tests/data/cli.)
TEST(Fleet, SummaryAndRetryList) {
    using vessa::cli::HostStatus;
    std::vector<vessa::cli::FleetAnswer> answers;
    for (HostStatus status :
         {HostStatus::Unreachable, HostStatus::Unreachable, HostStatus::Timeout, HostStatus::Timeout,
          HostStatus::Auth, HostStatus::Auth, HostStatus::Error, HostStatus::Ok}) {
        answers.push_back(vessa::cli::FleetAnswer{std::to_string(answers.size()), nullptr, status, "x"});
    }
    EXPECT_EQ(vessa::cli::fleetSummary(answers), "1 ok, 2 unreachable, 2 auth, 2 timeout, 1 error");
    EXPECT_EQ(vessa::cli::failedHostsText(answers), "0\n1\n2\n3\n4\n5\n6\n");
}
