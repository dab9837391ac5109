# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "sanhost"


def dm1(p):
    return [proc_partition(p, "dm-1", 10484736, 253, 1), dm_dev(p, "mpatha1", 253, 1, 1, False),
            mount_entry("fstab", p, "/dev/mapper/mpatha1", "/data", "ext4"),
            mount_entry("mtab", p, "/dev/mapper/mpatha1", "/data", "ext4")]


def path(p, name, minor):
    return [proc_partition(p, name, 10485760, 8, minor), dm_dev(p, name, 8, minor, 0, False)]


T = "Multipath Target "
ITEMS = [
    item(36, 0, "mapper/mpatha", "/dev/mapper/mpatha", 10485760 * 1024, "P",
         [proc_partition("", "dm-0", 10485760, 253, 0), dm_dev("", "mpatha", 253, 0, 2, True)] +
         dm1("Holder ") + path(T, "sda", 0) + path(T, "sda", 0) + path(T, "sdb", 16) + path(T, "sdb", 16)),
    item(26, 1, "/dev/mapper/mpatha1", "/dev/dm-1", 10484736 * 1024, "P", dm1(""), parent=0),
    item(1, 2, "mpatha1", "/data/targetfile.dat", 10484736 * 1024, "", dm1(""), parent=1),
]
WITH_REPORT = True
WARNINGS = [NO_SYS_BLOCK] + NO_IN_USE
