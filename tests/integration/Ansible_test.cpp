// The package's Ansible local fact, gathered by the real `ansible` against this machine (connection
// local): the fact is this machine's list document, verdicts included, as vessa-storage gives it.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "support/TestSupport.h"

namespace exec = vessa::sal::exec;

namespace {

const std::string kBin = VESSA_BINARY_DIR;

std::set<std::string> disks(const nlohmann::json& doc) {
    std::set<std::string> out;
    for (const auto& item : doc["storage"]) {
        EXPECT_TRUE(item["verdict"]["is"].is_string()) << item;
        if (item["kind"] == "disk") {
            out.insert(item["path"].get<std::string>() + " " + item["verdict"]["is"].get<std::string>());
        }
    }
    return out;
}

TEST(Ansible, LocalFactIsTheListDocument) {
    if (!std::filesystem::exists("/usr/bin/ansible")) {
        GTEST_SKIP() << "needs ansible-core";
    }
    vessa::test::TempDir dir;
    const std::string fact =
        dir.write("facts/vessa_storage.fact",
                  vessa::test::readFile(std::string(VESSA_SOURCE_DIR) + "/companions/vessa_storage.fact"));
    ::chmod(fact.c_str(), 0755);
    auto direct = [] {
        std::string out;
        EXPECT_EQ(exec::runCaptured(kBin + "/cli/vessa-storage", {"list", "--json"}, out), 0);
        return nlohmann::json::parse(out);
    };
    exec::RunStreams streams;
    std::string out, err;
    streams.output = [&out](const char* d, std::size_t n) { out.append(d, n); };
    streams.error = [&err](const char* d, std::size_t n) { err.append(d, n); };
    streams.hasEnv = true;
    streams.env = exec::Process::envVars();
    streams.env.vars["PATH"] = kBin + "/cli:" + streams.env.vars["PATH"];
    streams.env.vars["HOME"] = dir.path();  // ansible's own temporary files
    streams.env.vars["ANSIBLE_NOCOLOR"] = "1";
    exec::RunLimits limits;
    limits.timeoutSeconds = 120;
    const nlohmann::json before = direct();
    const exec::RunResult r =
        exec::runBounded("ansible",
                         {"localhost", "-i", "localhost,", "-c", "local", "-m", "setup", "-a",
                          "filter=ansible_local fact_path=" + dir.path() + "/facts"},
                         streams, limits);
    const nlohmann::json after = direct();
    ASSERT_EQ(r.outcome, exec::RunResult::Exited);
    ASSERT_EQ(r.status, 0) << out << err;
    ASSERT_EQ(out.find("localhost | SUCCESS => "), 0u) << out;
    const nlohmann::json gathered =
        nlohmann::json::parse(out.substr(out.find('{')))["ansible_facts"]["ansible_local"]["vessa_storage"];

    // Other work on this machine may add or remove loop devices meanwhile: the fact must hold every
    // disk (with its verdict) that both direct runs around it saw, and nothing that neither saw.
    EXPECT_EQ(gathered["host"], before["host"]);
    const std::set<std::string> got = disks(gathered), a = disks(before), b = disks(after);
    int stable = 0;
    for (const std::string& d : a) {
        stable += b.count(d);
        EXPECT_TRUE(!b.count(d) || got.count(d)) << d;
    }
    EXPECT_GT(stable, 0);
    for (const std::string& d : got) {
        EXPECT_TRUE(a.count(d) || b.count(d)) << d;
    }
}

}  // namespace
