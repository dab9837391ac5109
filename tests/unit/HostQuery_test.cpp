#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Str.h"
#include "support/FakeProgram.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;
using vessa::test::FakeProgram;

namespace {

class ScriptedTransport : public vessa::hax::Transport {
  public:
    std::string envValueOf(const std::string&, const std::string& name) override {
        return name == "VESSA_VLTT_INSTALL_DIR" ? "/opt/vltt" : "";
    }
    int listDirectory(const std::string&, const std::string&, std::list<vessa::hax::FSItem>&) override {
        return 0;
    }
    void putFSItem(const std::string&, const std::string&, const std::string&) override {}
    void getFSItem(const std::string&, const std::string&, const std::string&) override {}
    void deleteFSItem(const std::string&, const std::string&) override {}
};

std::vector<std::pair<int, std::string>> g_progress;
void record(int percent, std::string message) {
    g_progress.emplace_back(percent, message);
}

class RemoteQuery : public ::testing::Test {
  protected:
    void SetUp() override {
        vessa::hax::clearHostCache();
        vessa::hax::setTransport(std::make_shared<ScriptedTransport>());
        g_progress.clear();
        FakeProgram pelo("pelo", "build.os=linux\n");  // a quiet answer to the description request
        host.reset(Host::named("192.0.2.10", false));
    }
    void TearDown() override {
        host.reset();
        vessa::hax::setTransport(nullptr);
        vessa::hax::clearHostCache();
    }
    std::unique_ptr<Host> host;
};

const char* const kListing =
    "\n"
    "136\n"
    "[0]~/dev/sda~ disk0 ~ATA     DISK~ext4~~2:0:0:0~~1~305419896~2~1000204886016~0~1~0\n"
    "/dev/sdb~disk1~~~vg0~~Z~0~~0~512~0~0~1\n";

TEST_F(RemoteQuery, ArgumentVectorProgressAndItems) {
    FakeProgram pelo("pelo", kListing);
    EXPECT_EQ(host->fill(Storage::physicalStorage, record, false, {"-x", "-y"}), 2);
    EXPECT_EQ(pelo.calls(), (std::vector<std::vector<std::string>>{
                                {"--host", "192.0.2.10", "--workdir", "/opt/vltt/korvo_tests/",
                                 "--create-workdir", "--exec", "korvo", "-zt", "-zh", "-p", "-x", "-y"}}));
    EXPECT_EQ(g_progress,
              (std::vector<std::pair<int, std::string>>{{0, "Requesting device information"},
                                                        {80, "Retrieved device list...parsing..."},
                                                        {95, "Added /dev/sda to devices"},
                                                        {95, "Added /dev/sdb to devices"}}));
    std::vector<std::string> items;
    for (const Storage* s : host->storage()) {
        items.push_back(s->name() + "|" + std::to_string(s->index()) + "|" + s->exclusionString());
    }
    EXPECT_EQ(items, (std::vector<std::string>{"disk0|0|    PS    ", "disk1|-1| G     VWZ"}));
    EXPECT_EQ(host->storage().back()->properties().at("volumeGroupName").value(), "vg0");
}

TEST_F(RemoteQuery, TypeOptions) {
    const std::pair<unsigned int, const char*> cases[] = {{5, "-p"},  {1, "-f"}, {3, "-f"}, {8, "-l"},
                                                          {26, "-l"}, {32, ""},  {0, ""}};
    for (const auto& [type, option] : cases) {
        FakeProgram pelo("pelo", "136\n");
        host->fill(static_cast<Storage::storageType>(type), nullptr, false, {});
        ASSERT_EQ(pelo.calls().size(), 1u);
        EXPECT_EQ(pelo.calls()[0].size(), 10u) << type;
        EXPECT_EQ(pelo.calls()[0][9], option) << type;
    }
    EXPECT_TRUE(host->storage().empty());
}

TEST_F(RemoteQuery, OtherVersionsFailedRunsAndBadVersionLinesAddNothing) {
    {
        FakeProgram pelo("pelo", "137\n/dev/sda~a~b\n  x  \n");  // another version is only logged
        vessa::test::LogCapture log;
        EXPECT_EQ(host->fill(Storage::physicalStorage, nullptr, false, {}), 0);
        EXPECT_TRUE(log.hasMessage("Parsing: /dev/sda~a~b") && log.hasMessage("Parsing: x")) << log.text();
    }
    {
        FakeProgram pelo("pelo", kListing, 1);  // a failed run ends the progress at its first step
        vessa::test::LogCapture log;
        EXPECT_EQ(host->fill(Storage::physicalStorage, record, false, {}), 0);
        EXPECT_EQ(g_progress.size(), 1u);
        EXPECT_TRUE(log.hasMessage("Execution failed"));
    }
    FakeProgram pelo("pelo", "korvo 1.0\n");
    EXPECT_THROW(host->fill(Storage::physicalStorage, nullptr, false, {}), vessa::util::str::Exception);
}

TEST_F(RemoteQuery, WorkerThreadFillsTheList) {
    FakeProgram pelo("pelo", kListing);
    vessa::sal::exec::Thread worker = host->queryDevices(Storage::physicalStorage, {});
    worker.wait();
    EXPECT_EQ(worker.failure(), "");
    EXPECT_EQ(host->storage().size(), 2u);
    EXPECT_TRUE(g_progress.empty());  // the worker reports no progress
}

TEST(RemoteHost, NoTransportNamesHostAndOperation) {
    vessa::hax::clearHostCache();
    FakeProgram pelo("pelo", "");
    std::unique_ptr<Host> host(Host::named("192.0.2.11", false));
    EXPECT_THAT([&host] { host->envValueOf("X"); },
                testing::ThrowsMessage<vessa::Exception>(
                    testing::AllOf(testing::HasSubstr("192.0.2.11"), testing::HasSubstr("environment"))));
    vessa::hax::clearHostCache();
}

}  // namespace
