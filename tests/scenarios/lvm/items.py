# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "server2"

PV = dict(allocatable="yes", allocated="7424", free="127", pe_size="", pv_size="<29.50 GiB / not usable 3.00 MiB",
          total="7551", uuid="3eY6rK-Qm2b-Lx8d-Pz1a-Wq9c-Ht4v-Kf7sBn")
VG = dict(VGActualPV="1", VGAllocPE="7424 / 29.00 GiB", VGCurrentLV="3", VGCurrentPV="1", VGFormat="lvm2",
          VGFreePE="", VGMaximumLV="0", VGMaximumPV="0", VGMetadataAreas="1", VGMetadataSeqNo="4", VGOpenLV="3",
          VGPESize="4.00 MiB", VGSystemID="", VGTotalPE="7551", VGUUID="Zx81Qa-Lm2c-Vb7n-Pq0w-Er5t-Yu9i-Op3aSd",
          VGAccess="read/write", VGSize="<29.50 GiB", VGStatus="resizable")


def sda1(p):
    return [proc_partition(p, "sda1", 524288, 8, 1), mount_entry("fstab", p, "/dev/sda1", "/boot", "ext4"),
            mount_entry("mtab", p, "/dev/sda1", "/boot", "ext4")]


def dm(minor, name, blocks, size, le, opened, uuid, mount_point):
    """The records of dm-<minor>, the logical volume vg0/<name>: configured at mount_point, and mounted
    there unless it is swap."""
    dev, fs = "/dev/mapper/vg0-" + name, "swap" if name == "swap" else "ext4"
    return lambda p: ([proc_partition(p, "dm-%d" % minor, blocks, 253, minor),
                       dm_dev(p, "vg0-" + name, 253, minor, 1, False),
                       logical_volume(p, name, "vg0", 253, minor, LVAllocation="inherit", LVCurrentLE=le,
                                      LVSize=size, LVOpenCount="open                 " + opened, LVRAS="auto",
                                      LVSegments="1", LVStatus="available", LVUUID=uuid, LVWriteAccess="read/write"),
                       volume_group(p, "vg0", **VG), mount_entry("fstab", p, dev, mount_point, fs)] +
                      ([] if fs == "swap" else [mount_entry("mtab", p, dev, mount_point, fs)]))


dm0 = dm(0, "root", 20971520, "20.00 GiB", "5120", "1", "Hk2sLp-9Qwe-Rt5y-Ui8o-Pa3s-Df6g-Hj1kLz", "/")
dm1 = dm(1, "swap", 2097152, "2.00 GiB", "512", "2", "Nm4bVc-7Xz1-Qa2w-Se3d-Rf4t-Gy5h-Uj6iKo", "swap")
dm2 = dm(2, "home", 7340032, "7.00 GiB", "1792", "1", "Lp0oKi-9Mj8-Nh7b-Gv6f-Cd5x-Sz4a-Qw3eRt", "/home")


def sda2(p):
    # Three tree nodes stand for sda2, one under each volume; each took the device's name.
    return ([proc_partition(p, "sda2", 30932992, 8, 2)] + [dm_dev(p, "sda2", 8, 2, 0, False)] * 3 +
            [physical_volume(p, "sda2", "vg0", **PV), volume_group(p, "vg0", **VG)] +
            dm0("Holder ") + dm1("Holder ") + dm2("Holder "))


ITEMS = [
    item(36, 0, "sda", "/dev/sda", 31457280 * 1024, "APSVW",
         [proc_partition("", "sda", 31457280, 8, 0)] + sda1("Partition ") + sda2("Partition ")),
    item(26, 1, "sda1", "/dev/sda1", 524288 * 1024, "A", sda1(""), data=["holds data: configured in /etc/fstab at /boot"], parent=0),
    item(26, 2, "vg0/root", "/dev/vg0/root", 20971520 * 1024, "SV", dm0(""), parent=0),
    item(26, 3, "vg0/swap", "/dev/vg0/swap", 2097152 * 1024, "VW", dm1(""), parent=0),
    item(26, 4, "vg0/home", "/dev/vg0/home", 7340032 * 1024, "V", dm2(""), parent=0),
    item(1, 5, "sda1", "/boot/targetfile.dat", 524288 * 1024, "A", sda1(""), parent=1),
    item(1, 6, "vg0-root", "//targetfile.dat", 20971520 * 1024, "SV", dm0(""), parent=2),
    item(1, 7, "vg0-home", "/home/targetfile.dat", 7340032 * 1024, "V", dm2(""), parent=4),
]
WARNINGS = [NO_SYS_BLOCK] + NO_IN_USE
