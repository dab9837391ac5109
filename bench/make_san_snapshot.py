#!/usr/bin/env python3
"""Writes a snapshot of a SAN host: N multipath devices, each over P paths, each with one partition map
holding a physical volume of one volume group whose logical volumes are mounted.

    bench/make_san_snapshot.py DIR N [P]

The layout follows the tools' real formats (dmsetup tree with box characters, current LVM displays),
so that discovery does on it what it does on a real host with N * P SCSI paths.
"""
import os
import sys


def main():
    out, n = sys.argv[1], int(sys.argv[2])
    paths = int(sys.argv[3]) if len(sys.argv) > 3 else 4
    os.makedirs(out + "/etc", exist_ok=True)
    os.makedirs(out + "/proc", exist_ok=True)
    cmd = out + "/.vessa/commands"
    os.makedirs(cmd, exist_ok=True)
    os.makedirs(out + "/dev/mapper", exist_ok=True)
    open(out + "/etc/hostname", "w").write("sanhost\n")

    parts = ["major minor  #blocks  name", ""]
    tree, mplist, pv, lv, mtab = [], [], [], [], []
    sd = 0
    for i in range(n):
        mp_minor, part_minor, lv_minor = 3 * i, 3 * i + 1, 3 * i + 2
        for _ in range(paths):
            # SCSI disks keep major 8 with extended minors, never the device-mapper major 253.
            parts.append("%4d %8d %10d sd%d" % (8, sd * 16, 10485760, sd))
            sd += 1
        parts.append("%4d %8d %10d dm-%d" % (253, mp_minor, 10485760, mp_minor))
        parts.append("%4d %8d %10d dm-%d" % (253, part_minor, 10484736, part_minor))
        parts.append("%4d %8d %10d dm-%d" % (253, lv_minor, 10481664, lv_minor))
        mplist.append("mpath%d\t(253:%d)" % (i, mp_minor))
        tree.append("vg%d-data (253:%d)" % (i, lv_minor))
        tree.append(" \u2514\u2500mpath%dp1 (253:%d)" % (i, part_minor))
        tree.append("    \u2514\u2500mpath%d (253:%d)" % (i, mp_minor))
        first = sd - paths
        for k in range(paths):
            box = "\u2514\u2500" if k == paths - 1 else "\u251c\u2500"
            s = first + k
            tree.append("       %s (%d:%d)" % (box, 8, s * 16))
        pv.append("  --- Physical volume ---\n  PV Name               /dev/mapper/mpath%dp1\n"
                  "  VG Name               vg%d\n  PV Size               <10.00 GiB\n  Allocatable           yes \n"
                  "  PE Size               4.00 MiB\n  Total PE              2559\n  Free PE               0\n"
                  "  Allocated PE          2559\n  PV UUID               uuid-%d\n   \n" % (i, i, i))
        lv.append("  --- Logical volume ---\n  LV Path                /dev/vg%d/data\n  LV Name                data\n"
                  "  VG Name                vg%d\n  LV Status              available\n  # open                 1\n"
                  "  LV Size                <10.00 GiB\n  Block device           253:%d\n   \n" % (i, i, lv_minor))
        mtab.append("/dev/mapper/vg%d-data /srv/lun%d ext4 rw,relatime 0 0" % (i, i))
        open(out + "/dev/mapper/vg%d-data" % i, "w").write("readable\n")
    open(out + "/proc/partitions", "w").write("\n".join(parts) + "\n")
    open(cmd + "/dmsetup ls --target multipath", "w").write("\n".join(mplist) + "\n")
    open(cmd + "/dmsetup ls --tree -o notrunc", "w").write("\n".join(tree) + "\n")
    open(cmd + "/pvdisplay", "w").write("".join(pv))
    open(cmd + "/vgdisplay", "w").write("".join(
        "  --- Volume group ---\n  VG Name               vg%d\n  Cur PV                1\n   \n" % i for i in range(n)))
    open(cmd + "/lvdisplay", "w").write("".join(lv))
    open(out + "/etc/mtab", "w").write("/dev/sda1 / ext4 rw 0 0\n" + "\n".join(mtab) + "\n")
    open(out + "/etc/fstab", "w").write("")


if __name__ == "__main__":
    main()
