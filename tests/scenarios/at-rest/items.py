# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "resthost"


def sr0(p):
    return [proc_partition(p, "sr0", 1048575, 11, 0),
            sys_block(p, "sr0", 11, 0, 2097150, removable=True),
            mount_entry("fstab", p, "/dev/sr0", "/media/cdrom0", "udf,iso9660")]


def disk(index, name, blocks, minor, letters="", partitions=(), **verdict):
    """Disk sd<x> and the records of its partitions, each (name, blocks, minor)."""
    return item(36, index, name, "/dev/" + name, blocks * 1024, letters,
                [proc_partition("", name, blocks, 8, minor)] +
                [proc_partition("Partition ", *p[:2], 8, p[2]) for p in partitions], **verdict)


def part(index, name, blocks, minor, **verdict):
    return item(26, index, name, "/dev/" + name, blocks * 1024, "", [proc_partition("", name, blocks, 8, minor)],
                **verdict)


POOL = dict(fsType="btrfs", uuid="5f0c2a9e-3c1d-4b8e-9a57-2f1e6d4c8b10", label="pool")
BCACHEFS = dict(fsType="bcachefs", uuid="77e6d5c4-b3a2-4190-8f7e-6d5c4b3a2910")
CDROM = "configured in /etc/fstab at /media/cdrom0"
TEST = "mounted at /mnt/test"
ITEMS = [
    item(36, 0, "loop0", "/dev/loop0", 65536 * 1024, "",
         [proc_partition("", "loop0", 65536, 7, 0), sys_block("", "loop0", 7, 0, 131072, removable=False)],
         read_only=True, identity=dict(readOnly=True)),
    disk(1, "sda", 1048576, 0, data=["holds data: LUKS encrypted volume, configured in /etc/crypttab as cryptdata"], identity=dict(fsType="crypto_LUKS", uuid="9b1e3c55-2f4d-4a8e-b7c6-1d2e3f4a5b6c")),
    disk(2, "sdb", 524288, 16, data=["holds data: swap space"], identity=dict(fsType="swap", uuid="3c2a1b0f-8e7d-4c6b-9a5f-4e3d2c1b0a99")),
    disk(3, "sdc", 1048576, 32, "P", [("sdc1", 1046528, 33)], data=["holds data: gpt partition table"]),
    disk(4, "sdd", 1048576, 48, "P", [("sdd1", 1046528, 49)], data=["holds data: dos partition table"]),
    disk(5, "sde", 2097152, 64, "P", [("sde1", 1048576, 65), ("sde2", 1047552, 66)],
         in_use=["through sde1: " + TEST, "through sde2: " + TEST], data=["holds data: gpt partition table"]),
    disk(6, "sdf", 1048576, 80, in_use=["mounted at /srv"], data=["holds data: btrfs 'pool'"], identity=POOL),
    disk(7, "sdg", 1048576, 96, in_use=["mounted at /srv"], data=["holds data: btrfs 'pool'"], identity=POOL),
    disk(8, "sdh", 1048576, 112),
    item(36, 9, "sr0", "/dev/sr0", 1048575 * 1024, "", sr0(""), read_only=True, data=["holds data: " + CDROM], identity=dict(readOnly=True)),
    part(10, "sdc1", 1046528, 33, data=["holds data: ext4 'DATA', configured in /etc/fstab at /data"], parent=3, identity=dict(fsType="ext4", uuid="0d6f1f4e-7b0a-4c35-9a3e-5c2b8e1f9a21", label="DATA")),
    part(11, "sdd1", 1046528, 49, data=["holds data: RAID member (linux_raid_member)"], parent=4, identity=dict(fsType="linux_raid_member", uuid="a1b2c3d4-e5f6-0718-293a-4b5c6d7e8f90", label="centos:boot")),
    part(12, "sde1", 1048576, 65, in_use=[TEST], data=["holds data: bcachefs"], parent=5, identity=BCACHEFS),
    part(13, "sde2", 1047552, 66, in_use=[TEST], data=["holds data: bcachefs"], parent=5, identity=BCACHEFS),
    item(1, 14, "sr0", "/media/cdrom0/targetfile.dat", 1048575 * 1024, "", sr0(""), read_only=True,
         target=["not mounted: would write into the file system of /"], parent=9, identity=dict(readOnly=True)),
]
WARNINGS = []
WITH_REPORT = True
