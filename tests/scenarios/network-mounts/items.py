# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "client"

vda = [proc_partition("", "vda", 41943040, 254, 0), alias("", 3, "1111-2222"),
       mount_entry("fstab", "", "UUID=1111-2222", "/", "ext4"), mount_entry("mtab", "", "/dev/vda", "/", "ext4")]
cifs = [proc_partition("", ".cifs.", 0, -1, -1), mount_entry("mtab", "", "//nas/share", "/mnt/share", "cifs")]
nfs = [proc_partition("", ".nfs.", 0, -1, -1),
       mount_entry("mtab", "", "fileserver:/export/home", "/home", "nfs4")]
fuse = [proc_partition("", ".fusefs.", 0, -1, -1),
        mount_entry("mtab", "", "user@backup:/srv", "/mnt/backup", "fuse.sshfs"),
        mount_entry("mtab", "", "gvfsd-fuse", "/run/user/1000/gvfs", "fuse.gvfsd-fuse")]

ITEMS = [
    item(36, 0, "vda", "/dev/vda", 41943040 * 1024, "PS", vda, data=["holds data: configured in /etc/fstab at /"]),
    item(1, 1, "//nas/share", "/mnt/share/targetfile.dat", 0, "", cifs),
    item(1, 2, "fileserver:/export/home", "/home/targetfile.dat", 0, "", nfs),
    item(1, 3, "user@backup:/srv", "/mnt/backup/targetfile.dat", 0, "", fuse),
    item(1, 4, "gvfsd-fuse", "/run/user/1000/gvfs/targetfile.dat", 0, "", fuse),
    item(1, 5, "vda", "//targetfile.dat", 41943040 * 1024, "S", vda, parent=0),
]
WARNINGS = [NO_SYS_BLOCK] + NO_IN_USE
