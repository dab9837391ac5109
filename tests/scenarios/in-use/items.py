# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "busyhost"


def sda1(p):
    return [proc_partition(p, "sda1", 1048576, 8, 1), mount_entry("mtab", p, "/dev/sda1", "/home", "ext4")]


def sda2(p):
    return [proc_partition(p, "sda2", 524288, 8, 2)]


HOME = "mounted at /home"
ITEMS = [
    item(36, 0, "sda", "/dev/sda", 4194304 * 1024, "P",
         [proc_partition("", "sda", 4194304, 8, 0)] + sda1("Partition ") + sda2("Partition "),
         in_use=["through sda1: " + HOME, "through sda2: active swap"]),
    item(36, 1, "sdb", "/dev/sdb", 2097152 * 1024, "",
         [proc_partition("", "sdb", 2097152, 8, 16), sys_block("", "sdb", 8, 16, 4194304, removable=False)],
         in_use=["held by dm-0", "through dm-0: mounted at /srv"]),
    item(36, 2, "sdc", "/dev/sdc", 1048576 * 1024, "", [proc_partition("", "sdc", 1048576, 8, 32)],
         in_use=["busy: an exclusive open is refused"]),
    item(36, 3, "dm-0", "/dev/dm-0", 2095104 * 1024, "P",
         [proc_partition("", "dm-0", 2095104, 253, 0), sys_block("", "dm-0", 253, 0, 4190208, removable=False)],
         in_use=["mounted at /srv"]),
    item(26, 4, "sda1", "/dev/sda1", 1048576 * 1024, "", sda1(""), in_use=[HOME], parent=0),
    item(26, 5, "sda2", "/dev/sda2", 524288 * 1024, "", sda2(""), in_use=["active swap"], parent=0),
    item(1, 6, "sda1", "/home/targetfile.dat", 1048576 * 1024, "", sda1(""), in_use=[HOME], parent=4),
]
WARNINGS = ["dmsetup could not be run: multipath devices and device-mapper relations may be missing"]
