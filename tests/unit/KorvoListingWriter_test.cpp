#include "target/KorvoListingWriter.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

constexpr Storage::exclusions kKept = Storage::kBoot | Storage::kEmpty | Storage::kPartitioned |
                                      Storage::kSystem | Storage::kVolumeGroup | Storage::kSwap;

std::string escaped(std::string text) {
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"~", "\\x7e"}, {"\n", "\\x0a"}}) {
        for (std::string::size_type p = 0; (p = text.find(from, p)) != std::string::npos; p += to.size()) {
            text.replace(p, from.size(), to);
        }
    }
    return text;
}

// Writes `items` as korvo does and parses the listing as the controller does; every parsed item must
// carry the written item's path, name, size and A M P S V W (with the limits the writer's header states).
void roundTrip(const std::string& what, const std::list<Storage*>& items) {
    std::ostringstream listing;
    vessa::target::writeKorvoListing(listing, items);
    std::istringstream in(listing.str());
    std::string version;
    std::getline(in, version);
    EXPECT_EQ(version, "136");
    std::unique_ptr<Host> controller(Host::named("localhost", false));
    Host::callback none = nullptr;
    controller->parseOldKorvoListing(in, Storage::physicalStorage, none);
    ASSERT_EQ(controller->storage().size(), items.size()) << what << "\n" << listing.str();
    auto parsed = controller->storage().begin();
    for (Storage* local : items) {
        const Storage& back = **parsed++;
        const Storage::exclusions reasons = local->exclusionsList();
        const bool emptyAndSized = (reasons & Storage::kEmpty) != 0 && local->size() >= 512;
        EXPECT_EQ(back.path(), escaped(local->path())) << what;
        EXPECT_EQ(back.name(), escaped(local->name())) << what;
        EXPECT_EQ(back.size(), emptyAndSized ? 0 : local->size()) << what << " " << local->path();
        const Storage::exclusions expected = (reasons & kKept) | (local->size() < 512 ? Storage::kEmpty : 0);
        EXPECT_EQ(back.exclusionsList() & kKept, expected) << what << " " << local->path();
        EXPECT_EQ(back.index(), local->index()) << what;
    }
}

TEST(KorvoListingWriter, EveryScenarioSurvivesTheRoundTrip) {
    int scenarios = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(VESSA_SOURCE_DIR) + "/tests/scenarios")) {
        if (!std::filesystem::is_directory(entry.path() / "root")) {
            continue;
        }
        vessa::hax::clearHostCache();
        vessa::test::ScopedView view((entry.path() / "root").string());
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        host->fill(Storage::allStorage, nullptr, false, {});
        roundTrip(entry.path().filename().string(), host->storage());
        ++scenarios;
    }
    EXPECT_GE(scenarios, 8);
}

TEST(KorvoListingWriter, TextsThatWouldBreakALineAndReasonsWithoutTheirFields) {
    vessa::test::ScopedView view(std::make_unique<vessa::test::ScriptedView>());
    Storage blanks(Storage::discoveredBlockDevice, "my disk 1", "/dev/disk/by-label/my disk", 1 << 20, 0, "",
                   0, {});
    Storage tilde(Storage::fileSystemStorage, "~user~", "/home/~user/targetfile.dat", 4096, 1, "A~B",
                  Storage::kBoot, {});
    Storage lineEnd(Storage::discoveredBlockDevice, "two\nlines", "/dev/sdx", 1 << 30, 2, "",
                    Storage::kPartitioned | Storage::kVolumeGroup | Storage::kSwap, {});
    Storage emptySized(Storage::discoveredBlockDevice, "sdy", "/dev/sdy", 4096, 3, "",
                       Storage::kEmpty | Storage::kSystem, {});
    Storage tiny(Storage::discoveredBlockDevice, "nas", "/mnt/nas", 0, 4, "", 0, {});
    roundTrip("hand-made", {&blanks, &tilde, &lineEnd, &emptySized, &tiny});
    EXPECT_EQ(vessa::target::korvoListingLine(lineEnd),
              "[2]~/dev/sdx~two\\x0alines~~~?~~    P  VW ~36~0~1~1073741824~0~0~1");
}

}  // namespace
