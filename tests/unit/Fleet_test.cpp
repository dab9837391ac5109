#include "cli/Fleet.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/Exception.h"
#include "support/ScriptedView.h"

using vessa::target::Storage;

namespace {

// 127.0.0.9 cannot be reached; 127.0.0.8 answers the agent, but its launcher cannot be run.
class Reachability : public vessa::hax::Transport {
  public:
    std::string envValueOf(const std::string& address, const std::string&) override {
        if (address == "127.0.0.9") {
            throw vessa::Exception("cannot reach 127.0.0.9: Connection refused");
        }
        return "/opt/vltt";
    }
    int listDirectory(const std::string&, const std::string&, std::list<vessa::hax::FSItem>&) override {
        return 0;
    }
    void putFSItem(const std::string&, const std::string&, const std::string&) override {}
    void getFSItem(const std::string&, const std::string&, const std::string&) override {}
    void deleteFSItem(const std::string&, const std::string&) override {}
};

TEST(Fleet, EveryHostAnswersOrFailsByNameWithoutStoppingTheOthers) {
    vessa::hax::clearHostCache();
    vessa::hax::setTransport(std::make_shared<Reachability>());
    vessa::test::ScopedView view(std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/plain-disks/root");
    auto answers =
        vessa::cli::queryFleet({"localhost", "127.0.0.9", "127.0.0.1", "127.0.0.8"}, Storage::allStorage, {});
    ASSERT_EQ(answers.size(), 3u);  // 127.0.0.1 is localhost again
    EXPECT_EQ(answers[0].name, "localhost");
    EXPECT_EQ(answers[0].failure, "");
    EXPECT_EQ(answers[0].host->storage().size(), 2u);
    EXPECT_NE(answers[1].failure.find("Connection refused"), std::string::npos) << answers[1].failure;
    EXPECT_EQ(answers[2].failure, "the launcher pelo could not be run");

    std::ostringstream err;
    EXPECT_EQ(vessa::cli::reportFailures(err, answers), 2);
    EXPECT_EQ(err.str().find("vessa-storage: 127.0.0.9: "), 0u) << err.str();

    auto document = [](vessa::cli::JsonWriter& j, vessa::target::Host& h) {
        j.beginObject();
        j.key("host");
        j.value(h.name());
        j.endObject();
    };
    auto written = [&document](const std::vector<vessa::cli::FleetAnswer>& a) {
        std::ostringstream out;
        vessa::cli::JsonWriter json(out);
        vessa::cli::writeFleetJson(json, a, document);
        json.flush();
        return out.str();
    };
    EXPECT_EQ(written(answers), "{\n  \"hosts\": [\n    {\n      \"host\": \"localhost\"\n    }\n  ]\n}");
    std::vector<vessa::cli::FleetAnswer> one;
    one.push_back(vessa::cli::FleetAnswer{"localhost", std::move(answers[0].host), ""});
    EXPECT_EQ(written(one), "{\n  \"host\": \"localhost\"\n}");
    vessa::hax::setTransport(nullptr);
    vessa::hax::clearHostCache();
}

// The one line that names a failed host stays one line, whatever the name or the reason hold.
TEST(Fleet, FailureLinesStayOneLine) {
    std::vector<vessa::cli::FleetAnswer> answers;
    answers.push_back(
        vessa::cli::FleetAnswer{"evil\nvessa-storage: fake\x1b[2J", nullptr, "cannot reach\r\nx"});
    std::ostringstream err;
    EXPECT_EQ(vessa::cli::reportFailures(err, answers), 1);
    EXPECT_EQ(err.str(), "vessa-storage: evil?vessa-storage: fake?[2J: cannot reach??x\n");
}

}  // namespace
