#!/usr/bin/env python3
"""Writes a snapshot of a Linux host (the system view's replay format) that looks as a real machine does.

    bench/san_snapshot.py DIR [--luns N] [--paths P] [--partitions K] [--vgs V] [--pvs-per-vg N]
                              [--lvs-per-vg N] [--mount-every M] [--seed S]
    bench/san_snapshot.py DIR --shape random --seed S [--count K]

The SAN shape (default): a host attached to a storage array that sees each of N LUNs through P paths
(SCSI disks named as the kernel names them: sdb, sdc, ... sdz, sdaa, ...; majors 8, 65-71, 128-135 with
16 minors per disk), joins the paths of each LUN in a multipath map (dm-N, major 253, named mpatha,
mpathb, ...), and splits each map with kpartx into K partition maps (<map>p1 ...). V volume groups take
the first partition (the map itself when K is 0) of N LUNs each as physical volumes and hold N logical
volumes each, mounted below /data. Every M-th LUN that is not in a volume group has its first partition
mounted below /srv. A local disk sda holds /boot on sda1 and a volume group "system" on sda2 with the
root and swap volumes; nfs, cifs and sshfs mounts complete the host. Block devices: 1 + 2 + 2 local,
N * (P + 1 + K) for the LUNs, V * lvs-per-vg logical volumes. Defaults: --luns 250 --paths 2
--partitions 1 --vgs N/25 --pvs-per-vg 1 --lvs-per-vg 2 --mount-every 10 (1,025 block devices).

The random shape: a small host (a few dozen block devices) whose make-up is drawn from the seed: plain
SCSI, IDE (hdX) and array-controller (cciss/c0d0) disks with partitions, multipath maps over 2-4 paths,
partition maps on them, volume groups over partitions or maps (some over two physical volumes, which
dmsetup draws with "│" lines at a depth the tree reader takes literally), logical volumes mounted at /
or /boot, a logical volume that lvdisplay prints twice, swap, network mounts, a stale mtab line, a
duplicated /proc/partitions line, a tree line printed at a wrong depth, fstab entries by UUID and LABEL.
With --count K, K snapshots DIR/seed-S ... DIR/seed-(S+K-1), one for each seed, from one start.

What is written (everything discovery reads, and what `lsblk --sysroot DIR` reads):
  proc/partitions, proc/self/mounts (etc/mtab links to it, or holds stale lines of its own),
  proc/self/mountinfo, proc/swaps, etc/fstab, etc/hostname, the mount points;
  sys/devices/... device directories with dev, size, range, removable, ro, holders/, slaves/, partition
  subdirectories, dm/name and dm/uuid, and the SCSI device's model, vendor, rev, scsi_level and type;
  sys/block/<name> and sys/dev/block/<major:minor> as relative links to them, as sysfs has them;
  dev/disk/by-{id,path,uuid,label} and dev/mapper links (../../sdX, ../dm-N), dev/<vg>/<lv> links, the
  nodes of mounted devices ("readable");
  .vessa/commands: dmsetup ls --target multipath, dmsetup ls --tree -o notrunc, pvdisplay, vgdisplay,
  lvdisplay, file -s of the devices that discovery asks about; .vessa/ioctl: inquiry and scsi_address
  of every SCSI disk.
The same arguments always give the same snapshot.
"""
import argparse
import os
import random
import shutil

DM_MAJOR = 253
HOST = "sanhost"


def sd_name(index):
    name = ""
    while True:
        name = chr(ord("a") + index % 26) + name
        index = index // 26 - 1
        if index < 0:
            return "sd" + name


def sd_numbers(index):
    group = (index & 0xF0) >> 4
    major = 8 if group == 0 else (64 + group if group < 8 else 128 + group - 8)
    return major, ((index & 0xF) << 4) | (index & 0xFFF00)


def lvm_uuid(rnd):
    chars = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
    return "-".join("".join(rnd.choice(chars) for _ in range(n)) for n in (6, 4, 4, 4, 4, 4, 6))


def fs_uuid(rnd):
    h = "%032x" % rnd.getrandbits(128)
    return "%s-%s-%s-%s-%s" % (h[:8], h[8:12], h[12:16], h[16:20], h[20:])


def gib(kib):
    return "%.2f GiB" % (kib / 1048576.0)


class Dev:
    """One block device: a disk, a partition (a subdirectory of its disk in sysfs) or a dm device."""

    def __init__(self, name, major, minor, kib):
        self.name, self.major, self.minor, self.kib = name, major, minor, kib
        self.parts, self.slaves, self.holders = [], [], []
        self.disk = None
        self.dm = None  # (name, uuid)
        self.multipath = False
        self.scsi = None  # (host, channel, target, lun, vendor, model, rev, wwid)
        self.sysdir = None
        self.in_partitions = True
        self.readable = False

    def numbers(self):
        return "%d:%d" % (self.major, self.minor)


class Machine:
    def __init__(self, seed):
        self.rnd = random.Random(seed)
        self.devs = []  # in /proc/partitions order
        self.vgs = []  # (name, uuid, [(dev, printed name, pv uuid)], [(lv name, dev, lv uuid)])
        self.mounts = []  # (source, mount point, type, options, dev or None)
        self.fstab = []
        self.swaps = []
        self.aliases = []  # (by-kind, alias, target kernel name)
        self.stale_mtab = []
        self.duplicate_lines = []
        self.lv_twice = set()
        self.shift_tree_line = None
        self.comma_list = False
        self.file_outputs = {}  # device path -> file -s output
        self.next_dm = 0

    def add(self, dev):
        self.devs.append(dev)
        return dev

    def partition(self, disk, number, kib, sep=""):
        p = Dev(disk.name + sep + str(number), disk.major, disk.minor + number, kib)
        p.disk = disk
        disk.parts.append(p)
        return self.add(p)

    def dm(self, name, uuid, slaves, kib, multipath=False):
        d = self.add(Dev("dm-%d" % self.next_dm, DM_MAJOR, self.next_dm, kib))
        self.next_dm += 1
        d.dm, d.multipath, d.slaves = (name, uuid), multipath, list(slaves)
        for s in slaves:
            s.holders.append(d)
        return d

    def scsi_disk(self, index, kib, host, target, lun, vendor, model, rev, wwid):
        major, minor = sd_numbers(index)
        d = Dev(sd_name(index), major, minor, kib)
        d.scsi = (host, 0, target, lun, vendor, model, rev, wwid)
        return d

    def multipath_map(self, name, paths, wwid):
        m = self.dm(name, "mpath-" + wwid, paths, paths[0].kib, multipath=True)
        for alias in ("dm-name-" + name, "dm-uuid-mpath-" + wwid, "scsi-" + wwid, "wwn-0x" + wwid[1:]):
            self.aliases.append(("id", alias, m.name))
        return m

    def kpartx(self, mp, count, wwid):
        each = (mp.kib - 1024) // count
        parts = []
        for k in range(1, count + 1):
            name = "%sp%d" % (mp.dm[0], k)
            p = self.dm(name, "part%d-mpath-%s" % (k, wwid), [mp], each)
            parts.append(p)
            for alias in ("dm-name-" + name, "dm-uuid-part%d-mpath-%s" % (k, wwid), "scsi-%s-part%d" % (wwid, k)):
                self.aliases.append(("id", alias, p.name))
        return parts

    def volume_group(self, name, pvs, lvs, lv_kib=None):
        vg_uuid = lvm_uuid(self.rnd)
        members = []
        for dev, printed in pvs:
            pv_uuid = lvm_uuid(self.rnd)
            members.append((dev, printed, pv_uuid))
            self.aliases.append(("id", "lvm-pv-uuid-" + pv_uuid, dev.name))
        total = sum(d.kib for d, _ in pvs) - 4096 * len(pvs)
        volumes = []
        for i, lv in enumerate(lvs):
            kib = lv_kib[i] if lv_kib else (total // len(lvs)) // 4096 * 4096
            lv_uuid = lvm_uuid(self.rnd)
            dmname = name.replace("-", "--") + "-" + lv.replace("-", "--")
            d = self.dm(dmname, "LVM-" + (vg_uuid + lv_uuid).replace("-", ""), [m[0] for m in members], kib)
            self.aliases.append(("id", "dm-name-" + dmname, d.name))
            self.aliases.append(("id", "dm-uuid-" + d.dm[1], d.name))
            volumes.append((lv, d, lv_uuid))
        self.vgs.append((name, vg_uuid, members, volumes))
        return [v[1] for v in volumes]

    def mount(self, dev, source, point, fstype, fstab_source=None, label=None):
        self.mounts.append((source, point, fstype, "rw,relatime", dev))
        dev.readable = True
        uuid = fs_uuid(self.rnd)
        self.aliases.append(("uuid", uuid, dev.name))
        if label:
            self.aliases.append(("label", label, dev.name))
        spec = {"uuid": "UUID=" + uuid, "label": "LABEL=" + (label or ""),
                "by-uuid": "/dev/disk/by-uuid/" + uuid}.get(fstab_source, fstab_source or source)
        self.fstab.append("%s %s %s defaults%s 0 %d" % (
            spec, point, fstype, ",_netdev" if on_san(dev) else "", 1 if point == "/" else 2))

    def swap(self, dev, source):
        self.swaps.append(dev)
        self.aliases.append(("uuid", fs_uuid(self.rnd), dev.name))
        self.fstab.append("%s swap swap defaults 0 0" % source)

    def network_mounts(self, kinds):
        table = {"nfs": ("filer01:/vol/home", "/home", "nfs4",
                         "rw,relatime,vers=4.1,rsize=1048576,wsize=1048576,namlen=255,hard,proto=tcp,sec=sys"),
                 "nfs3": ("filer02:/export/tools", "/opt/tools", "nfs",
                          "rw,relatime,vers=3,rsize=65536,wsize=65536,namlen=255,hard,proto=tcp,sec=sys"),
                 "cifs": ("//winfs01/backup", "/mnt/backup", "cifs",
                          "rw,relatime,vers=3.0,cache=strict,username=svc,uid=0,noforceuid,gid=0,sec=ntlmssp"),
                 "fuse": ("admin@jump01:/srv/share", "/mnt/share", "fuse.sshfs",
                          "rw,nosuid,nodev,relatime,user_id=0,group_id=0")}
        for kind in kinds:
            source, point, fstype, options = table[kind]
            self.mounts.append((source, point, fstype, options, None))
            if kind != "fuse":
                self.fstab.append("%s %s %s defaults,_netdev 0 0" % (source, point, fstype))


def on_san(dev):
    return dev.multipath or any(on_san(s) for s in dev.slaves)


def local_system(m, disk, boot_on_lv=False):
    """/boot on the disk's first partition (or on a volume), LVM root and swap on its second."""
    sep = "p" if disk.name.startswith("cciss") else ""
    boot = m.partition(disk, 1, 1048576, sep)
    pv = m.partition(disk, 2, disk.kib - 1049600, sep)
    lvs = ["root", "swap"] + (["boot"] if boot_on_lv else [])
    kib = [pv.kib - 4194304 - 524288 - 8192, 4194304] + ([524288] if boot_on_lv else [])
    volumes = m.volume_group("system", [(pv, "/dev/" + pv.name)], lvs, kib)
    m.mount(volumes[0], "/dev/mapper/system-root", "/", "xfs", "/dev/mapper/system-root")
    m.swap(volumes[1], "/dev/mapper/system-swap")
    if boot_on_lv:
        m.mount(volumes[2], "/dev/mapper/system-boot", "/boot", "xfs", "uuid")
    else:
        m.mount(boot, "/dev/" + boot.name, "/boot", "xfs", "uuid")
    m.aliases.append(("path", "pci-0000:00:10.0-scsi-0:0:0:0", disk.name))
    for p in disk.parts:
        m.aliases.append(("path", "pci-0000:00:10.0-scsi-0:0:0:0-part%s" % p.name[len(disk.name) + len(sep):],
                          p.name))


ARRAYS = [("3PARdata", "VV", "3310", "360002ac0"), ("NETAPP", "LUN C-Mode", "9800", "3600a0980"),
          ("DGC", "VRAID", "0533", "36006016"), ("PURE", "FlashArray", "8888", "3624a9370")]


def san_host(m, a):
    arrays = m.rnd.sample(ARRAYS, 2)
    sda = m.add(m.scsi_disk(0, 104857600, 0, 0, 0, "VMware", "Virtual disk", "2.0", "36000c29" + "0" * 24))
    local_system(m, sda)
    luns = []
    for i in range(a.luns):
        vendor, model, rev, prefix = arrays[i % 2]
        wwid = prefix + "%0*x" % (33 - len(prefix), m.rnd.getrandbits(4 * (33 - len(prefix))))
        luns.append((wwid, vendor, model, rev, m.rnd.choice([10, 20, 50, 100, 200, 500]) * 1048576))
    paths = [[] for _ in range(a.luns)]
    for p in range(a.paths):
        for i, (wwid, vendor, model, rev, kib) in enumerate(luns):
            d = m.add(m.scsi_disk(1 + p * a.luns + i, kib, 1 + p % 2, p // 2, i, vendor, model, rev, wwid))
            paths[i].append(d)
            m.aliases.append(("path", "pci-0000:%02x:00.0-fc-0x%016x-lun-%d" % (5 + p % 2, 0x50002ac000000000 +
                                                                                   (p // 2) * 0x100 + 0x31, i), d.name))
    firsts = []
    for i in range(a.luns):
        wwid = luns[i][0]
        mp = m.multipath_map(mpath_name(i), sorted(paths[i], key=lambda _: m.rnd.random()), wwid)
        firsts.append(mp)
    for i in range(a.luns):
        if a.partitions:
            firsts[i] = m.kpartx(firsts[i], a.partitions, luns[i][0])[0]
    in_vg = set()
    for v in range(a.vgs):
        members = list(range(a.luns - (v + 1) * a.pvs_per_vg, a.luns - v * a.pvs_per_vg))
        if members[0] < 0:
            break
        in_vg.update(members)
        vg = "vg%03d" % v
        pvs = [(firsts[i], "/dev/mapper/" + firsts[i].dm[0]) for i in members]
        for k, lv in enumerate(m.volume_group(vg, pvs, ["lv%d" % j for j in range(a.lvs_per_vg)])):
            m.mount(lv, "/dev/mapper/%s-lv%d" % (vg, k), "/data/%s/lv%d" % (vg, k), "xfs",
                    "/dev/%s/lv%d" % (vg, k), label="%s_lv%d" % (vg, k))
    for i in range(0, a.luns, a.mount_every):
        if i not in in_vg:
            d = firsts[i]
            m.mount(d, "/dev/mapper/" + d.dm[0], "/srv/lun%05d" % i, "ext4" if i % 20 else "xfs",
                    "uuid" if i % 20 else "/dev/mapper/" + d.dm[0])
    # A map is asked what it holds when nothing marks it partitioned: when it has no partition map, or
    # when its partition map lies below a volume (its tree node then bears no name to compare).
    for i in range(a.luns):
        if not a.partitions or i in in_vg:
            mp = firsts[i].slaves[0] if a.partitions else firsts[i]
            path = "/dev/mapper/" + mp.dm[0]
            m.file_outputs[path] = "%s: symbolic link to ../%s\n" % (path, mp.name)
    m.network_mounts(["nfs", "cifs", "fuse"])


def mpath_name(i):
    return "mpath" + sd_name(i)[2:]


def random_host(m):
    rnd = m.rnd
    indices = iter(sorted(rnd.sample(range(48), 20)))
    kind = rnd.choice(["sd", "hd", "cciss"])
    if kind == "sd":
        local = m.add(m.scsi_disk(next(indices), 41943040, 0, 0, 0, "ATA", "VBOX HARDDISK", "1.0",
                                  "1ATA_VBOX_HARDDISK_VB%08x" % rnd.getrandbits(32)))
    elif kind == "hd":
        local = m.add(Dev("hda", 3, 0, 41943040))
    else:
        local = m.add(Dev("cciss/c0d0", 104, 0, 71652960))
        local.scsi = (0, 0, 0, 0, "HP", "LOGICAL VOLUME", "6.00", "3600508b1001030374142393845300000")
    local_system(m, local, boot_on_lv=rnd.random() < 0.3)
    for _ in range(rnd.randint(1, 3)):
        idx = next(indices)
        kib = rnd.choice([0, 1048576, 2097152, 10485760])
        d = m.add(m.scsi_disk(idx, kib, 0, 0, idx, "ATA", "VBOX HARDDISK", "1.0", "1ATA_VB%08x" % idx))
        m.aliases.append(("id", "ata-VBOX_HARDDISK_VB%08x" % idx, d.name))
        shape = rnd.choice(["blank", "fs", "parts", "parts"])
        if shape == "fs":
            m.file_outputs["/dev/" + d.name] = "/dev/%s: Linux rev 1.0 ext4 filesystem data, UUID=%s\n" % (
                d.name, fs_uuid(rnd))
        elif shape == "parts" and kib:
            numbers = sorted(rnd.sample(range(1, 13), rnd.randint(1, 3)))
            for n in numbers:
                p = m.partition(d, n, kib // 16)
                if rnd.random() < 0.5:
                    label = "DATA%d" % n if rnd.random() < 0.5 else None
                    m.mount(p, "/dev/" + p.name, "/mnt/%s" % p.name, "ext4",
                            rnd.choice(["uuid", "by-uuid", "label" if label else "uuid", None]), label)
        else:
            m.file_outputs["/dev/" + d.name] = "/dev/%s: data\n" % d.name
    firsts = []
    for i in range(rnd.randint(1, 3)):
        wwid = "360002ac0%024x" % rnd.getrandbits(96)
        kib = rnd.choice([1048576, 2097152])
        paths = [m.add(m.scsi_disk(next(indices), kib, 1 + p % 2, p // 2, i, "3PARdata", "VV", "3310", wwid))
                 for p in range(rnd.randint(2, 4))]
        mp = m.multipath_map(mpath_name(i), paths, wwid)
        parts = m.kpartx(mp, rnd.randint(1, 2), wwid) if rnd.random() < 0.6 else []
        firsts.append(parts[0] if parts else mp)
        if not parts:
            m.file_outputs["/dev/mapper/" + mp.dm[0]] = "/dev/mapper/%s: data\n" % mp.dm[0]
        for p in parts[1:]:
            m.mount(p, "/dev/mapper/" + p.dm[0], "/srv/" + p.dm[0], "ext4", rnd.choice([None, "uuid"]))
    while firsts:
        take = firsts[:rnd.randint(1, 2)]
        firsts = firsts[len(take):]
        vg = "vg%d" % len(m.vgs)
        pvs = [(d, "/dev/mapper/" + d.dm[0]) for d in take]
        volumes = m.volume_group(vg, pvs, ["lv%d" % j for j in range(rnd.randint(1, 2))])
        for j, lv in enumerate(volumes):
            if rnd.random() < 0.7:
                m.mount(lv, "/dev/mapper/%s-lv%d" % (vg, j), "/data/%s/lv%d" % (vg, j), "xfs",
                        rnd.choice(["/dev/%s/lv%d" % (vg, j), "uuid", None]))
        if rnd.random() < 0.5:
            m.lv_twice.add((vg, "lv0"))
    if rnd.random() < 0.3:
        # A disk that /sys/block shows but the partition list lacks; it answers READ CAPACITY.
        d = m.add(m.scsi_disk(next(indices), 1048576, 0, 0, 99, "ATA", "VBOX HARDDISK", "1.0", "1ATA_VB0"))
        d.in_partitions = False
    m.network_mounts([k for k in ("nfs", "nfs3", "cifs", "fuse") if rnd.random() < 0.5])
    if rnd.random() < 0.5:
        m.stale_mtab.append("/dev/%s1 /mnt/old ext4 rw,relatime 0 0" % sd_name(45))
    if rnd.random() < 0.3:
        m.stale_mtab.append("/dev/mapper/gone-vol /mnt/gone xfs rw,relatime 0 0")
    if rnd.random() < 0.5:
        m.duplicate_lines.append(rnd.choice(m.devs))
    if rnd.random() < 0.5:
        m.shift_tree_line = rnd.randint(1, 40)
    m.comma_list = rnd.random() < 0.3
    for d in m.devs:
        if not d.dm and not d.disk and "/dev/" + d.name not in m.file_outputs:
            m.file_outputs["/dev/" + d.name] = "/dev/%s: DOS/MBR boot sector\n" % d.name


# ---------------------------------------------------------------------------------------------- writing


class Writer:
    def __init__(self, root):
        self.root = root
        self.made = set()

    def dir(self, rel):
        if rel not in self.made:
            os.makedirs(os.path.join(self.root, rel), exist_ok=True)
            self.made.add(rel)

    def file(self, rel, text, mode="w"):
        self.dir(os.path.dirname(rel))
        with open(os.path.join(self.root, rel), mode, encoding=None if "b" in mode else "utf-8") as f:
            f.write(text)

    def link(self, rel, target):
        self.dir(os.path.dirname(rel))
        os.symlink(target, os.path.join(self.root, rel))

    def rel_link(self, rel, target_rel):
        self.link(rel, os.path.relpath(target_rel, os.path.dirname(rel)))


def sysfs_dir(d):
    if d.dm:
        return "sys/devices/virtual/block/" + d.name
    if d.scsi:
        h, c, t, lun = d.scsi[:4]
        if d.name.startswith("cciss"):
            return "sys/devices/pci0000:00/0000:00:1c.0/0000:03:00.0/cciss0/c0d0/block/" + d.name.replace("/", "!")
        if not h:
            return "sys/devices/pci0000:00/0000:00:10.0/host0/target0:0:%d/0:0:%d:0/block/%s" % (lun, lun, d.name)
        return ("sys/devices/pci0000:00/0000:00:%02x.0/0000:%02x:00.0/host%d/rport-%d:0-%d/target%d:0:%d/%d:0:%d:%d/"
                "block/%s" % (3 + h, 4 + h, h, h, t, h, t, h, t, lun, d.name))
    return "sys/devices/pci0000:00/0000:00:01.1/ata1/host0/target0:0:0/0:0:0:0/block/" + d.name


def write_sysfs(w, m):
    for d in m.devs:
        if d.disk:
            continue
        d.sysdir = sysfs_dir(d)
        for p in d.parts:
            p.sysdir = d.sysdir + "/" + p.name.replace("/", "!")
    for d in m.devs:
        if not d.sysdir:
            continue
        w.dir(d.sysdir)
        attrs = {"dev": d.numbers(), "size": str(d.kib * 2), "ro": "0"}
        if d.disk:
            number = d.minor - d.disk.minor
            attrs.update(partition=str(number), start=str(2048 + (number - 1) * d.kib * 2))
        else:
            attrs.update(range="1" if d.dm else "16", removable="0")
            w.rel_link("sys/block/" + d.name.replace("/", "!"), d.sysdir)
        for k, v in attrs.items():
            w.file(d.sysdir + "/" + k, v + "\n")
        w.rel_link("sys/dev/block/" + d.numbers(), d.sysdir)
        w.dir(d.sysdir + "/holders")
        w.dir(d.sysdir + "/slaves")
        for h in d.holders:
            w.rel_link("%s/holders/%s" % (d.sysdir, h.name), h.sysdir)
        for s in d.slaves:
            w.rel_link("%s/slaves/%s" % (d.sysdir, s.name.replace("/", "!")), s.sysdir)
        if d.dm:
            w.file(d.sysdir + "/dm/name", d.dm[0] + "\n")
            w.file(d.sysdir + "/dm/uuid", d.dm[1] + "\n")
            w.file(d.sysdir + "/dm/suspended", "0\n")
        elif d.scsi and not d.disk:
            scsi_dir = d.sysdir.rsplit("/block/", 1)[0]
            vendor, model, rev = d.scsi[4:7]
            for k, v in (("vendor", "%-8s" % vendor), ("model", "%-16s" % model), ("rev", "%-4s" % rev),
                         ("scsi_level", "7" if d.scsi[0] else "3"), ("type", "0")):
                w.file(scsi_dir + "/" + k, v + "\n")
            w.rel_link(d.sysdir + "/device", scsi_dir)


def inquiry_bytes(vendor, model, rev):
    head = bytes([0, 0, 6, 0x12, 91, 0, 0x10, 0x02])
    return head + ("%-8s%-16s%-4s" % (vendor, model, rev)).encode() + bytes(96 - 36)


def write_dev(w, m):
    for d in m.devs:
        if d.readable:
            w.file("dev/" + d.name, "readable\n")
        if d.dm:
            w.link("dev/mapper/" + d.dm[0], "../" + d.name)
    for vg, _, _, volumes in m.vgs:
        for lv, d, _ in volumes:
            w.link("dev/%s/%s" % (vg, lv), "../" + d.name)
            if not d.readable:
                w.file("dev/" + d.name, "")
    for kind, alias, target in m.aliases:
        path = "dev/disk/by-%s/%s" % (kind, alias)
        if not os.path.lexists(os.path.join(w.root, path)):
            w.link(path, "../../" + target)


def tree_lines(m):
    dms = [d for d in m.devs if d.dm]
    if not dms:
        return ["No devices found"]
    lines = []

    def draw(d, prefix, last, top):
        label = d.dm[0] if d.dm else ""
        if top:
            lines.append("%s (%s)" % (label, d.numbers()))
        else:
            lines.append("%s%s%s (%s)" % (prefix, "\u2514\u2500" if last else "\u251c\u2500", label, d.numbers()))
        below = " " if top else prefix + ("   " if last else "\u2502  ")
        for i, s in enumerate(d.slaves):
            draw(s, below, i == len(d.slaves) - 1, False)

    for d in sorted((d for d in dms if not any(h.dm for h in d.holders)), key=lambda d: d.dm[0]):
        draw(d, "", True, True)
    inner = [i for i, line in enumerate(lines) if line.startswith(" ")]
    if m.shift_tree_line is not None and inner:
        i = inner[m.shift_tree_line % len(inner)]
        lines[i] = ("   " + lines[i]) if m.shift_tree_line % 2 else lines[i][1:]
    return lines


def lvm_outputs(m):
    pv, vg, lv = [], [], []
    for name, uuid, members, volumes in sorted(m.vgs):
        for dev, printed, pv_uuid in members:
            pe = (dev.kib - 4096) // 4096
            pv.append(("  --- Physical volume ---\n  PV Name               %s\n  VG Name               %s\n"
                       "  PV Size               %s / not usable 4.00 MiB\n  Allocatable           yes (but full)\n"
                       "  PE Size               4.00 MiB\n  Total PE              %d\n  Free PE               0\n"
                       "  Allocated PE          %d\n  PV UUID               %s\n   \n")
                      % (printed, name, gib(dev.kib), pe, pe, pv_uuid))
        total = sum((d.kib - 4096) // 4096 for d, _, _ in members)
        used = sum(d.kib // 4096 for _, d, _ in volumes)
        vg.append(("  --- Volume group ---\n  VG Name               %s\n  System ID             \n"
                   "  Format                lvm2\n  Metadata Areas        %d\n  Metadata Sequence No  %d\n"
                   "  VG Access             read/write\n  VG Status             resizable\n  MAX LV                0\n"
                   "  Cur LV                %d\n  Open LV               %d\n  Max PV                0\n"
                   "  Cur PV                %d\n  Act PV                %d\n  VG Size               %s\n"
                   "  PE Size               4.00 MiB\n  Total PE              %d\n  Alloc PE / Size       %d / %s\n"
                   "  Free  PE / Size       %d / %s   \n  VG UUID               %s\n   \n")
                  % (name, len(members), 2 + len(volumes), len(volumes), len(volumes), len(members), len(members),
                     gib(total * 4096), total, used, gib(used * 4096), total - used, gib((total - used) * 4096), uuid))
        for lvname, d, lv_uuid in volumes:
            block = ("  --- Logical volume ---\n  LV Path                /dev/%s/%s\n  LV Name                %s\n"
                     "  VG Name                %s\n  LV UUID                %s\n  LV Write Access        read/write\n"
                     "  LV Creation host, time %s, 2023-03-14 09:26:53 +0100\n  LV Status              available\n"
                     "  # open                 %d\n  LV Size                %s\n  Current LE             %d\n"
                     "  Segments               %d\n  Allocation             inherit\n  Read ahead sectors     auto\n"
                     "  - currently set to     8192\n  Block device           %s\n   \n") % (
                name, lvname, lvname, name, lv_uuid, HOST, 1 if d.readable else 0, gib(d.kib), d.kib // 4096,
                len(members), d.numbers())
            lv.append(block * (2 if (name, lvname) in m.lv_twice else 1))
    return "".join(pv), "".join(vg), "".join(lv)


def write_commands(w, m):
    cmd = ".vessa/commands/"
    maps = sorted((d for d in m.devs if d.multipath), key=lambda d: d.dm[0])
    listing = ["%s\t(%d:%d)" % (d.dm[0], d.major, d.minor) if not m.comma_list else
               "%s (%d, %d)" % (d.dm[0], d.major, d.minor) for d in maps] or ["No devices found"]
    w.file(cmd + "dmsetup ls --target multipath", "\n".join(listing) + "\n")
    w.file(cmd + "dmsetup ls --tree -o notrunc", "\n".join(tree_lines(m)) + "\n")
    for tool, text in zip(("pvdisplay", "vgdisplay", "lvdisplay"), lvm_outputs(m)):
        w.file(cmd + tool, text)
    for path, text in m.file_outputs.items():
        w.file(cmd + ("file -s " + path).replace("%", "%25").replace("/", "%2F"), text)
    for d in m.devs:
        if d.scsi and not d.disk:
            key = ".vessa/ioctl/" + d.name.replace("/", "!")
            w.file(key + ".inquiry", inquiry_bytes(*d.scsi[4:7]), "wb")
            w.file(key + ".scsi_address", "%d:%d:%d:%d\n" % d.scsi[:4])
            if not d.in_partitions:
                w.file(key + ".read_capacity", "512\n")
                w.file(key + ".size", str(d.kib * 1024) + "\n")
                w.file(key + ".block_size", "4096\n")
                w.file("dev/" + d.name, "")


def write_tables(w, m):
    lines = ["major minor  #blocks  name", ""]
    for d in m.devs + m.duplicate_lines:
        if d.in_partitions:
            lines.append("%4d  %7d %10d %s" % (d.major, d.minor, d.kib, d.name))
    w.file("proc/partitions", "\n".join(lines) + "\n")
    system = [("sysfs", "/sys", "sysfs", "rw,nosuid,nodev,noexec,relatime", "0:21"),
              ("proc", "/proc", "proc", "rw,nosuid,nodev,noexec,relatime", "0:22"),
              ("devtmpfs", "/dev", "devtmpfs", "rw,nosuid,size=8155456k,nr_inodes=2038864,mode=755", "0:5"),
              ("tmpfs", "/dev/shm", "tmpfs", "rw,nosuid,nodev", "0:23"),
              ("tmpfs", "/run", "tmpfs", "rw,nosuid,nodev,mode=755", "0:24"),
              ("cgroup2", "/sys/fs/cgroup", "cgroup2", "rw,nosuid,nodev,noexec,relatime,nsdelegate", "0:26")]
    mounts, info = [], []
    anon = 40
    ids = {}
    # The root file system is mounted first, as the kernel lists it.
    entries = sorted(system + m.mounts, key=lambda e: e[1] != "/")
    for source, point, fstype, options, dev in entries:
        if isinstance(dev, str):
            numbers = dev
        elif dev is not None:
            numbers = dev.numbers()
        else:
            numbers, anon = "0:%d" % anon, anon + 1
        mounts.append("%s %s %s %s 0 0" % (source, point, fstype, options))
        parent = max((p for p in ids if point.startswith(p.rstrip("/") + "/") and p != point), key=len, default="/")
        ids[point] = 22 + len(info)
        info.append("%d %d %s / %s %s shared:%d - %s %s %s" % (
            ids[point], ids.get(parent, 1) if point != "/" else 1, numbers, point, options.split(",")[0] + ",relatime",
            len(info) + 1, fstype, source, options))
    w.file("proc/self/mounts", "\n".join(mounts) + "\n")
    w.file("proc/self/mountinfo", "\n".join(info) + "\n")
    swaps = ["Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority"]
    swaps += ["%-40s%s\t%d\t\t0\t\t-2" % ("/dev/" + d.name, "partition", d.kib - 4) for d in m.swaps]
    w.file("proc/swaps", "\n".join(swaps) + "\n")
    if m.stale_mtab:
        w.file("etc/mtab", "\n".join(mounts + m.stale_mtab) + "\n")
    else:
        w.link("etc/mtab", "../proc/self/mounts")
    w.file("etc/fstab", "#\n# /etc/fstab\n#\n" + "\n".join(m.fstab) + "\n")
    w.file("etc/hostname", HOST + "\n")
    for _, point, _, _, dev in m.mounts:
        if dev is not None:
            w.dir(point.lstrip("/") or ".")


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("dir")
    ap.add_argument("--shape", choices=["san", "random"], default="san")
    ap.add_argument("--luns", type=int, default=250)
    ap.add_argument("--paths", type=int, default=2)
    ap.add_argument("--partitions", type=int, default=1)
    ap.add_argument("--vgs", type=int, default=None)
    ap.add_argument("--pvs-per-vg", type=int, default=1)
    ap.add_argument("--lvs-per-vg", type=int, default=2)
    ap.add_argument("--mount-every", type=int, default=10)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--count", type=int, default=1)
    a = ap.parse_args()
    if a.vgs is None:
        a.vgs = a.luns // 25
    if a.luns < 0 or a.paths < 1 or a.partitions < 0 or a.mount_every < 1 or a.pvs_per_vg < 1 or a.count < 1:
        ap.error("counts must be positive")
    if a.count == 1:
        make(a.dir, a.seed, a)
    else:
        for seed in range(a.seed, a.seed + a.count):
            make(os.path.join(a.dir, "seed-%d" % seed), seed, a)


def make(root, seed, a):
    if os.path.exists(root):
        shutil.rmtree(root)
    m = Machine(seed)
    if a.shape == "san":
        san_host(m, a)
    else:
        random_host(m)
    w = Writer(root)
    write_sysfs(w, m)
    write_dev(w, m)
    write_commands(w, m)
    write_tables(w, m)
    print("%s: %d block devices" % (root, len(m.devs)))


if __name__ == "__main__":
    main()
