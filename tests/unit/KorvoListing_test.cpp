#include <gtest/gtest.h>

#include <malloc.h>

#include <sstream>

#include "support/FakeProgram.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

// What an item of a listing costs the controller stays within four times its own size (the item, and
// a key and a value for each of its eleven properties), never a copy of every property's description
// (which once made 400,000 one-character lines take 1.6 GB). What a listing's lines give is in the
// golden files of tests/data/listing.
TEST(Listing, ItemsHoldNoCopiesOfTheDescriptions) {
    constexpr std::size_t kItems = 20000;
    std::unique_ptr<Host> host;
    {
        vessa::test::FakeProgram pelo("pelo", "build.os=linux\n");
        host.reset(Host::named("127.0.0.1", false));
    }
    std::string text;
    for (std::size_t i = 0; i < kItems; ++i) {
        text += "x\n";
    }
    Host::callback cb = nullptr;
    const std::size_t before = ::mallinfo2().uordblks;
    std::istringstream in(text);
    host->parseOldKorvoListing(in, Storage::physicalStorage, cb);
    ASSERT_EQ(host->storage().size(), kItems);
    const std::size_t perItem = (::mallinfo2().uordblks - before) / kItems;
    EXPECT_LE(perItem, 4 * (sizeof(Storage) + 11 * 2 * sizeof(std::string)));
}

// A file system's target file is written in the other separator convention when exactly one of the two
// sides, this controller and the host that wrote the listing, was built for "win".
TEST(Listing, PathsFlipForAHostOfTheOtherConvention) {
    for (const auto& [buildOs, path] :
         {std::pair{"linux", "/mnt/data/targetfile.dat"}, {"win", "\\mnt\\data\\targetfile.dat"}}) {
        vessa::hax::clearHostCache();
        std::unique_ptr<Host> host;
        {
            vessa::test::FakeProgram pelo("pelo", std::string("build.os=") + buildOs + "\n");
            host.reset(Host::named("127.0.0.1", false));
        }
        std::istringstream in("/mnt/data\n");
        Host::callback cb = nullptr;
        host->parseOldKorvoListing(in, Storage::fileSystemStorage, cb);
        ASSERT_EQ(host->storage().size(), 1u) << buildOs;
        EXPECT_EQ(host->storage().front()->path(), path) << buildOs;
    }
}

}  // namespace
