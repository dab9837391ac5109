#include <gtest/gtest.h>

#include "target/Storage.h"

namespace standard = vessa::target::standard;

// The fourteen texts are part of what users see in reports; they are pinned here letter for letter.
TEST(StandardProperties, TableIsExact) {
    const struct {
        const char *key, *label, *category, *description;
    } expected[14] = {
        {"accessType", "Access Type", "Debug", "Means by which the system accesses the device."},
        {"exclusion", "Exclusion(s)", "General",
         "Reasons the target is excluded from testing. Most exclusions can be overridden. Non-file system "
         "targets "
         "cannot override the system exclusion."},
        {"fileSystem", "File System", "General",
         "File system for which the device is formatted (ex: NTFS, ext2/3)."},
        {"index", "Index", "Debug", "Index of the device as seen by Korvo."},
        {"inquiry", "Inquiry", "General",
         "Device inquiry. In the case of partitions, this is the inquiry of the parent device."},
        {"label", "Label", "General", "User created device label."},
        {"name", "Name", "General", "User friendly description of the device."},
        {"path", "Path", "General", "Path by which the system accesses the device."},
        {"scsiString", "SCSI Address", "General", "SCSI address of the device on the system."},
        {"sectorSize", "Block Size", "General", "Sector or block size for the device."},
        {"serialNumber", "Serial Number", "General", "Vendor assigned serial number for the device."},
        {"signature", "Signature", "General", "Device signature as assigned by Windows."},
        {"size", "Size", "General", "Size, in byte, of the device."},
        {"volumeGroupName", "Volume Group", "Debug", "Name of the volume group to which the device belongs."},
    };
    for (int i = 0; i < 14; ++i) {
        const vessa::target::StandardProperty& p = *standard::all[i];
        EXPECT_STREQ(p.key, expected[i].key);
        EXPECT_STREQ(p.displayName, expected[i].label) << p.key;
        EXPECT_STREQ(p.category, expected[i].category) << p.key;
        EXPECT_STREQ(p.description, expected[i].description) << p.key;
        vessa::target::Property made = p.make("v");
        EXPECT_EQ(made.name(), expected[i].key);
        EXPECT_EQ(made.value(), "v");
        EXPECT_EQ(made.category(), expected[i].category);
        EXPECT_EQ(made.description(), expected[i].description);
    }
    EXPECT_STREQ(standard::kGeneral, "General");
    EXPECT_STREQ(standard::kDebug, "Debug");
}
