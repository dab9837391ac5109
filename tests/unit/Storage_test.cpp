#include "target/Storage.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/TestSupport.h"

using vessa::target::Property;
using vessa::target::Storage;

namespace {

Storage disk(const std::string& path, Storage::storageType type = Storage::discoveredBlockDevice,
             int index = 0, const std::map<std::string, Property>& props = {}) {
    return Storage(type, "name", path, 1024, index, "INQ", 0, props);
}

Storage listing(unsigned long long size, const std::string& exclusionText, unsigned int signature, int index,
                unsigned int partitions = 0, const std::string& vg = "", bool boot = false,
                bool system = false, bool swap = false,
                Storage::storageType type = Storage::physicalStorage) {
    return Storage(type, index, "n", "/dev/sdq", size, "inq", "ext4", vg, "1:0:0:0", exclusionText, signature,
                   partitions, boot, system, swap, false);
}

TEST(Storage, DiscoveryPathRule) {
    const struct {
        unsigned int type;
        const char* path;
        const char* stored;
    } cases[] = {
        {1, "/mnt/data", "/mnt/data/targetfile.dat"},
        {1, "/mnt/data/", "/mnt/data/targetfile.dat"},
        {1, "/mnt/data/targetfile.dat", "/mnt/data/targetfile.dat"},
        {3, "/mnt/data", "/mnt/data"},
        {1, "nodir", "nodir"},
        {36, "/dev/sda", "/dev/sda"},
    };
    for (const auto& c : cases) {
        Storage s = disk(c.path, static_cast<Storage::storageType>(c.type));
        EXPECT_EQ(s.path(), c.stored) << c.type << " " << c.path;
        EXPECT_EQ(s.properties().at("path").value(), c.stored);
    }
}

TEST(Storage, ListingPathRuleFlipsOnlyWhenItAppends) {
    Storage flipped(Storage::fileSystemStorage, 1, "n", "E:/data", 4096, "", "", "", "", "", 1, 0, false,
                    false, false, true);
    EXPECT_EQ(flipped.path(), "E:\\data\\targetfile.dat");
    Storage kept(Storage::physicalStorage, 1, "n", "/dev/sda", 4096, "", "", "", "", "", 1, 0, false, false,
                 false, true);
    EXPECT_EQ(kept.path(), "/dev/sda");
}

TEST(Storage, StandardPropertiesReplaceGivenOnes) {
    std::map<std::string, Property> given = {
        {"name", Property("name", "given", "N", "D", "C")},
        {"extra", Property("extra", "x", "Extra", "An extra.", "Debug")},
    };
    Storage s = disk("/dev/sdb", Storage::discoveredBlockDevice, -1, given);
    EXPECT_EQ(s.properties().count("index"), 0u);  // index -1: no index property
    EXPECT_EQ(s.properties().at("name").value(), "name");
    EXPECT_EQ(s.properties().at("extra").value(), "x");
    EXPECT_EQ(s.properties().at("size").value(), "1024");
    EXPECT_EQ(s.properties().at("exclusion").value(), "          ");

    given.insert_or_assign("index", Property("index", "77", "I", "D", "C"));
    Storage withIndex = disk("/dev/sdb", Storage::discoveredBlockDevice, 3, given);
    EXPECT_EQ(withIndex.properties().at("index").value(), "77");  // the given map wins over the index
}

TEST(Storage, ListingExclusions) {
    const struct {
        Storage s;
        const char* string;
    } cases[] = {
        {listing(511, "", 1, 0), "   M      "},
        {listing(512, "", 1, 0), "          "},
        {listing(4096, "Z", 1, 0), "         Z"},
        {listing(4096, "z", 1, 0), "          "},
        {listing(4096, "", 0, -1), " G        "},
        {listing(4096, "", 7, -1), "          "},
        {listing(4096, "", 0, 0), "          "},
        {listing(4096, "P", 1, 0, 2), "    P     "},
        {listing(4096, "", 1, 0, 0, "vg0"), "       V  "},
        {listing(4096, "", 1, 0, 0, "", true, true, true), "A    S  W "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(const_cast<Storage&>(c.s).exclusionString(), c.string);
    }
}

TEST(Storage, ListingPropertiesAndAccessType) {
    const struct {
        unsigned int type;
        const char* access;
    } cases[] = {{4, "0"}, {5, "0"}, {1, "2"}, {2, "1"}, {8, "1"}, {16, "1"}, {32, "2"}, {3, "1"}};
    for (const auto& c : cases) {
        Storage s =
            listing(4096, "", 9, -4, 0, "", false, false, false, static_cast<Storage::storageType>(c.type));
        EXPECT_EQ(s.properties().at("accessType").value(), c.access) << c.type;
        EXPECT_EQ(s.properties().at("index").value(), "-4");
        EXPECT_EQ(s.properties().at("signature").value(), "9");
        EXPECT_EQ(s.properties().at("scsiString").value(), "1:0:0:0");
        EXPECT_EQ(s.properties().at("fileSystem").value(), "ext4");
        EXPECT_EQ(s.properties().size(), 11u);
    }
}

TEST(Storage, CopyIsDeepAndAssignmentSurvivesSelf) {
    auto* root = new Storage(disk("/dev/sda"));
    Storage child = disk("/dev/sda1");
    child.addChild(disk("/dev/sda1x"));
    root->addChild(child);
    EXPECT_EQ(root->children().front().parent(), root);

    // The copy must own its own subtree and map: the source is gone before the copy is read.
    Storage copy(*root);
    root->properties().at("name").setValue("changed");
    delete root;
    EXPECT_EQ(copy.properties().at("name").value(), "name");
    ASSERT_EQ(copy.children().size(), 1u);
    ASSERT_EQ(copy.children().front().children().size(), 1u);
    EXPECT_EQ(copy.children().front().children().front().path(), "/dev/sda1x");

    Storage assigned = disk("/dev/other");
    assigned = copy;
    EXPECT_EQ(assigned.path(), "/dev/sda");
    EXPECT_EQ(assigned.children().front().children().front().path(), "/dev/sda1x");
    Storage& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.path(), "/dev/sda");
    EXPECT_EQ(assigned.children().size(), 1u);
}

TEST(Storage, PrintUsesCleanedTableNamePerProperty) {
    Storage fs(Storage::fileSystemStorage, "sda1", "/mnt/a/", 0, -1, "", 0, {});
    EXPECT_EQ(fs.path(), "/mnt/a/targetfile.dat");
    std::ostringstream os;
    Storage(Storage::fileSystemStorage, "x", "mnt", 0, -1, "", 0, {}).print(os);
    EXPECT_NE(os.str().find("  <mnt5ffs>\n"), std::string::npos);
    std::ostringstream rows;
    Storage s(static_cast<Storage::storageType>(3), "x", "/mnt/a", 0, -1, "", 0, {});
    s.print(rows);
    // Five standard properties, seven lines each, all named by the cleaned table name.
    std::istringstream in(rows.str());
    std::string line;
    int opening = 0;
    while (std::getline(in, line)) {
        opening += line == "  <x2fmnt2fa5ffs>";
    }
    EXPECT_EQ(opening, 5);
}

TEST(Storage, DebugDumpAndDestructorLog) {
    vessa::test::LogCapture log;
    {
        Storage s = disk("/dev/sda");
        log.clear();
        s.printToDebug();
    }
    std::vector<std::string> m = log.messages();
    ASSERT_GE(m.size(), 12u);
    EXPECT_EQ(m[1], "====================================");
    EXPECT_EQ(m[2], "Name:         name");
    EXPECT_EQ(m[3], "Sort Name:    ");
    EXPECT_EQ(m[4], "Path:         /dev/sda");
    EXPECT_EQ(m[5], "Inquiry:      INQ");
    EXPECT_EQ(m[6], "Index:        0");
    EXPECT_EQ(m[7], "Size:         1024");
    EXPECT_EQ(m[8], "Exclusions:   " + std::string(10, ' '));
    EXPECT_EQ(m[9], "Storage Type: 36");
    EXPECT_EQ(m[10], "Properties:");
    EXPECT_EQ(m[11], "    exclusion:           ");
    EXPECT_TRUE(log.hasMessage("Destructing \"name\""));
}

}  // namespace
