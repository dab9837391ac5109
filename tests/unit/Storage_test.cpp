#include "target/Storage.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/TestSupport.h"

using vessa::target::Property;
using vessa::target::Storage;

namespace {

Storage disk(const std::string& path, unsigned int type = Storage::discoveredBlockDevice, int index = 0,
             const std::map<std::string, Property>& props = {}) {
    return Storage(static_cast<Storage::storageType>(type), "name", path, 1024, index, "INQ", 0, props);
}

// An item of a listing line: a device's, or the file system's when `type` says so.
Storage listing(unsigned int type, const std::string& path = "/dev/sdq") {
    return Storage(static_cast<Storage::storageType>(type), -4, "n", path, 4096, "inq", "ext4", "", "1:0:0:0",
                   "", 9, 0, false, false, false, true);
}

// Only a file system (type 1 exactly) whose path has a "/" and no test file yet gets the test file; the
// listing flips the separators only when it appended.
TEST(Storage, PathRule) {
    // Whether the listing constructor makes it, the type, the path given and the path stored.
    const std::tuple<bool, unsigned int, const char*, const char*> cases[] = {
        {false, 1, "/mnt/data", "/mnt/data/targetfile.dat"},
        {false, 1, "/mnt/data/", "/mnt/data/targetfile.dat"},
        {false, 1, "/mnt/data/targetfile.dat", "/mnt/data/targetfile.dat"},
        {false, 3, "/mnt/data", "/mnt/data"},
        {false, 1, "nodir", "nodir"},
        {false, 36, "/dev/sda", "/dev/sda"},
        {true, 1, "E:/data", "E:\\data\\targetfile.dat"},
        {true, 4, "/dev/sda", "/dev/sda"},
    };
    for (const auto& [listed, type, path, stored] : cases) {
        Storage s = listed ? listing(type, path) : disk(path, type);
        EXPECT_EQ(s.path(), stored) << type << " " << path;
        EXPECT_EQ(s.properties().at("path").value(), stored);
    }
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
    EXPECT_EQ(disk("/dev/sdb", Storage::discoveredBlockDevice, 3, given).properties().at("index").value(),
              "77");  // the given map wins over the index
}

// The exclusions a listing line gives are the records of tests/data/listing.
// Items keep their properties packed until properties() is asked for; both forms read and change alike.
TEST(Storage, PackedAndUnpackedPropertiesAgree) {
    const std::map<std::string, Property> given = {{"zeta", Property("zeta", "z", "Z", "D", "C")},
                                                   {"alias", Property("other", "a", "A", "D", "C")}};
    Storage packed = disk("/dev/sdb", Storage::discoveredBlockDevice, 1);
    Storage unpacked = packed;
    unpacked.properties();
    Storage keyed = disk("/dev/sdc", Storage::discoveredBlockDevice, 1, given);  // a key not its name
    auto dump = [](const Storage& s) {
        std::string out;
        s.forEachProperty([&](const std::string& k, const Property& p) { out += k + "=" + p.value() + ";"; });
        return out;
    };
    for (Storage* s : {&packed, &unpacked}) {
        s->addProperty(Property("inUse", "busy", "I", "D", "C"));
        s->addProperty(Property("name", "renamed", "N", "D", "C"));
        ASSERT_NE(s->property("inUse"), nullptr);
        EXPECT_EQ(s->property("name")->value(), "renamed");
        EXPECT_EQ(s->property("absent"), nullptr);
    }
    EXPECT_EQ(dump(packed), dump(unpacked));
    EXPECT_EQ(dump(packed).substr(0, 23), "exclusion=          ;in");
    EXPECT_EQ(keyed.property("alias")->name(), "other");
    EXPECT_EQ(keyed.properties().count("alias"), 1u);
}

TEST(Storage, ListingPropertiesAndAccessType) {
    const std::pair<unsigned int, const char*> cases[] = {{4, "0"}, {5, "0"},  {1, "2"},  {2, "1"},
                                                          {8, "1"}, {16, "1"}, {32, "2"}, {3, "1"}};
    for (const auto& [type, access] : cases) {
        Storage s = listing(type);
        EXPECT_EQ(s.properties().at("accessType").value(), access) << type;
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
    Storage& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.path(), "/dev/sda");
    ASSERT_EQ(assigned.children().size(), 1u);
    EXPECT_EQ(assigned.children().front().children().front().path(), "/dev/sda1x");
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
    EXPECT_EQ(std::vector<std::string>(m.begin() + 1, m.begin() + 12),
              (std::vector<std::string>{"====================================", "Name:         name",
                                        "Sort Name:    ", "Path:         /dev/sda", "Inquiry:      INQ",
                                        "Index:        0", "Size:         1024",
                                        "Exclusions:   " + std::string(10, ' '), "Storage Type: 36",
                                        "Properties:", "    exclusion:           "}));
    EXPECT_TRUE(log.hasMessage("Destructing \"name\""));
}

}  // namespace
