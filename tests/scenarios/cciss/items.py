# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "proliant"
INQ = "HP      LOGICAL VOLUME  6.00"


def part(n, blocks, sectors, mount_point):
    """Partition c0d0p<n>, mounted at mount_point."""
    return lambda p: [proc_partition(p, "cciss/c0d0p%d" % n, blocks, 104, n),
                      sys_block(p, "cciss!c0d0p%d" % n, 104, n, sectors),
                      mount_entry("mtab", p, "/dev/cciss/c0d0p%d" % n, mount_point, "ext3")]


p1, p2 = part(1, 104391, 208782, "/boot"), part(2, 71545477, 143090954, "/")
ITEMS = [
    item(36, 0, "cciss/c0d0", "/dev/cciss/c0d0", 71652960 * 1024, "APS",
         [proc_partition("", "cciss/c0d0", 71652960, 104, 0),
          sys_block("", "cciss!c0d0", 104, 0, 143305920, model="LOGICAL VOLUME", vendor="HP      ", revision="6.00",
                    rng=16, removable=False)] + p1("Partition ") + p2("Partition "),
         inquiry=INQ),
    item(26, 1, "cciss/c0d0p1", "/dev/cciss/c0d0p1", 104391 * 1024, "A", p1(""), inquiry=INQ, parent=0),
    item(26, 2, "cciss/c0d0p2", "/dev/cciss/c0d0p2", 71545477 * 1024, "S", p2(""), inquiry=INQ, parent=0),
    item(1, 3, "cciss/c0d0p1", "/boot/targetfile.dat", 104391 * 1024, "A", p1(""), inquiry=INQ, parent=1),
    item(1, 4, "cciss/c0d0p2", "//targetfile.dat", 71545477 * 1024, "S", p2(""), inquiry=INQ, parent=2),
]
WARNINGS = NO_IN_USE
