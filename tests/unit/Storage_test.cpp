#include "target/Storage.h"

#include <gtest/gtest.h>

using vessa::target::Property;
using vessa::target::Storage;

namespace {

Storage disk(const std::string& path, unsigned int type = Storage::discoveredBlockDevice, int index = 0,
             const std::map<std::string, Property>& props = {}) {
    return Storage(static_cast<Storage::storageType>(type), "name", path, 1024, index, "INQ", 0, props);
}

// (Where an item's path gets the test file, the access type of a listed item, and the debug dump and
// destructor's lines of an item are the records of tests/data/library/handmade-storage-paths; the
// letters of the exclusion bits, overrides and the user mark those of handmade-exclusion-bits.)
TEST(Storage, StandardPropertiesReplaceGivenOnes) {
    std::map<std::string, Property> given = {
        {"name", Property("name", "given", "N", "D", "C")},
        {"extra", Property("extra", "x", "Extra", "An extra.", "Debug")},
    };
    Storage s = disk("/dev/sdb", Storage::discoveredBlockDevice, -1, given);
    EXPECT_EQ(s.properties().count("index"), 0u);  // index -1: no index property
    EXPECT_EQ(s.properties().at("name").value(), "name");
    EXPECT_EQ(s.properties().at("extra").value(), "x");
    given.insert_or_assign("index", Property("index", "77", "I", "D", "C"));
    EXPECT_EQ(disk("/dev/sdb", Storage::discoveredBlockDevice, 3, given).properties().at("index").value(),
              "77");  // the given map wins over the index
}

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

}  // namespace
