# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "server1"


def mounted(name, blocks, minor, uuid, mount_point):
    """A partition configured by UUID and mounted at mount_point."""
    return lambda p: [proc_partition(p, name, blocks, 8, minor), alias(p, 3, uuid),
                      mount_entry("fstab", p, "UUID=" + uuid, mount_point, "ext4"),
                      mount_entry("mtab", p, "/dev/" + name, mount_point, "ext4")]


sda1 = mounted("sda1", 524288, 1, "bbbb-2222", "/boot")
sda2 = mounted("sda2", 16777216, 2, "aaaa-1111", "/")


def sda3(p):
    return [proc_partition(p, "sda3", 2097152, 8, 3), mount_entry("fstab", p, "/dev/sda3", "swap", "swap")]


ITEMS = [
    item(36, 0, "sda", "/dev/sda", 20971520 * 1024, "APSW",
         [proc_partition("", "sda", 20971520, 8, 0)] + sda1("Partition ") + sda2("Partition ") + sda3("Partition ")),
    item(26, 1, "sda1", "/dev/sda1", 524288 * 1024, "A", sda1(""), data=["holds data: configured in /etc/fstab at /boot"], parent=0),
    item(26, 2, "sda2", "/dev/sda2", 16777216 * 1024, "S", sda2(""), data=["holds data: configured in /etc/fstab at /"], parent=0),
    item(26, 3, "sda3", "/dev/sda3", 2097152 * 1024, "W", sda3(""), data=["holds data: configured in /etc/fstab as swap"], parent=0),
    item(1, 4, "sda1", "/boot/targetfile.dat", 524288 * 1024, "A", sda1(""), parent=1),
    item(1, 5, "sda2", "//targetfile.dat", 16777216 * 1024, "S", sda2(""), parent=2),
]
WARNINGS = [NO_SYS_BLOCK] + NO_IN_USE
