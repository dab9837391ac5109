#include "lin/Identity.h"

#include <gtest/gtest.h>

namespace {

// The bus a disk hangs on, from the target of its sysfs link (the first two as real machines
// have them), and the serial of a unit serial number page.
TEST(Identity, TransportAndSerial) {
    const std::pair<const char*, const char*> links[] = {
        {"../devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda", "sata"},
        {"../devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/nvme0n1", "nvme"},
        {"../devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0/block/sdb", "usb"},
        {"../devices/platform/host7/session1/target7:0:0/7:0:0:1/block/sdc", "iscsi"},
        {"../devices/pci0000:00/0000:03:00.0/host2/rport-2:0-0/target2:0:0/2:0:0:0/block/sdd", "fc"},
        {"../devices/pci0000:00/0000:02:00.0/host1/port-1:0/end_device-1:0/target1:0:0/1:0:0:0/block/sde",
         "sas"},
        {"../devices/pci0000:00/0000:00:04.0/virtio1/block/vda", "virtio"},
        {"../devices/virtual/block/loop0", ""},
        {"../devices/virtual/block/dm-0", ""}};
    for (const auto& [target, bus] : links) {
        EXPECT_EQ(vessa::target::lin::transportOf(target), bus) << target;
    }
    const std::pair<std::string, const char*> pages[] = {{std::string("\x00\x80\x00\x14"
                                                                      "50026B724B09A1FF    ",
                                                                      24),
                                                          "50026B724B09A1FF"},
                                                         {std::string("\x00\x80\x00\x08"
                                                                      "  AB12  ",
                                                                      12),
                                                          "AB12"},
                                                         {std::string("\x00\x80\x00\x04"
                                                                      "AB12xxxx",
                                                                      12),
                                                          "AB12"},  // only the length the page gives
                                                         {std::string("\x00\x83\x00\x04"
                                                                      "AB12",
                                                                      8),
                                                          ""},  // another page
                                                         {std::string("\x00\x80\x00\x04"
                                                                      "A\x01"
                                                                      "B2",
                                                                      8),
                                                          ""},  // not printable
                                                         {std::string("\x00\x80", 2), ""}};
    for (const auto& [page, serial] : pages) {
        EXPECT_EQ(vessa::target::lin::serialOfPage80(page), serial) << page;
    }
}

}  // namespace
