#include <gtest/gtest.h>

#include "target/Storage.h"

namespace standard = vessa::target::standard;

// The texts are part of what users see in reports. The eight that every discovered item carries are
// pinned by the scenario tests' own table; the other six are pinned here letter for letter.
TEST(StandardProperties, TableIsExact) {
    const std::map<std::string, std::vector<std::string>> pinned = {
        {"fileSystem",
         {"File System", "General", "File system for which the device is formatted (ex: NTFS, ext2/3)."}},
        {"label", {"Label", "General", "User created device label."}},
        {"sectorSize", {"Block Size", "General", "Sector or block size for the device."}},
        {"serialNumber", {"Serial Number", "General", "Vendor assigned serial number for the device."}},
        {"signature", {"Signature", "General", "Device signature as assigned by Windows."}},
        {"volumeGroupName",
         {"Volume Group", "Debug", "Name of the volume group to which the device belongs."}},
    };
    std::string keys;
    for (const vessa::target::StandardProperty* p : standard::all) {
        keys += std::string(keys.empty() ? "" : " ") + p->key;
        if (pinned.count(p->key)) {
            EXPECT_EQ((std::vector<std::string>{p->displayName, p->category, p->description}),
                      pinned.at(p->key));
        }
        const vessa::target::Property made = p->make("v");
        EXPECT_EQ((std::vector<std::string>{made.name(), made.value(), made.category(), made.description()}),
                  (std::vector<std::string>{p->key, "v", p->category, p->description}));
    }
    EXPECT_EQ(
        keys,
        "accessType exclusion fileSystem index inquiry label name path scsiString sectorSize serialNumber "
        "signature size volumeGroupName");
    EXPECT_STREQ(standard::kGeneral, "General");
    EXPECT_STREQ(standard::kDebug, "Debug");
}
