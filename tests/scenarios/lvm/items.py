# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "server2"

PV = dict(allocatable="yes", allocated="7424", free="127", pe_size="", pv_size="<29.50 GiB / not usable 3.00 MiB",
          total="7551", uuid="3eY6rK-Qm2b-Lx8d-Pz1a-Wq9c-Ht4v-Kf7sBn")
VG = dict(VGActualPV="1", VGAllocPE="7424 / 29.00 GiB", VGCurrentLV="3", VGCurrentPV="1", VGFormat="lvm2",
          VGFreePE="", VGMaximumLV="0", VGMaximumPV="0", VGMetadataAreas="1", VGMetadataSeqNo="4", VGOpenLV="3",
          VGPESize="4.00 MiB", VGSystemID="", VGTotalPE="7551", VGUUID="Zx81Qa-Lm2c-Vb7n-Pq0w-Er5t-Yu9i-Op3aSd",
          VGAccess="read/write", VGSize="<29.50 GiB", VGStatus="resizable")


def lv(prefix, name, major, minor, size, le, opened, uuid):
    return logical_volume(prefix, name, "vg0", major, minor, LVAllocation="inherit", LVCurrentLE=le, LVSize=size,
                          LVOpenCount="open                 " + opened, LVRAS="auto", LVSegments="1",
                          LVStatus="available", LVUUID=uuid, LVWriteAccess="read/write")


def sda1(p):
    return [proc_partition(p, "sda1", 524288, 8, 1), mount_entry("fstab", p, "/dev/sda1", "/boot", "ext4"),
            mount_entry("mtab", p, "/dev/sda1", "/boot", "ext4")]


def dm0(p):
    return [proc_partition(p, "dm-0", 20971520, 253, 0), dm_dev(p, "vg0-root", 253, 0, 1, False),
            lv(p, "root", 253, 0, "20.00 GiB", "5120", "1", "Hk2sLp-9Qwe-Rt5y-Ui8o-Pa3s-Df6g-Hj1kLz"),
            volume_group(p, "vg0", **VG),
            mount_entry("fstab", p, "/dev/mapper/vg0-root", "/", "ext4"),
            mount_entry("mtab", p, "/dev/mapper/vg0-root", "/", "ext4")]


def dm1(p):
    return [proc_partition(p, "dm-1", 2097152, 253, 1), dm_dev(p, "vg0-swap", 253, 1, 1, False),
            lv(p, "swap", 253, 1, "2.00 GiB", "512", "2", "Nm4bVc-7Xz1-Qa2w-Se3d-Rf4t-Gy5h-Uj6iKo"),
            volume_group(p, "vg0", **VG),
            mount_entry("fstab", p, "/dev/mapper/vg0-swap", "swap", "swap")]


def dm2(p):
    return [proc_partition(p, "dm-2", 7340032, 253, 2), dm_dev(p, "vg0-home", 253, 2, 1, False),
            lv(p, "home", 253, 2, "7.00 GiB", "1792", "1", "Lp0oKi-9Mj8-Nh7b-Gv6f-Cd5x-Sz4a-Qw3eRt"),
            volume_group(p, "vg0", **VG),
            mount_entry("fstab", p, "/dev/mapper/vg0-home", "/home", "ext4"),
            mount_entry("mtab", p, "/dev/mapper/vg0-home", "/home", "ext4")]


def sda2(p):
    # Three tree nodes stand for sda2, one under each volume; each took the device's name.
    nodes = [dm_dev(p, "sda2", 8, 2, 0, False)] * 3
    return ([proc_partition(p, "sda2", 30932992, 8, 2)] + nodes +
            [physical_volume(p, "sda2", "vg0", **PV), volume_group(p, "vg0", **VG)] +
            dm0("Holder ") + dm1("Holder ") + dm2("Holder "))


ITEMS = [
    item(36, 0, "sda", "/dev/sda", 31457280 * 1024, "APSVW",
         [proc_partition("", "sda", 31457280, 8, 0)] + sda1("Partition ") + sda2("Partition ")),
    item(26, 1, "sda1", "/dev/sda1", 524288 * 1024, "A", sda1("")),
    item(26, 2, "vg0/root", "/dev/vg0/root", 20971520 * 1024, "SV", dm0("")),
    item(26, 3, "vg0/swap", "/dev/vg0/swap", 2097152 * 1024, "VW", dm1("")),
    item(26, 4, "vg0/home", "/dev/vg0/home", 7340032 * 1024, "V", dm2("")),
    item(1, 5, "sda1", "/boot/targetfile.dat", 524288 * 1024, "A", sda1("")),
    item(1, 6, "vg0-root", "//targetfile.dat", 20971520 * 1024, "SV", dm0("")),
    item(1, 7, "vg0-home", "/home/targetfile.dat", 7340032 * 1024, "V", dm2("")),
]
