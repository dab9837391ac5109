# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "server1"

sda = proc_partition("", "sda", 20971520, 8, 0)


def sda1(prefix):
    return [proc_partition(prefix, "sda1", 524288, 8, 1), alias(prefix, 3, "bbbb-2222"),
            mount_entry("fstab", prefix, "UUID=bbbb-2222", "/boot", "ext4"),
            mount_entry("mtab", prefix, "/dev/sda1", "/boot", "ext4")]


def sda2(prefix):
    return [proc_partition(prefix, "sda2", 16777216, 8, 2), alias(prefix, 3, "aaaa-1111"),
            mount_entry("fstab", prefix, "UUID=aaaa-1111", "/", "ext4"),
            mount_entry("mtab", prefix, "/dev/sda2", "/", "ext4")]


def sda3(prefix):
    return [proc_partition(prefix, "sda3", 2097152, 8, 3), mount_entry("fstab", prefix, "/dev/sda3", "swap", "swap")]


ITEMS = [
    item(36, 0, "sda", "/dev/sda", 20971520 * 1024, "APSW",
         [sda] + sda1("Partition ") + sda2("Partition ") + sda3("Partition ")),
    item(26, 1, "sda1", "/dev/sda1", 524288 * 1024, "A", sda1("")),
    item(26, 2, "sda2", "/dev/sda2", 16777216 * 1024, "S", sda2("")),
    item(26, 3, "sda3", "/dev/sda3", 2097152 * 1024, "W", sda3("")),
    item(1, 4, "sda1", "/boot/targetfile.dat", 524288 * 1024, "A", sda1("")),
    item(1, 5, "sda2", "//targetfile.dat", 16777216 * 1024, "S", sda2("")),
]
