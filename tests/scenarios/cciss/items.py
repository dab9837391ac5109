# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "proliant"
INQ = "HP      LOGICAL VOLUME  6.00"


def p1(p):
    return [proc_partition(p, "cciss/c0d0p1", 104391, 104, 1), sys_block(p, "cciss!c0d0p1", 104, 1, 208782),
            mount_entry("mtab", p, "/dev/cciss/c0d0p1", "/boot", "ext3")]


def p2(p):
    return [proc_partition(p, "cciss/c0d0p2", 71545477, 104, 2), sys_block(p, "cciss!c0d0p2", 104, 2, 143090954),
            mount_entry("mtab", p, "/dev/cciss/c0d0p2", "/", "ext3")]


ITEMS = [
    item(36, 0, "cciss/c0d0", "/dev/cciss/c0d0", 71652960 * 1024, "APS",
         [proc_partition("", "cciss/c0d0", 71652960, 104, 0),
          sys_block("", "cciss!c0d0", 104, 0, 143305920, model="LOGICAL VOLUME", vendor="HP      ", revision="6.00",
                    rng=16, removable=False)] + p1("Partition ") + p2("Partition "),
         inquiry=INQ),
    item(26, 1, "cciss/c0d0p1", "/dev/cciss/c0d0p1", 104391 * 1024, "A", p1(""), inquiry=INQ),
    item(26, 2, "cciss/c0d0p2", "/dev/cciss/c0d0p2", 71545477 * 1024, "S", p2(""), inquiry=INQ),
    item(1, 3, "cciss/c0d0p1", "/boot/targetfile.dat", 104391 * 1024, "A", p1(""), inquiry=INQ),
    item(1, 4, "cciss/c0d0p2", "//targetfile.dat", 71545477 * 1024, "S", p2(""), inquiry=INQ),
]
