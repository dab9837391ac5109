# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "resthost"


def sr0(p):
    return [proc_partition(p, "sr0", 1048575, 11, 0),
            sys_block(p, "sr0", 11, 0, 2097150, removable=True),
            mount_entry("fstab", p, "/dev/sr0", "/media/cdrom0", "udf,iso9660")]


def disk(index, name, blocks, minor, letters="", **verdict):
    return item(36, index, name, "/dev/" + name, blocks * 1024, letters,
                [proc_partition("", name, blocks, 8, minor)], **verdict)


def part(index, name, blocks, minor, **verdict):
    return item(26, index, name, "/dev/" + name, blocks * 1024, "", [proc_partition("", name, blocks, 8, minor)],
                **verdict)


CDROM = "configured in /etc/fstab at /media/cdrom0"
TEST = "mounted at /mnt/test"
ITEMS = [
    item(36, 0, "loop0", "/dev/loop0", 65536 * 1024, "",
         [proc_partition("", "loop0", 65536, 7, 0), sys_block("", "loop0", 7, 0, 131072, removable=False)],
         read_only=True),
    disk(1, "sda", 1048576, 0, data=["holds data: LUKS encrypted volume, configured in /etc/crypttab as cryptdata"]),
    disk(2, "sdb", 524288, 16, data=["holds data: swap space"]),
    item(36, 3, "sdc", "/dev/sdc", 1048576 * 1024, "P",
         [proc_partition("", "sdc", 1048576, 8, 32), proc_partition("Partition ", "sdc1", 1046528, 8, 33)],
         data=["holds data: gpt partition table"]),
    item(36, 4, "sdd", "/dev/sdd", 1048576 * 1024, "P",
         [proc_partition("", "sdd", 1048576, 8, 48), proc_partition("Partition ", "sdd1", 1046528, 8, 49)],
         data=["holds data: dos partition table"]),
    item(36, 5, "sde", "/dev/sde", 2097152 * 1024, "P",
         [proc_partition("", "sde", 2097152, 8, 64), proc_partition("Partition ", "sde1", 1048576, 8, 65),
          proc_partition("Partition ", "sde2", 1047552, 8, 66)],
         in_use=["through sde1: " + TEST, "through sde2: " + TEST], data=["holds data: gpt partition table"]),
    disk(6, "sdf", 1048576, 80, in_use=["mounted at /srv"], data=["holds data: btrfs 'pool'"]),
    disk(7, "sdg", 1048576, 96, in_use=["mounted at /srv"], data=["holds data: btrfs 'pool'"]),
    disk(8, "sdh", 1048576, 112),
    item(36, 9, "sr0", "/dev/sr0", 1048575 * 1024, "", sr0(""), read_only=True, data=["holds data: " + CDROM]),
    part(10, "sdc1", 1046528, 33, data=["holds data: ext4 'DATA', configured in /etc/fstab at /data"]),
    part(11, "sdd1", 1046528, 49, data=["holds data: RAID member (linux_raid_member)"]),
    part(12, "sde1", 1048576, 65, in_use=[TEST], data=["holds data: bcachefs"]),
    part(13, "sde2", 1047552, 66, in_use=[TEST], data=["holds data: bcachefs"]),
    item(1, 14, "sr0", "/media/cdrom0/targetfile.dat", 1048575 * 1024, "", sr0(""), read_only=True,
         target=["not mounted: would write into the file system of /"]),
]
WARNINGS = []
WITH_REPORT = True
